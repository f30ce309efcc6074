// Whether the time of a computation depends on how an author spells it: each group is one
// computation in several spellings, run in turns. Prints a line for each group: the processor time
// of one turn of the fastest spelling, and the ratio of each other one to it.
//
// usage: spelling_bench [ROUNDS]
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "scr/Interpreter.h"

namespace {

constexpr const char* declarationsS =
    "Long i; Long s = 1; Long b = 7; Long c = 11; Long t; Decimal x = 1.25; Decimal y;"
    "String w = \"text\"; String v; Long n[]; Long h{}; n[15] = 1; h{\"text\"} = 1;"
    "function Long twice(Long k) { return k + k; }";

const std::vector<std::vector<const char*>> groupsS = {
    {"t = (b * 3 + c) % 7;", "t = (c + b * 3) % 7;", "t = (c + 3 * b) % 7;",
     "t = (3 * b + c) % 7;"},
    {"s = s + i % 7;", "s = i % 7 + s;"},
    {"if (i % 7 == 3) { s = s + 1; }", "if (3 == i % 7) { s = 1 + s; }",
     "if ((i % 7 != 3) == false) { s = s + 1; }"},
    {"if (i > 3) { s = s + 1; }", "if (3 < i) { s = s + 1; }", "if (i >= 4) { s = s + 1; }",
     "if (i > 3 and i > 2) { s = s + 1; }"},
    // The order of the two is the author's: it says which one need not be looked at.
    {"if (i < b or i > c) { s = s + 2; }", "if (b > i or c < i) { s = s + 2; }",
     "if ((i >= b and i <= c) == false) { s = s + 2; }"},
    {"if (i > 3) { if (i != 2) { s = s + 1; } }", "if (i > 2 and i > 3) { s = s + 1; }",
     "if (i <= 3 or i < 0) { t = t; } else { s = s + 1; }"},
    {"t = i * 2;", "t = 2 * i;", "t = i + i;"},
    {"t = i - 1;", "t = i + -1;", "t = -1 + i;"},
    {"if (i % 2 == 0) { t = 1; } else { t = 2; }", "if (i % 2 != 0) { t = 2; } else { t = 1; }",
     "t = 2; if (i % 2 == 0) { t = 1; }"},
    {"n[i % 16] = n[i % 16] + 1;", "n[i % 16] = 1 + n[i % 16];"},
    {"h{w} = h{w} + 1;", "h{w} = 1 + h{w};"},
    {"x = x + 0.01;", "x = 0.01 + x;"},
    {"y = x * 1.19;", "y = 1.19 * x;"},
    {"if (x > 1) { s = s + 1; }", "if (1 < x) { s = s + 1; }", "if (x > 1.0) { s = s + 1; }"},
    {"t = twice(i) + 1;", "t = 1 + twice(i);"},
    {"if (w == \"text\") { s = s + 1; }", "if (\"text\" == w) { s = s + 1; }"},
    {"switch (i % 3) { case 0: t = 5; break; case 1: t = 6; break; default: t = 7; }",
     "switch (i % 3) { default: t = 7; break; case 1: t = 6; break; case 0: t = 5; }"},
};

const std::vector<std::vector<const char*>> loopsS = {
    {"for (i = 0; i < 1000000; i = i + 1) { s = s + i; }",
     "for (i = 0; 1000000 > i; i = 1 + i) { s = i + s; }",
     "i = 0; while (i < 1000000) { s = s + i; i = i + 1; }",
     "i = 0; do { s = s + i; i = i + 1; } while (i < 1000000);"},
};

constexpr long turnsS = 1'000'000;

class Spelling {
public:
    Spelling(const char* text, const std::string& loop) : text_(text) {
        isGood_ = interpreter_.compile(declarationsS + loop);
        isGood_ = isGood_ && interpreter_.execute();
    }
    bool isGood() const { return isGood_; }
    const char* text() const { return text_; }
    double nanoseconds() const { return best_; }

    void run() {
        const std::clock_t start = std::clock();
        interpreter_.execute();
        const double seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
        best_ = std::min(best_, seconds * 1e9 / turnsS);
    }

private:
    const char* text_;
    SCR::Log log_;
    SCR::Interpreter interpreter_{&log_};
    bool isGood_ = false;
    double best_ = 1e9;
};

using Spellings = std::vector<std::unique_ptr<Spelling>>;

// Prints the line of a group; the largest ratio, 0 when a spelling does not compile.
double measure(const Spellings& spellings, int rounds) {
    for (const auto& spelling : spellings) {
        if (spelling->isGood()) continue;
        std::printf("does not run: %s\n", spelling->text());
        return 0;
    }
    for (int round = 0; round < rounds; ++round) {
        for (const auto& spelling : spellings) spelling->run();
    }
    const auto time = [](const auto& spelling) { return spelling->nanoseconds(); };
    const double best = time(
        *std::min_element(spellings.begin(), spellings.end(),
                          [&time](const auto& a, const auto& b) { return time(a) < time(b); }));
    double worst = 1;
    std::printf("%6.2f ns", best);
    for (const auto& spelling : spellings) {
        const double ratio = time(spelling) / best;
        worst = std::max(worst, ratio);
        std::printf("  %.2f `%s`", ratio, spelling->text());
    }
    std::printf("\n");
    std::fflush(stdout);
    return worst;
}

}  // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::max(std::atoi(argv[1]), 1) : 15;
    double worst = 1;
    bool isGood = true;
    const auto group = [&](const std::vector<const char*>& texts, bool isLoop) {
        Spellings spellings;
        for (const char* text : texts) {
            const std::string loop = isLoop ? text
                                            : "for (i = 0; i < " + std::to_string(turnsS) +
                                                  "; i = i + 1) {" + text + "}";
            spellings.push_back(std::make_unique<Spelling>(text, loop));
        }
        const double ratio = measure(spellings, rounds);
        isGood = isGood && ratio > 0;
        worst = std::max(worst, ratio);
    };
    for (const auto& texts : groupsS) group(texts, false);
    for (const auto& texts : loopsS) group(texts, true);
    std::printf("the largest ratio is %.2f\n", worst);
    return isGood ? 0 : 1;
}
