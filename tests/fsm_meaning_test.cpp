// The engine against the textbook meaning of patterns. A part of all cases is run by default; the
// environment variable KESTREL_FSM_FULL makes it all of them, which takes some minutes.

#include "StdoutCapture.h"
#include "Test.h"
#include "fsm/Engine.h"
#include "fsm/EngineGroup.h"
#include "fsm/MultiEngine.h"
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

// An engine, groups with whole and with small parts, and a row of one word, which must agree.
class PatternSubject {
public:
    explicit PatternSubject(const FSM::PatternOptions& options) {
        engine_.options(options);
        group_.options(options);
        split_.options(options);
        row_.options(options);
        isTextbook_ = options.leavesByTextbook;
    }

    bool insert(const std::string& pattern) {
        const bool isTaken = engine_.addPattern(pattern);
        EXPECT_EQ(group_.insertPattern(pattern), isTaken);
        EXPECT_EQ(split_.insertPattern(pattern), isTaken);
        EXPECT_EQ(row_.insertPatterns({pattern}), isTaken);
        return isTaken;
    }
    bool finalSetup(int partLimit) {
        split_.partLimit(static_cast<std::size_t>(partLimit % 12 + 1));
        return engine_.finalSetup() && group_.finalSetup() && split_.finalSetup() &&
               row_.finalSetup();
    }
    bool matches(std::string_view text) const {
        EXPECT_TRUE(agrees(text));
        return row_.firstPath(std::span(&text, 1)) >= 0;
    }
    bool agrees(std::string_view text) const {
        std::vector<std::int32_t> paths;
        row_.process(std::span(&text, 1), paths);
        return gives(text, engine_.process(text)->pathNumbers(), paths);
    }
    bool gives(std::string_view text, const std::vector<std::int32_t>& expected,
               const std::vector<std::int32_t>& ofRow) const {
        const std::int32_t first = expected.empty() ? -1 : expected[0];
        std::vector<std::int32_t> whole, split, row;
        group_.process(text, whole);
        split_.process(text, split);
        row_.process(std::span(&text, 1), row);
        return engine_.process(text)->pathNumbers() == expected &&
               engine_.firstPath(text) == first && whole == expected && split == expected &&
               group_.firstPath(text) == first && split_.firstPath(text) == first && row == ofRow &&
               (!isTextbook_ || row == expected);
    }

private:
    FSM::Engine engine_;
    FSM::EngineGroup group_, split_;
    FSM::MultiEngine row_;
    bool isTextbook_;
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

// The letters a, b and c in other forms: the first is how they stand in patterns, and a text has
// any.
struct Forms {
    FSM::PatternOptions options;
    std::vector<std::string> letters[3];
};

std::string inForms(const Forms& forms, std::string pattern, reference::RandomPatterns* random) {
    for (const auto& [from, to] : {std::pair("\\098", "b"), std::pair("a-c", "abc")}) {
        for (std::size_t at = 0; (at = pattern.find(from, at)) != std::string::npos;)
            pattern.replace(at, std::strlen(from), to);
    }
    std::string result;
    for (const char c : pattern) {
        if (c < 'a' || c > 'c') {
            result += c;
        } else {
            const std::vector<std::string>& each = forms.letters[c - 'a'];
            result += each[random == nullptr ? 0 : random->below(each.size())];
        }
    }
    return result;
}

// Texts in other forms mean what they mean in plain ones without the options.
TEST(FsmMeaning, Options) {
    const std::string nul(1, '\0');
    const Forms all[] = {
        {{.ignoresCase = true}, {{"a", "A"}, {"b", "B"}, {"z", "Z"}}},
        {{.isUtf8 = true}, {{"\u00e9"}, {"\u0436"}, {"\U0001d11e"}}},
        {{.ignoresCase = true, .isUtf8 = true},
         {{"k", "K", "\u212a"}, {"\u00c5", "\u00e5", "\u212b"}, {"\u03c2", "\u03c3", "\u03a3"}}},
        {{.leavesByTextbook = true}, {{"a"}, {"b"}, {"c"}}},
        {{.takesNul = true}, {{nul}, {"b"}, {"c"}}},
        {{true, true, true, true}, {{nul}, {"\u1e9e", "\u00df"}, {"\u0131"}}}};
    reference::RandomPatterns random(14);
    const std::vector<std::string> texts = reference::textsOf("abc\n", 4);
    for (int round = 0; round < 600; ++round) {
        const Forms& forms = all[round % std::size(all)];
        PatternSubject subject(forms.options);
        std::vector<reference::Pattern> plain;
        std::string list;
        for (std::size_t n = random.below(4) + 1; n > 0; --n) {
            const char* const words[] = {"ab", "bca", "c", ".*ab", "b.*", ".*a.*bc.*", ".*c.*"};
            std::string pattern = n % 2 == 0 ? random.pattern() : words[random.below(7)];
            std::string other = inForms(forms, pattern, nullptr);
            EXPECT_EQ(subject.insert(other), reference::Parser::parse(pattern).has_value());
            list += testing::PrintToString(pattern) + ' ';
            plain.push_back(std::move(*reference::Parser::parse(pattern)));
        }
        if (plain.empty() || !subject.finalSetup(round)) continue;
        for (const std::string& text : texts) {
            std::vector<std::int32_t> textbook;
            for (std::size_t i = 0; i < plain.size(); ++i) {
                const bool matches = reference::Matcher::match(*plain[i].root, text).matches;
                if (matches != plain[i].isNegated) textbook.push_back(static_cast<int>(i));
            }
            const std::string other = inForms(forms, text, &random);
            ASSERT_TRUE(subject.gives(
                other, forms.options.leavesByTextbook ? textbook : reference::report(plain, text),
                textbook))
                << list << "and " << testing::PrintToString(text) << " in round " << round;
            // A text that is cut within a character or damaged: all engines agree.
            if (other.empty()) continue;
            std::string damaged = other.substr(random.below(other.size()));
            damaged.resize(random.below(damaged.size()) + 1);
            ASSERT_TRUE(subject.agrees(damaged))
                << list << "and " << testing::PrintToString(damaged) << " in round " << round;
        }
    }
}

// The bytes and characters that options do or do not tell apart.
TEST(FsmMeaning, OptionsOfSets) {
    const FSM::PatternOptions folds{.ignoresCase = true};
    const FSM::PatternOptions characters{.isUtf8 = true};
    const FSM::PatternOptions both{.ignoresCase = true, .isUtf8 = true};
    struct Case {
        FSM::PatternOptions options;
        std::string pattern, text;
        bool matches;
    };
    const Case cases[] = {
        {folds, "[w-y]{2}[^Q]", "Xyr", true},
        {folds, "[^Q]", "q", false},
        {folds, "\u00e9", "\u00c9", false},
        {characters, "[\u00e0-\u00ff]..", "\u00e9\u20ac\U0010ffff", true},
        {characters, ".", "\xed\xa0\x80", false},  // half of a surrogate pair
        {characters, ".", "\xc0\x80", false},      // a NUL that is too long
        {characters, ".*", "a\xe9", false},
        {characters, "[^\u00e9]", "\u00e8", true},
        {characters, "\\233", "\u00e9", true},
        {characters, "\u00e9?", "", true},
        {both, "[\u00e0-\u00e9]", "\u00c9", true},
        {both, "i", "\u0131", false},  // no capital of i
        {both, "stra\u1e9ee", "STRA\u00dfE", true},
    };
    for (const Case& c : cases) {
        PatternSubject subject(c.options);
        ASSERT_TRUE(subject.insert(c.pattern) && subject.finalSetup(1)) << c.pattern;
        EXPECT_EQ(subject.matches(c.text), c.matches) << c.pattern << " " << c.text;
    }
    FSM::EngineGroup group;
    group.options(characters);
    EXPECT_FALSE(group.insertPattern("a[\xc3]"));
    EXPECT_EQ(group.error(), "pattern 0: not UTF-8");
}

}  // namespace
