// Conditions and queries, which a host evaluates besides scripts.

#include "Script.h"
#include "scr/ConditionList.h"
#include "scr/HostExtension.h"

namespace {

using Indices = std::vector<std::int32_t>;

// An interpreter with a host's variables and functions.
struct Bench {
    Bench() {
        host->function("fail", []() -> bool { throw std::runtime_error("no way"); });
        host->function("setText", [this](std::string_view value) -> const FND::String& {
            text = FND::String(value);
            return text.value();
        });
    }

    Harness::MemoryLog log;
    SCR::Interpreter interpreter{&log};
    SCR::HostExtension* host = SCR::HostExtension::insert(interpreter, "host");
    SCR::HostVariable<long> number = host->variable<long>("number");
    SCR::HostVariable<FND::String> text = host->variable<FND::String>("text");
    SCR::HostVariable<FND::String> pattern = host->variable<FND::String>("pattern");
    SCR::ConditionList conditions{interpreter};
};

TEST(Conditions, AllFirstAndThoseThatHold) {
    Bench bench;
    ASSERT_TRUE(bench.conditions.compile("number > 0; number > 10; number % 2 == 0;"));
    ASSERT_EQ(bench.conditions.size(), 3);
    const struct {
        long number;
        bool all;
        std::int32_t first;
        Indices holding;
    } cases[] = {
        {12, true, 0, {0, 1, 2}},
        {11, false, 0, {0, 1}},
        {-2, false, 2, {2}},
        {-1, false, -1, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.number);
        bench.number = c.number;
        bool all = !c.all;
        std::int32_t first = 99;
        Indices holding{7};
        EXPECT_TRUE(bench.conditions.all(all));
        EXPECT_EQ(all, c.all);
        EXPECT_TRUE(bench.conditions.first(first));
        EXPECT_EQ(first, c.first);
        EXPECT_TRUE(bench.conditions.holding(holding));
        EXPECT_EQ(holding, c.holding);
        for (std::int32_t i = -1; i <= 3; ++i) {
            bool holds = false;
            EXPECT_TRUE(bench.conditions.holds(i, holds));
            EXPECT_EQ(holds, std::count(c.holding.begin(), c.holding.end(), i) == 1) << i;
        }
    }
    EXPECT_EQ(bench.log.text, "");
}

TEST(Conditions, PatternFollowsItsVariable) {
    Bench bench;
    ASSERT_TRUE(bench.conditions.compile("text =~ pattern;"));
    bench.text = "abc";
    const Harness::StdoutCapture capture;
    const struct {
        const char* pattern;
        bool holds, logs;
    } steps[] = {
        {"a.*", true, false}, {"b.*", false, false}, {"(", false, true},
        {"(", false, false},  {"a.*", true, false},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.pattern);
        bench.log.text.clear();
        bench.pattern = step.pattern;
        bool holds = !step.holds;
        EXPECT_TRUE(bench.conditions.holds(0, holds));
        EXPECT_EQ(holds, step.holds);
        EXPECT_EQ(bench.log.text.starts_with("=~: illegal pattern '('"), step.logs);
        EXPECT_EQ(bench.log.text.empty(), !step.logs);
    }
    EXPECT_EQ(capture.text(), "");
}

TEST(Conditions, TextStaysWhatItWas) {
    Bench bench;
    ASSERT_TRUE(bench.conditions.compile("text =~ setText(\"b\");"));
    bool holds = true;
    bench.text = "a";
    EXPECT_TRUE(bench.conditions.holds(0, holds));
    EXPECT_FALSE(holds);
    EXPECT_TRUE(bench.conditions.holds(0, holds));
    EXPECT_TRUE(holds);
}

TEST(Conditions, WrongOnesAddNothing) {
    const struct {
        const char *text, *message;
    } cases[] = {
        {"true; number;", "expected Bool not Long in condition"},
        {"true; number =~ \"1\";", "expected String not Long in pattern comparison"},
        {"true; text =~ 1;", "expected String not Long in pattern comparison"},
        {"true; text =~ \"a(\";", "illegal pattern `a(': "},
        {"true; unknown == 1;", "unknown identifier `unknown'"},
    };
    const Harness::StdoutCapture capture;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        Bench bench;
        ASSERT_TRUE(bench.conditions.compile("number == 0;"));
        EXPECT_FALSE(bench.conditions.compile(c.text));
        EXPECT_NE(bench.log.text.find(c.message), std::string::npos) << bench.log.text;
        EXPECT_EQ(bench.conditions.size(), 1);
        bool all = false;
        EXPECT_TRUE(bench.conditions.all(all));
        EXPECT_TRUE(all);
    }
    EXPECT_EQ(capture.text(), "");
}

TEST(Conditions, UseTheScriptAndStopWithIt) {
    Bench bench;
    ASSERT_TRUE(
        bench.interpreter.compile("Long seen = 3;"
                                  "function Bool endless { while (true) {} return true; }"
                                  "function Bool isSeen { return seen == 3; }"));
    ASSERT_TRUE(bench.interpreter.execute());
    ASSERT_TRUE(bench.conditions.compile("isSeen(); endless(); fail();"));
    bench.interpreter.limits({.steps = 10'000});
    std::int32_t first = 99;
    EXPECT_TRUE(bench.conditions.first(first));
    EXPECT_EQ(first, 0);
    bool value = true;
    EXPECT_FALSE(bench.conditions.all(value));
    EXPECT_TRUE(value);
    EXPECT_TRUE(bench.interpreter.wasStopped());
    Indices holding{5};
    EXPECT_FALSE(bench.conditions.holding(holding));
    // If a host's function throws, there is no answer.
    bench.log.text.clear();
    EXPECT_FALSE(bench.conditions.holds(2, value));
    EXPECT_TRUE(value);
    EXPECT_EQ(bench.log.text, "ERROR: condition 2: script stopped: fail: no way\n");
    // Conditions of a script that is gone give no answer either.
    ASSERT_TRUE(bench.interpreter.compile("Long other;"));
    for (int turn = 0; turn < 2; ++turn) {
        bench.log.text.clear();
        EXPECT_FALSE(turn == 0 ? bench.conditions.all(value) : bench.conditions.compile("true;"));
        EXPECT_EQ(bench.log.text, "ERROR: the conditions belong to a script that is gone\n");
    }
    bench.conditions.clear();
    EXPECT_TRUE(bench.conditions.compile("1 == 1;"));
    bench.conditions.clear();
    EXPECT_EQ(bench.conditions.size(), 0);
}

TEST(Query, IsKeptUntilTheNext) {
    Bench bench;
    bool value = true;
    EXPECT_FALSE(bench.interpreter.evaluateQuery(value));
    ASSERT_TRUE(bench.interpreter.compileQuery("number > 1 and text == \"a\""));
    bench.text = "a";
    for (const long number : {2L, 1L, 3L}) {
        bench.number = number;
        EXPECT_TRUE(bench.interpreter.evaluateQuery(value));
        EXPECT_EQ(value, number > 1) << number;
    }
    EXPECT_FALSE(bench.interpreter.compileQuery("number + 1"));
    EXPECT_EQ(bench.log.text, "expected `Bool' datatype instead of `Long' in where clause\n");
    EXPECT_FALSE(bench.interpreter.evaluateQuery(value));
    EXPECT_FALSE(bench.interpreter.compileQuery("number > 1;"));
}

}  // namespace
