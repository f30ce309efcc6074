// The analysis of pattern lists.

#include "Test.h"
#include "fsm/Analysis.h"
#include "fsm/Engine.h"
#include "fsm/EngineGroup.h"
#include "fsm_reference.h"

namespace {

using FSM::Analysis;
using FSM::Engine;

// "empty 1; 2 behind 0 1: text; 0 with 2: text", newlines as ~.
std::string shown(const Analysis& analysis) {
    std::string result;
    const auto number = [](std::int32_t path) { return std::to_string(path); };
    for (const std::int32_t path : analysis.empty) result += "; empty " + number(path);
    for (const std::int32_t path : analysis.leaving) result += "; leaving " + number(path);
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
         "leaving 1; leaving 3; 2 behind 1: 00; 3 behind 1: ; 1 with 2: 00; 1 with 3: ; "
         "2 with 3: 22"},
        {{"a[c-a]", "\\000", "!(.|\n)*", "b"}, 9, "empty 0; empty 1; empty 2"},
        {{".", "!.", "[^a]"}, 9, "2 behind 0 1: b; 0 with 2: b; 1 with 2: ~"},
        {{"a*", "a+", "aa+"},
         2,
         "leaving 0; 1 behind 0: a; 2 behind 0: aa; 0 with 1: a; 0 with 2: aa; more"},
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

// A list examined pair by pair finds what an analysis of the whole does, but for joint covers.
TEST(FsmAnalysis, PairByPair) {
    reference::RandomPatterns random(4);
    const char* const shapes[] = {"ab", "a.*", "ab.*", ".*b.*", ".*a.*b.*", "a.*b", "b\n.*", ""};
    for (int round = 0; round < 300; ++round) {
        std::vector<FND::String> patterns;
        Engine engine;
        for (std::size_t n = random.below(6) + 1; n > 0; --n) {
            patterns.push_back(random.below(3) == 0 ? random.pattern() : shapes[random.below(8)]);
            if (patterns.back()[0] == '!') patterns.back().erase(0, 1);
            ASSERT_TRUE(engine.insertPattern(patterns.back()));
        }
        if (!engine.finalSetup()) continue;
        const Analysis whole = FSM::analyse(engine).value();
        const Analysis pairs = FSM::analyse(patterns).value();
        const std::string all = testing::PrintToString(patterns);
        ASSERT_EQ(pairs.empty, whole.empty) << all;
        ASSERT_EQ(pairs.leaving, whole.leaving) << all;
        ASSERT_EQ(pairs.notExamined, 0U) << all;
        ASSERT_EQ(pairs.overlaps.size(), whole.overlaps.size()) << all;
        for (std::size_t i = 0; i < whole.overlaps.size(); ++i) {
            ASSERT_EQ(pairs.overlaps[i].first, whole.overlaps[i].first) << all;
            ASSERT_EQ(pairs.overlaps[i].second, whole.overlaps[i].second) << all;
        }
        std::map<std::int32_t, std::vector<std::int32_t>> single;
        for (const Analysis::Shadowed& each : whole.shadowed) {
            if (each.by.size() == 1) single[each.path] = each.by;
        }
        for (const Analysis::Shadowed& each : pairs.shadowed) {
            ASSERT_EQ(single[each.path], each.by) << all;
            single.erase(each.path);
        }
        ASSERT_TRUE(single.empty()) << all;
        // Equal patterns are not compared again where no more overlaps are asked for.
        const Analysis few = FSM::analyse(patterns, 0).value();
        ASSERT_EQ(few.shadowed.size(), pairs.shadowed.size()) << all;
        for (std::size_t i = 0; i < few.shadowed.size(); ++i) {
            ASSERT_EQ(few.shadowed[i].path, pairs.shadowed[i].path) << all;
            ASSERT_EQ(few.shadowed[i].by, pairs.shadowed[i].by) << all;
        }
    }
    // Each pair with a negated pattern is counted once, also after there is no time left.
    std::vector<FND::String> negated{"ab", "a.*", ".*b.*"};
    for (int i = 0; i < 250; ++i) negated.push_back("!" + std::to_string(i));
    EXPECT_EQ(FSM::analyse(negated).value().notExamined, 250U * 249 / 2 + 3 * 250);
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
