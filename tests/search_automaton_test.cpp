#include "scr/builtin/search/SearchAutomaton.h"

#include "Test.h"

#include <regex.h>

#include "Pieces.h"
#include "RandomText.h"
#include "scr/builtin/search/RegExpr.h"

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
    for (const std::string& pattern : Harness::pieces(
             "~a*~a|b?~^a~a$~\\ba~a{2}~a+?~a**~[[:alpha:]]~[\\d]~[]a]~[^]a]~[a-c-e]~\\x41~\\n~\n~"
             "\xe4~a||b~()~(a~a)~[a~\\~*a~[b-a]~(a|b)*a(a|b)+c(a|b)*a.......x",
             '~')) {
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

// Bytes above 127, which "u" and "o" stand for, as this system writes them and as POSIX does.
const Harness::RandomText::Rules bytesS = {
    {"pattern",
     {"$item", "$item | $item$item | ($pattern)? | ($pattern|$pattern) | $item$pattern"}},
    {"whole", {"$pattern | $pattern|$pattern | $pattern|$pattern | ^($pattern)"}},
    {"item", {"a | a | U | U | O | O | [U] | P | P"}},
    {"byte", {"a | U | O | P"}},
};

std::string withBytes(const std::string& text, bool isEscaped) {
    const std::pair<char, std::pair<const char*, const char*>> names[] = {
        {'U', {"\xc3", "\\xc3"}}, {'O', {"\xbc", "\\x{bc}"}}, {'P', {"\xff", "\\377"}}};
    std::string result;
    for (const char byte : text) {
        std::string piece(1, byte);
        for (const auto& [name, bytes] : names) {
            if (byte == name) piece = isEscaped ? bytes.second : bytes.first;
        }
        result += piece;
    }
    return result;
}

// The library takes a common beginning out of alternatives, and then looks for it in UTF-8.
TEST(RegExpr, KnowsBytesAbove127) {
    Harness::RandomText writer(bytesS, 3);
    for (int i = 0; i < 3000; ++i) {
        const std::string pattern = writer.made("whole", 5);
        const RegExpr library(withBytes(pattern, writer.below(2) == 0));
        ASSERT_TRUE(library.isValid()) << pattern;
        regex_t posix;
        ASSERT_EQ(regcomp(&posix, withBytes(pattern, false).c_str(), REG_EXTENDED), 0) << pattern;
        std::string text;
        while (text.size() < 6) text += withBytes(writer.made("byte", 0), false);
        regmatch_t match;
        const bool isFound = regexec(&posix, text.c_str(), 1, &match, 0) == 0;
        regfree(&posix);
        const auto found = library.search(text, 0);
        ASSERT_EQ(found.has_value(), isFound) << pattern << " in " << text;
        if (!found) continue;
        ASSERT_EQ(found->data() - text.data(), match.rm_so) << pattern << " in " << text;
        ASSERT_EQ(found->size(), match.rm_eo - match.rm_so) << pattern << " in " << text;
        ASSERT_EQ(library.find(text, 0), match.rm_so) << pattern << " in " << text;
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
