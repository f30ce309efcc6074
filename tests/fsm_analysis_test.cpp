// The analysis of pattern lists.

#include "Test.h"
#include "fsm/Analysis.h"
#include "fsm/Engine.h"
#include "fsm/EngineGroup.h"

namespace {

using FSM::Analysis;
using FSM::Engine;

// "empty 1; 2 behind 0 1: text; 0 with 2: text", newlines as ~.
std::string shown(const Analysis& analysis) {
    std::string result;
    const auto number = [](std::int32_t path) { return std::to_string(path); };
    for (const std::int32_t path : analysis.empty) result += "; empty " + number(path);
    for (const Analysis::Shadowed& shadowed : analysis.shadowed) {
        result += "; " + number(shadowed.path) + " behind";
        for (const std::int32_t path : shadowed.by) result += " " + number(path);
        result += ": " + shadowed.text;
    }
    for (const Analysis::Overlap& overlap : analysis.overlaps) {
        result += "; " + number(overlap.first) + " with " + number(overlap.second) + ": ";
        result += overlap.text;
    }
    if (!analysis.hasAllOverlaps) result += "; more";
    std::replace(result.begin(), result.end(), '\n', '~');
    return result.substr(std::min<std::size_t>(result.size(), 2));
}

TEST(FsmAnalysis, Findings) {
    struct Case {
        std::vector<std::string> patterns;
        std::size_t maxOverlaps;
        std::string findings;
    };
    const Case cases[] = {
        {{"a", "b"}, 9, ""},
        {{"a.*", "ab", "b"}, 9, "1 behind 0: ab; 0 with 1: ab"},
        {{"ab", "a.*"}, 9, "0 with 1: ab"},
        {{"[0-4]x", "[5-9]x", "[0-9]x"}, 9, "2 behind 0 1: 0x; 0 with 2: 0x; 1 with 2: 5x"},
        {{"x", "[0-9]*", "[0-9][0-9]", "\\050*"},
         9,
         "2 behind 1: 00; 3 behind 1: ; 1 with 2: 00; 1 with 3: ; 2 with 3: 22"},
        {{"a[c-a]", "\\000", "!(.|\n)*", "b"}, 9, "empty 0; empty 1; empty 2"},
        {{".", "!.", "[^a]"}, 9, "2 behind 0 1: b; 0 with 2: b; 1 with 2: ~"},
        {{"a*", "a+", "aa+"}, 2, "1 behind 0: a; 2 behind 0: aa; 0 with 1: a; 0 with 2: aa; more"},
    };
    for (const Case& c : cases) {
        Engine engine;
        FSM::EngineGroup group;
        EXPECT_FALSE(FSM::analyse(engine).has_value());
        for (const std::string& pattern : c.patterns) {
            EXPECT_TRUE(engine.insertPattern(pattern) && group.insertPattern(pattern)) << pattern;
        }
        EXPECT_FALSE(FSM::analyse(engine).has_value());
        ASSERT_TRUE(engine.finalSetup() && group.finalSetup());
        EXPECT_EQ(shown(FSM::analyse(engine, c.maxOverlaps).value()), c.findings);
        EXPECT_EQ(shown(FSM::analyse(group, c.maxOverlaps).value()), c.findings);
    }
    FSM::EngineGroup split;
    split.partLimit(2);
    EXPECT_TRUE(split.insertPattern("a") && split.insertPattern("b") && split.finalSetup());
    EXPECT_FALSE(FSM::analyse(split).has_value());
}

// The line numbers are those of the cases, which may share lines or have none.
TEST(FsmAnalysis, UnreachedCases) {
    Analysis analysis;
    analysis.empty = {3, 9};
    analysis.shadowed = {{1, {0}, "a"}, {2, {0, 1}, "b"}, {4, {0, 3}, ""}, {5, {2}, ""}};
    const std::int32_t lines[] = {7, 7, 8, 10, 12};
    const std::vector<FND::String> expected = {
        "the case in line 7 is never reached: line 7 matches all its texts",
        "the case in line 8 is never reached: line 7 matches all its texts",
        "the case in line 10 is never reached: its pattern matches no text",
        "the case in line 12 is never reached: lines 7, 10 together match all its texts",
    };
    EXPECT_EQ(FSM::unreachedCases(analysis, lines), expected);
    EXPECT_TRUE(FSM::unreachedCases(Analysis(), lines).empty());
}

}  // namespace
