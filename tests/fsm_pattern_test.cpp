// The pattern scanner and parser and the parts of automata that they build.
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>

#include "fsm/EnginePart.h"
#include "fsm/FlexLexer.h"
#include "fsm/PatternParser.h"

namespace {

using FSM::EnginePart;
using FSM::NonDetState;

std::string nested(int before, const char* middle, int behind) {
    return std::string(before, '(').append(middle).append(behind, ')');
}

std::string setOf(int count) { return std::string(1, '[').append(count, 'a').append(1, ']'); }

TEST(FsmScanner, Tokens) {
    struct Case {
        std::string pattern;
        std::string tokens;  // code, and the value of bytes and numbers
    };
    const Case cases[] = {
        {"", ""},
        {"[^a-b]x", "258 266:97 267 266:98 259 266:120"},
        {"[+*?,}^!]", "257 266:43 266:42 266:63 266:44 266:125 266:94 266:33 259"},
        {"[(|.[", "257 260 265 268 257"},
        {"()?+*|.", "260 261 262 263 264 265 268"},
        {"]},-^1", "266:93 266:125 266:44 266:45 266:94 266:49"},
        {"a{12,3}", "266:97 269 272:12 271 272:3 270"},
        {"{2147483647}{2147483648}", "269 272:2147483647 270 269 274:2147483647 270"},
        {"{ x", "269 266:32 266:120"},
        {"!a!", "273 266:97 266:33"},
        {"a\n!!", "266:97 266:10 273 266:33"},
        {"[\n!", "257 266:10 273"},
        {"\\065\\255\\256", "266:65 266:255 274:256"},
        {"\\n\\t\\.\\\\\\0\\12", "266:10 266:9 266:46 266:92 266:48 266:49 266:50"},
        {"\\12a", "266:49 266:50 266:97"},
        {"\\\n\\", "266:92 266:10 266:92"},
        {"\x80\xff", "266:-128 266:-1"},
        {std::string("a\0b", 3), "266:97"},
    };
    for (const Case& c : cases) {
        std::istringstream in(c.pattern);
        FSM_FlexLexer scanner(&in);
        std::string tokens;
        int value = 0;
        while (int token = scanner.yylex(value)) {
            if (!tokens.empty()) tokens += ' ';
            tokens += std::to_string(token);
            if (token == 266 || token == 272 || token == 274) tokens += ':' + std::to_string(value);
        }
        EXPECT_EQ(tokens, c.tokens) << c.pattern;
        EXPECT_EQ(scanner.lastValue(), 0) << "at the end of " << c.pattern;
    }
}

TEST(FsmParser, Errors) {
    const auto errorOf = [](const std::string& pattern, int& result) {
        FSM_FlexLexer scanner(pattern);
        result = FSM_parse(scanner);
        EXPECT_EQ(EnginePart::stackCM.size(), result == 0 ? 1u : 0u);
        EXPECT_EQ(EnginePart::enginePart() != nullptr, result == 0);
        EXPECT_EQ(EnginePart::enginePart(), nullptr);
        return EnginePart::errorTextCM;
    };
    int result = 0;
    // A pattern, and what it is wrong near.
    for (const std::string row :
         {") )", "a** *", "a{2}? ?", "a{2}{3} {", "|* *", "[] ]", "[]a] ]", "[^] ]", "[-a] -",
          "[a-] ]", "[a.] .", "[a[^b]] [", "a{x} x", "a{,2} ,", "a{2,} }", "a\n!b !",
          "\\256 ASCII char \\256", "a{\xe9} ASCII char \\-23",
          "a{99999999999} ASCII char \\2147483647"}) {
        const std::size_t blank = row.find(' ');
        EXPECT_EQ(errorOf(row.substr(0, blank), result), "parse error near" + row.substr(blank));
        EXPECT_EQ(result, 1) << row;
    }
    for (const char* pattern : {"(ab", "[a", "a{2", "a{\\000}"}) {
        EXPECT_EQ(errorOf(pattern, result), "unexpected end of pattern");
        EXPECT_EQ(result, 1) << pattern;
    }
    for (const char* pattern : {"(a{1000}){1000}", "a{2147483647}"}) {
        EXPECT_EQ(errorOf(pattern, result), "repetition needs more than 262144 states");
        EXPECT_EQ(result, 1) << pattern;
    }
    const std::pair<std::string, const char*> deep[] = {
        {"!!", nullptr},
        {nested(9996, "a", 9996), nullptr},
        {nested(9997, "a", 9997), ")"},
        {nested(9999, "", 0), "("},
        {setOf(9995), nullptr},
        {setOf(9996), "]"},
    };
    for (const auto& [pattern, near] : deep) {
        EXPECT_EQ(errorOf(pattern, result),
                  near == nullptr ? "" : std::string("parser stack overflow near ") + near);
        EXPECT_EQ(result, near == nullptr ? 0 : 2) << pattern.substr(0, 40);
    }
}

// Every operation must leave a start that nothing enters and an end that nothing leaves.
TEST(FsmEnginePart, EndsStayClosed) {
    const char* const patterns[] = {"",          "a*",    "(a+)+b",     "(a|)*",    "a{0,3}(b*|c)?",
                                    "(a?){2,3}", "(){3}", "((a*){0})*", "[^a]{0,1}"};
    for (const char* pattern : patterns) {
        FSM_FlexLexer scanner{std::string(pattern)};
        ASSERT_EQ(FSM_parse(scanner), 0) << pattern;
        std::unique_ptr<EnginePart> part = EnginePart::enginePart();
        std::set<const FSM::State*> own{part->start(), part->end()};
        own.insert(part->interior().members().begin(), part->interior().members().end());
        EXPECT_EQ(own.size(), part->stateCount()) << pattern;
        EXPECT_TRUE(part->end()->transitions().empty() && !part->end()->wildCardState() &&
                    part->end()->epsilonSuccStates().empty())
            << pattern;
        for (const FSM::State* state : own) {
            std::set<const FSM::State*> targets(state->epsilonSuccStates().begin(),
                                                state->epsilonSuccStates().end());
            for (int c = 0; c < 256; ++c) {
                targets.insert(state->succState(static_cast<unsigned char>(c)));
            }
            EXPECT_EQ(targets.count(part->start()), 0u) << pattern;
            targets.erase(nullptr);
            for (const FSM::State* target : targets) EXPECT_EQ(own.count(target), 1u) << pattern;
        }
    }
}

TEST(FsmState, Transitions) {
    NonDetState a;
    NonDetState b;
    NonDetState c;
    EXPECT_LT(a.id(), b.id());
    EXPECT_EQ(NonDetState(7).id(), 7);
    a.wildCardState(&c);
    a.succStates('f', 'k', &b);
    a.succState('h', nullptr);
    a.succState('i', &c);
    a.succState('i', nullptr);
    a.succState('i', &a);
    a.succStates('a', 'f', &c);
    a.succState('\n', &b);
    a.succState('\n', nullptr);
    struct Case {
        unsigned char byte;
        const FSM::State* target;
    };
    const Case cases[] = {{'a', &c}, {'f', &c}, {'g', &b}, {'h', &c},       {'i', &a},
                          {'j', &b}, {'k', &b}, {'l', &c}, {'\n', nullptr}, {255, &c}};
    for (const Case& test : cases) EXPECT_EQ(a.succState(test.byte), test.target) << test.byte;

    std::ostringstream out;
    b.epsilonSuccState(&a);
    b.succStates(0, ' ', &c);
    b.print({{&a, 1}, {&b, 2}}, out, 1);
    EXPECT_EQ(out.str(), " state 2\n   \\000-\\032 -> ?\n   epsilon -> 1\n");
}

}  // namespace
