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
using FSM::StateSet;

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
    struct Case {
        std::string pattern;
        int result;
        std::string error;
    };
    const Case cases[] = {
        {"(ab", 1, "unexpected end of pattern"},
        {"[a", 1, "unexpected end of pattern"},
        {"a{2", 1, "unexpected end of pattern"},
        {")", 1, "parse error near )"},
        {"a**", 1, "parse error near *"},
        {"a{2}?", 1, "parse error near ?"},
        {"a{2}{3}", 1, "parse error near {"},
        {"|*", 1, "parse error near *"},
        {"[]", 1, "parse error near ]"},
        {"[]a]", 1, "parse error near ]"},
        {"[^]", 1, "parse error near ]"},
        {"[-a]", 1, "parse error near -"},
        {"[a-]", 1, "parse error near ]"},
        {"[a.]", 1, "parse error near ."},
        {"[a[^b]]", 1, "parse error near ["},
        {"a{x}", 1, "parse error near x"},
        {"a{,2}", 1, "parse error near ,"},
        {"a{2,}", 1, "parse error near }"},
        {"a\n!b", 1, "parse error near !"},
        {"!!", 0, ""},
        {"a{99999999999}", 1, "parse error near ASCII char \\2147483647"},
        {"\\256", 1, "parse error near ASCII char \\256"},
        {"a{\xe9}", 1, "parse error near ASCII char \\-23"},
        {"a{\\000}", 1, "unexpected end of pattern"},
        {"(a{1000}){1000}", 1, "repetition needs more than 262144 states"},
        {"a{2147483647}", 1, "repetition needs more than 262144 states"},
        {nested(9996, "a", 9996), 0, ""},
        {nested(9997, "a", 9997), 2, "parser stack overflow near )"},
        {nested(9999, "", 0), 2, "parser stack overflow near ("},
        {setOf(9995), 0, ""},
        {setOf(9996), 2, "parser stack overflow near ]"},
    };
    for (const Case& c : cases) {
        FSM_FlexLexer scanner(c.pattern);
        EXPECT_EQ(FSM_parse(scanner), c.result) << c.pattern.substr(0, 40);
        EXPECT_EQ(EnginePart::errorTextCM, c.error) << c.pattern.substr(0, 40);
        EXPECT_EQ(EnginePart::stackCM.size(), c.result == 0 ? 1u : 0u);
        EXPECT_EQ(EnginePart::enginePart() != nullptr, c.result == 0);
        EXPECT_EQ(EnginePart::enginePart(), nullptr);
    }
}

// The bytes on which a part of a single step goes from its start to its end.
std::size_t bytesAccepted(const EnginePart& part) {
    std::size_t count = 0;
    for (int byte = 0; byte < 256; ++byte) {
        count += part.start()->succState(static_cast<unsigned char>(byte)) == part.end();
    }
    return count;
}

TEST(FsmEnginePart, Sets) {
    EnginePart set(false);
    EXPECT_EQ(set.start(), set.end());
    set.addCharacters('b', 'a');
    EXPECT_NE(set.start(), set.end());
    EXPECT_EQ(bytesAccepted(set), 0u);
    set.addCharacters('a', 'c');
    set.addCharacters('x');
    set.addCharacters('b');
    EXPECT_EQ(bytesAccepted(set), 4u);

    EnginePart negated(true);
    negated.addCharacters('a');
    EXPECT_EQ(bytesAccepted(negated), 255u);
    negated.addCharacters('a', 'c');
    negated.addCharacters('x');
    EXPECT_EQ(bytesAccepted(negated), 252u);
    EXPECT_EQ(bytesAccepted(EnginePart(negated)), 252u);
    EXPECT_EQ(bytesAccepted(EnginePart('a', 'c')), 3u);
    EXPECT_EQ(bytesAccepted(EnginePart('a', 0)), 1u);
    EXPECT_EQ(bytesAccepted(EnginePart(256)), 255u);
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

TEST(FsmState, ClosureOfCycle) {
    NonDetState states[40];
    for (int i = 0; i < 40; ++i) {
        states[i].epsilonSuccState(&states[(i + 1) % 40]);
        states[i].epsilonSuccState(&states[i * 7 % 40]);
    }
    StateSet closure(0);
    states[5].epsilonClosure(closure);
    EXPECT_EQ(closure.size(), 40u);
    EXPECT_FALSE(closure.insert(&states[0]));
}

TEST(FsmState, Sets) {
    NonDetState a;
    NonDetState b;
    StateSet empty(0);
    StateSet one(0);
    StateSet both(0);
    StateSet again(1);
    EXPECT_TRUE(one.insert(&a));
    EXPECT_FALSE(one.insert(&a));
    both.insert(&a);
    both.insert(&b);
    again.insert(&b);
    EXPECT_FALSE(both == again);
    again.insert(&a);
    EXPECT_TRUE(both == again);
    EXPECT_FALSE(one == both);
    EXPECT_TRUE(empty < one && !(one < empty) && !(empty < empty));
    EXPECT_TRUE(!(one < both) && !(both < one));
    EXPECT_TRUE(again.insert(&a));
    again.clear();
    EXPECT_TRUE(again.isEmpty());
    again.insert(new NonDetState);
    again.clearAndDestroy();
    EXPECT_TRUE(again.isEmpty());
}

}  // namespace
