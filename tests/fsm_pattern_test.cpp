// The pattern scanner and parser and the parts of automata that they build.

#include "Test.h"
#include "fsm/EnginePart.h"
#include "fsm/pattern/PatternParser.h"
#include "fsm/pattern/PatternScanner.h"

namespace {

using FSM::EnginePart;
using FSM::NonDetState;

std::string nested(int before, const char* middle, int behind) {
    return std::string(before, '(').append(middle).append(behind, ')');
}

std::string setOf(int count) { return std::string(1, '[').append(count, 'a').append(1, ']'); }

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
    // A pattern, and the place near which it is wrong.
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

}  // namespace
