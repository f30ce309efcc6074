// The engine against the textbook meaning of patterns. A part of all cases is run by default; the
// environment variable KESTREL_FSM_FULL makes it all of them, which takes some minutes.

#include "StdoutCapture.h"
#include "Test.h"
#include "fsm/Engine.h"
#include "fsm/EngineGroup.h"
#include "fsm_reference.h"

namespace {

bool isFull() { return std::getenv("KESTREL_FSM_FULL") != nullptr; }

// One set of patterns; the engine's results must equal those of the reference.
class Comparison {
public:
    explicit Comparison(const std::vector<std::string>& texts) : texts_(texts) {}

    /// False after the first difference, which is reported.
    bool compare(const std::vector<std::string>& patterns) {
        FSM::Engine engine;
        // Limits of 1, 4, 8 and 12 states: some lists stay whole, others end with one pattern per
        // part.
        FSM::EngineGroup group;
        group.partLimit(engines % 4 == 0 ? 1 : 4 * (engines % 4));
        std::vector<reference::Pattern> accepted;
        std::string all;
        for (const std::string& pattern : patterns) {
            all += testing::PrintToString(pattern) + ' ';
            std::optional<reference::Pattern> parsed = reference::Parser::parse(pattern);
            bool isInserted = engine.insertPattern(pattern);
            if (isInserted != parsed.has_value() || group.insertPattern(pattern) != isInserted) {
                ADD_FAILURE() << "pattern " << testing::PrintToString(pattern)
                              << (isInserted ? " is accepted" : " is refused");
                return false;
            }
            if (parsed) accepted.push_back(std::move(*parsed));
        }
        if (accepted.empty()) return true;
        ++engines;
        if (!engine.finalSetup()) {
            ++tooLarge;
            return true;
        }
        EXPECT_TRUE(group.finalSetup());
        parts += group.partCount();
        std::vector<std::int32_t> paths;
        for (const std::string& text : texts_) {
            ++matches;
            std::vector<std::int32_t> expected = reference::report(accepted, text);
            const FSM::State* state = engine.process(text.c_str());
            std::int32_t first = expected.empty() ? -1 : expected[0];
            group.process(text, paths);
            if (state->pathNumbers() != expected || engine.process(text) != state ||
                engine.firstPath(text) != first || paths != expected ||
                group.firstPath(text) != first) {
                ADD_FAILURE() << all << "and text " << testing::PrintToString(text) << ": engine "
                              << testing::PrintToString(state->pathNumbers()) << ", group "
                              << testing::PrintToString(paths) << ", expected "
                              << testing::PrintToString(expected);
                return false;
            }
        }
        return true;
    }

    std::size_t engines = 0;
    std::size_t tooLarge = 0;
    std::size_t parts = 0;
    std::size_t matches = 0;

private:
    const std::vector<std::string>& texts_;
};

TEST(FsmMeaning, AllSmallPatterns) {
    struct Alphabet {
        const char* what;
        std::vector<std::string> symbols;
        std::size_t length, fullLength;
    };
    const Alphabet alphabets[] = {
        {"operators", {"a", "b", ".", "|", "*", "+", "?", "(", ")"}, 4, 6},
        {"counts, sets and negation",
         {"a", "|", "*", "(", ")", "!", "[^a]", "[b-a]", "[ab]", "{0}", "{2}", "{0,1}", "{1,2}",
          "{2,1}"},
         3,
         5},
        {"bytes of sets and counts",
         {"a", "b", "[", "]", "^", "-", "{", "}", "0", "2", ",", "\\", "\n", "!"},
         4,
         6},
    };
    const Harness::StdoutCapture quiet;  // of the lines that a refused pattern prints
    const std::vector<std::string> texts = reference::textsOf("ab\n", 4);
    for (const Alphabet& alphabet : alphabets) {
        Comparison comparison(texts);
        std::size_t length = isFull() ? alphabet.fullLength : alphabet.length;
        std::vector<std::size_t> digits(length, 0);  // 0 is no symbol
        std::size_t patterns = 0;
        for (bool isDone = false; !isDone;) {
            std::string pattern;
            for (std::size_t digit : digits) {
                if (digit > 0) pattern += alphabet.symbols[digit - 1];
            }
            ++patterns;
            if (!comparison.compare({pattern})) return;
            // The next combination; after no symbol only no symbol may follow, so each comes once.
            std::size_t i = 0;
            while (i < length && ++digits[i] > alphabet.symbols.size()) digits[i++] = 1;
            isDone = i == length;
        }
        EXPECT_EQ(comparison.tooLarge, 0u);
        std::cerr << alphabet.what << ": " << patterns << " patterns, " << comparison.engines
                  << " accepted, " << comparison.matches << " matches compared\n";
    }
}

TEST(FsmMeaning, RandomPatterns) {
    const Harness::StdoutCapture quiet;  // of the lines that a refused pattern prints
    reference::RandomPatterns random(20260101);
    const std::vector<std::string> texts = reference::textsOf("abc\n", 4);
    Comparison comparison(texts);
    for (int i = isFull() ? 100000 : 2000; i > 0; --i) {
        std::vector<std::string> patterns;
        for (std::size_t n = random.below(4) + 1; n > 0; --n) patterns.push_back(random.pattern());
        if (!comparison.compare(patterns)) return;
    }
    EXPECT_LT(comparison.tooLarge * 100, comparison.engines);
    EXPECT_GT(comparison.parts, comparison.engines * 3 / 2);
    std::cerr << comparison.engines << " engines, " << comparison.parts << " parts of groups, "
              << comparison.tooLarge << " too large, " << comparison.matches
              << " matches compared\n";
}

}  // namespace
