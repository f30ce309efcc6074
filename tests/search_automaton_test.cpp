#include "scr/builtin/SearchAutomaton.h"

#include "Test.h"

#include "RandomText.h"
#include "scr/builtin/RegExpr.h"

namespace {

using SCR::RegExpr;
using SCR::SearchAutomaton;

// The same expression with an alternative that never matches and that the automaton does not
// accept.
std::string forLibrary(const std::string& pattern) { return "(" + pattern + ")|$x"; }

void expectSame(const std::string& pattern, const RegExpr& plain, const RegExpr& library,
                const std::string& text, std::size_t start) {
    const auto found = plain.search(text, start);
    const auto expected = library.search(text, start);
    ASSERT_EQ(found.has_value(), expected.has_value()) << pattern << " in " << text;
    const auto place = plain.find(text, start);
    ASSERT_EQ(place.has_value(), expected.has_value()) << pattern << " in " << text;
    if (!expected) return;
    ASSERT_EQ(found->data() - text.data(), expected->data() - text.data())
        << pattern << " in " << text;
    ASSERT_EQ(*found, *expected) << pattern << " in " << text;
    ASSERT_EQ(*place, static_cast<std::size_t>(expected->data() - text.data())) << pattern;
}

TEST(SearchAutomaton, TakesPlainExpressionsOnly) {
    for (const char* pattern : {"a", "ab|c", "(a|b)+c", "[A-Z][A-Z][0-9]+-[0-9]+", "[^-a]x", "[a-]",
                                "a.*b", "\\d+\\.\\d", "x\\-y", "a?b*c", " ", "((((a))))"}) {
        EXPECT_NE(SearchAutomaton::make(pattern), nullptr) << pattern;
        EXPECT_EQ(SearchAutomaton::make(forLibrary(pattern)), nullptr) << pattern;
    }
    for (const char* pattern : {"",
                                "a*",
                                "a|b?",
                                "^a",
                                "a$",
                                "\\ba",
                                "a{2}",
                                "a+?",
                                "a**",
                                "[[:alpha:]]",
                                "[\\d]",
                                "[]a]",
                                "[^]a]",
                                "[a-c-e]",
                                "\\x41",
                                "\\n",
                                "\n",
                                "\xe4",
                                "a||b",
                                "()",
                                "(a",
                                "a)",
                                "[a",
                                "\\",
                                "*a",
                                "[b-a]",
                                "(a|b)*a(a|b)+c(a|b)*a.......x"}) {
        EXPECT_EQ(SearchAutomaton::make(pattern), nullptr) << pattern;
    }
    EXPECT_EQ(SearchAutomaton::make(std::string(100000, '(')), nullptr);
    EXPECT_EQ(SearchAutomaton::make(std::string(100000, 'a')), nullptr);
}

TEST(SearchAutomaton, KnowsTheSetsOfBytesOfTheLibrary) {
    for (const char* set :
         {".", "\\d", "\\D", "\\w", "\\W", "\\s", "\\S", "[a-f]", "[^a-f]", "[!-]", "[-!]", "[^-]",
          "[+--]", "[$^*|().?]", "[{-~]", "\\$", "\\]", "\\^"}) {
        ASSERT_NE(SearchAutomaton::make(set), nullptr) << set;
        const RegExpr plain(set);
        const RegExpr library(forLibrary(set));
        for (int byte = 0; byte < 256; ++byte) {
            expectSame(set, plain, library, std::string(1, static_cast<char>(byte)), 0);
        }
    }
}

using namespace std::string_view_literals;
const Harness::RandomText::Rules rulesS = {
    {"pattern", {"$sequence", "$sequence | $sequence | $sequence|$sequence"}},
    {"sequence", {"$item", "$item | $item$item | $item$item$item | $item$item$item$item"}},
    {"item", {"$set$sign", "$set$sign | $set$sign | $set$sign | ($pattern)$sign"}},
    {"sign", {"* | + | ? |  |  | "}},
    {"set", {"$plain | $plain | $plain | $plain | $plain | $plain | $plain | $plain | $odd", ""}},
    {"plain", {"a | b | c | [ab] | [^a] | . | \\d | [b-] | \\w | b | [1-9] | \\S | \\W"}},
    {"odd", {"$plain | $plain | $plain | ^ | $ | \\b"}},
    // Common bytes, and sometimes a line end, NUL or a piece of a broken UTF-8 sequence.
    {"text", {"a | a | a | b | b | c | - | 1 |   | a | a | b | \n | \0 | \xc3 | \xff"sv}},
};

TEST(SearchAutomaton, FindsWhatTheLibraryFinds) {
    Harness::RandomText writer(rulesS, 7);
    int taken = 0;
    for (int i = 0; i < 2500; ++i) {
        const std::string pattern = writer.made("pattern", 6);
        if (SearchAutomaton::make(pattern) == nullptr) continue;
        ASSERT_EQ(pattern.find('$'), std::string::npos) << pattern;
        ++taken;
        const RegExpr plain(pattern);
        const RegExpr library(forLibrary(pattern));
        for (int j = 0; j < 20; ++j) {
            std::string text;
            for (std::size_t size = writer.below(30); size > 0; --size)
                text += writer.made("text", 0);
            expectSame(pattern, plain, library, text, writer.below(text.size() + 1));
        }
    }
    EXPECT_GT(taken, 700);
}

// An expression and the ends of its matches that begin at a place of a text.
struct Expression {
    std::string pattern;
    std::function<std::set<std::size_t>(std::string_view, std::size_t)> ends;
};

Expression either(const Expression& first, const Expression& second) {
    return {first.pattern + "|" + second.pattern, [=](std::string_view in, std::size_t at) {
                auto ends = first.ends(in, at);
                ends.merge(second.ends(in, at));
                return ends;
            }};
}

struct Dice {
    std::size_t below(std::size_t limit) { return engine() % limit; }
    std::mt19937 engine{3};
};

Expression randomExpression(Dice& dice, int depth) {
    const std::size_t kind = dice.below(depth > 0 ? 6 : 2);
    if (kind < 2) {
        const auto byte = static_cast<unsigned char>("a\xc3\xbc\xb6\xff"[dice.below(5)]);
        constexpr const char* forms[] = {"%c", "%c", "[%c]", "\\x%02x", "\\x{%x}", "\\%03o"};
        char text[8];
        std::snprintf(text, sizeof text, forms[dice.below(6)], byte);
        return {text, [byte](std::string_view in, std::size_t at) {
                    return at < in.size() && static_cast<unsigned char>(in[at]) == byte
                               ? std::set{at + 1}
                               : std::set<std::size_t>();
                }};
    }
    const Expression first = randomExpression(dice, depth - 1);
    if (kind == 2) {
        return {"(" + first.pattern + ")?", [first](std::string_view in, std::size_t at) {
                    auto ends = first.ends(in, at);
                    ends.insert(at);
                    return ends;
                }};
    }
    const Expression second = randomExpression(dice, depth - 1);
    if (kind == 3) {
        return {first.pattern + second.pattern, [=](std::string_view in, std::size_t at) {
                    std::set<std::size_t> ends;
                    for (const std::size_t end : first.ends(in, at))
                        ends.merge(second.ends(in, end));
                    return ends;
                }};
    }
    Expression both = either(first, second);
    both.pattern = "(" + both.pattern + ")";
    return both;
}

// The library factors out a common beginning of alternatives, and then looks for it in UTF-8.
TEST(RegExpr, KnowsBytesAbove127) {
    Dice dice;
    for (int i = 0; i < 3000; ++i) {
        Expression expression = randomExpression(dice, 4);
        // Without the parentheses around the whole, where a fault is most likely.
        if (dice.below(2) == 0) expression = either(expression, randomExpression(dice, 3));
        const bool isAtStart = dice.below(4) == 0;
        const RegExpr library(isAtStart ? "^(" + expression.pattern + ")" : expression.pattern);
        ASSERT_TRUE(library.isValid()) << expression.pattern;
        std::string text;
        while (text.size() < 6) text += "a\xc3\xbc\xb6\xff"[dice.below(5)];
        std::size_t at = 0;
        std::set<std::size_t> ends;
        while ((ends = expression.ends(text, at)).empty() && !isAtStart && at < text.size()) ++at;
        const auto found = library.search(text, 0);
        ASSERT_EQ(found.has_value(), !ends.empty()) << expression.pattern << " in " << text;
        if (!found) continue;
        ASSERT_EQ(found->data() - text.data(), at) << expression.pattern << " in " << text;
        ASSERT_EQ(at + found->size(), *ends.rbegin()) << expression.pattern << " in " << text;
        ASSERT_EQ(library.find(text, 0), at) << expression.pattern << " in " << text;
    }
}

// From each byte on the automaton would read to the end of the text.
TEST(SearchAutomaton, TakesLinearTime) {
    const std::string text(400000, 'a');
    for (const char* pattern : {"a+b", "a.*b", "(aa)+b"}) {
        const auto automaton = SearchAutomaton::make(pattern);
        ASSERT_NE(automaton, nullptr);
        EXPECT_EQ(automaton->search(text, 0, true).outcome, SearchAutomaton::Outcome::Stuck);
        expectSame(pattern, RegExpr(pattern), RegExpr(forLibrary(pattern)), text, 0);
        expectSame(pattern, RegExpr(pattern), RegExpr(forLibrary(pattern)), text + "ab", 3);
    }
}

}  // namespace
