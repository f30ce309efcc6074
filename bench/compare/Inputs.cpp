#include "Inputs.h"

#include <fstream>
#include <random>
#include <vector>

namespace {

class Dice {
public:
    unsigned long below(unsigned long limit) { return engine_() % limit; }
    std::string text(const char* bytes, std::size_t length) {
        const std::string all(bytes);
        std::string result;
        while (result.size() < length) result += all[below(all.size())];
        return result;
    }

private:
    std::mt19937_64 engine_{20240131};
};

constexpr const char* digitsS = "0123456789";
constexpr const char* lettersS = "abcdefghijklmnopqrstuvwxyz";
constexpr const char* capitalsS = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";

bool save(const std::string& name, const std::string& text) {
    std::ofstream file(name, std::ios::binary);
    file << text;
    return static_cast<bool>(file.flush());
}

std::string callRecords(Dice& dice, long records) {
    std::string text;
    for (long i = 0; i < records; ++i) {
        std::string rate = std::to_string(dice.below(4)) + "." + dice.text(digitsS, 4);
        text += "49" + dice.text(digitsS, 10) + ",00" + dice.text(digitsS, 9) + "," +
                std::to_string(dice.below(3600)) + "," + rate + ",\n";
    }
    return text;
}

// Lines of a log, numbers, and ranges of addresses of which none overlaps another, for what modules
// do.
bool writeLines(const std::string& directory, Dice& dice) {
    constexpr long count = 1'000'000;
    const auto padded = [&](unsigned long number) {
        return (number < 10 ? "0" : "") + std::to_string(number);
    };
    const auto address = [](unsigned long number) {
        return std::to_string(number >> 24) + "." + std::to_string(number >> 16 & 255) + "." +
               std::to_string(number >> 8 & 255) + "." + std::to_string(number & 255);
    };
    std::string lines;
    std::string numbers;
    std::string addresses;
    for (long i = 0; i < count; ++i) {
        constexpr const char* const countries[] = {"49", "44", "1", "33"};
        const std::string seconds = std::to_string(dice.below(1000)) + "." + dice.text(digitsS, 2);
        lines += "2024-" + padded(dice.below(12) + 1) + "-" + padded(dice.below(28) + 1) + " " +
                 padded(dice.below(24)) + ":" + padded(dice.below(60)) + ":" +
                 padded(dice.below(60)) + " node" + std::to_string(dice.below(99) + 1) + " call +" +
                 countries[dice.below(4)] + "-" +
                 std::to_string(1'000'000 + dice.below(900'000'000)) + " took " + seconds + " s\n";
        numbers += std::to_string(dice.below(1'000'000)) + "." + dice.text(digitsS, 2) + "\n";
        addresses += address(dice.below(1UL << 32)) + "\n";
    }
    std::string ranges;
    for (unsigned long i = 0; i < 100'000; ++i) {
        const unsigned long bits = 18 + dice.below(3);
        const unsigned long size = 1UL << (32 - bits);
        constexpr unsigned long distance = 42'000;
        ranges += address((i * distance + size - 1) / size * size) + "/" + std::to_string(bits) +
                  "," + std::to_string(i) + "\n";
    }
    return save(directory + "/lines.txt", lines) && save(directory + "/numbers.txt", numbers) &&
           save(directory + "/addresses.txt", addresses) && save(directory + "/ranges.csv", ranges);
}

// Codes of goods, a pattern for each of 50 kinds; most texts begin with a code of a known kind, and
// have a reference in capitals somewhere after it.
bool writeTexts(const std::string& directory, Dice& dice) {
    std::string patterns;
    std::string cases;
    std::vector<std::string> heads;
    for (int kind = 1; kind <= 50; ++kind) {
        constexpr const char* const tails[] = {"[0-9]*", "[0-9]+-[a-z]+", "[0-9]{3,6}(-.*)?",
                                               "[a-f0-9]+"};
        heads.push_back(dice.text(lettersS, 2 + dice.below(3)));
        const std::string pattern = heads.back() + tails[kind % 4];
        patterns += pattern + "\n";
        cases += "            case \"" + pattern + "\": sum = sum + " + std::to_string(kind) +
                 "; break;\n";
    }
    std::string texts;
    for (int i = 0; i < 10000; ++i) {
        const bool isKnown = dice.below(5) > 0;
        texts += isKnown ? heads[dice.below(heads.size())] : dice.text(lettersS, 3);
        texts += dice.text(digitsS, 3 + dice.below(4));
        if (dice.below(2) == 0) texts += "-" + dice.text(lettersS, 4);
        for (unsigned long words = 3 + dice.below(10); words > 0; --words) {
            texts += " " + dice.text(lettersS, 1 + dice.below(8));
        }
        if (dice.below(4) > 0) {
            texts +=
                " " + dice.text(capitalsS, 2) + dice.text(digitsS, 4) + "-" + dice.text(digitsS, 3);
        }
        texts += " " + dice.text(lettersS, 6) + "\n";
    }
    const std::string script =
        "File input;\nString line;\nString codes[];\nLong n = 0;\n"
        "fileOpen(input, \"texts.txt\", \"r\");\n"
        "while (fileReadLine(input, line, 1000)) {\n"
        "    codes[n] = strSubstr(line, 0, strSearch(line, \" \"));\n"
        "    n = n + 1;\n}\n"
        "Long sum = 0;\nLong pass = 0;\nLong i;\n"
        "while (pass < 300) {\n"
        "    for (i = 0; i < n; i = i + 1) {\n"
        "        regExprSwitch (codes[i]) {\n" +
        cases +
        "            default: sum = sum + 1000; break;\n"
        "        }\n    }\n    pass = pass + 1;\n}\n"
        "logStdout(longToStr(sum) + \"\\n\");\n";
    return save(directory + "/texts.txt", texts) && save(directory + "/patterns.txt", patterns) &&
           save(directory + "/regexpr_switch.ks", script);
}

// The syntax of one language for a generated script.
struct Dialect {
    const char* file;
    const char* head;
    const char* opening;  // of a function; its number comes between this and the next
    const char* parameters;
    const char* local;  // what declares a variable
    const char* branch;
    const char* otherwise;
    const char* closing;  // of a branch
    const char* end;      // of a statement
    const char* functionEnd;
    const char* tail;
};

constexpr Dialect dialectsS[] = {
    {"/generated.ks", "", "function Long rule", "(Long a, Long b) {", "Long ", "if (c > ",
     "} else {", "}", ";", "}", ""},
    {"/generated.lua", "local rules = {}", "function rules.rule", "(a, b)", "local ", "if (c > ",
     "else", "end", "", "end", ""},
    {"/generated.as", "", "int64 rule", "(int64 a, int64 b) {", "int64 ", "if (c > ", "} else {",
     "}", ";", "}", "void main() {}"},
};

// Functions of ten lines each.
std::string generatedScript(const Dialect& dialect, long lines) {
    const bool isLua = dialect.end[0] == '\0';
    std::string text(dialect.head);
    text += "\n";
    for (long i = 0; i < lines / 10; ++i) {
        const std::string number = std::to_string(i);
        const std::string end = std::string(dialect.end) + "\n";
        text += dialect.opening + number + dialect.parameters + "\n";
        text += std::string("    ") + dialect.local + "c = a * " + number + " + b" + end;
        text += std::string("    ") + dialect.local + "total = c - a % 7" + end;
        text += std::string("    ") + dialect.branch + number + (isLua ? ") then\n" : ") {\n");
        text += "        total = total + (c - b) * 3" + end;
        text += std::string("    ") + dialect.otherwise + "\n";
        text += "        total = total - c" + end;
        text += std::string("    ") + dialect.closing + "\n";
        text += "    return total + c" + end;
        text += std::string(dialect.functionEnd) + "\n";
    }
    return text + dialect.tail + "\n";
}

}  // namespace

bool writeInputs(const std::string& directory, long records, long lines) {
    Dice dice;
    if (!save(directory + "/calls.csv", callRecords(dice, records))) return false;
    if (!writeTexts(directory, dice)) return false;
    for (const Dialect& dialect : dialectsS) {
        if (!save(directory + dialect.file, generatedScript(dialect, lines))) return false;
    }
    return writeLines(directory, dice);
}
