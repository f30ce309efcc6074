// Everything that compiling builds counts for the limits of a script, is reported in the order of
// the text, and keeps nobody else from compiling.

#include "Allocations.h"
#include "Script.h"
#include "scr/ConditionList.h"
#include "scr/run/AutomataAccount.h"

namespace {

using Harness::MemoryLog;
using SCR::Interpreter;
using SCR::Limits;

std::string repeat(const std::string& text, int count) {
    std::string all;
    while (count-- > 0) all += text;
    return all;
}

// Switches over patterns that together need far too many states.
std::string switches(int count, const std::string& tail) {
    std::string text = "String t; Long n;\n";
    for (int i = 0; i < count; ++i) {
        text += "regExprSwitch (t) {\n";
        for (char first = 'a'; first < 'm'; ++first) {
            text += std::string("case \".*") + first + tail + ".*\": n = 1; break;\n";
        }
        text += "}\n";
    }
    return text;
}

std::string searches(int count, const std::string& expression) {
    std::string text = "String t; Long n;\n";
    for (int i = 0; i < count; ++i) {
        text += "n = strSearchRegExpr(t, \"" + expression + std::to_string(i) + "\");\n";
    }
    return text;
}

// Labels of a Long switch, `step` apart.
std::string labels(int count, std::int64_t step) {
    std::string text = "Long n; switch (n) {\n";
    for (int i = 0; i < count; ++i) text += "case " + std::to_string(i * step) + ": n = 1;\n";
    return text + "}";
}

struct Build {
    const char* name;
    std::string text;
    bool isCondition = false;
    // Limits that stop it.
    std::int64_t time = 30;
    std::int64_t memory = 3'000'000;
    std::int64_t automata = 1'000'000;
};

std::vector<Build> builds() {
    const std::string words = [] {
        std::string text = "String t; regExprSwitch (t) {\n";
        for (int i = 0; i < 5000; ++i)
            text += "case \"49" + std::to_string(i * 7) + "[0-9]*\": t = t;\n";
        return text + "}";
    }();
    return {
        {"alternatives", switches(400, "(.x|y.){4}")},
        {"negated", "String t; regExprSwitch (t) { case \"!.*a.{40000}.*\": t = t; }"},
        {"one long pattern",
         "String t; regExprSwitch (t) { case \"" + repeat("a{100000}", 3) + "\": t = t; }"},
        {"many patterns", words},
        {"pattern of a condition", "\"x\" =~ \".*a.{40000}\";", true},
        {"parts left out", "\"x\" =~ \"" + repeat("a?", 5000) + "\";", true},
        {"expressions", searches(300, "a[ab]{14}[c1]"), false, Limits::none},
        {"large expressions", searches(60, "(x+y|z[a-f]*){150}"), false, Limits::none},
        {"expression that can not be stopped", searches(1, repeat("a*|", 20'000)), false, 200},
        {"labels", labels(60'000, 1'000'003), false, 30, 3'000'000, Limits::none},
        {"statements", repeat("{ Long n; n = n + 1; }\n", 100'000), false, 30, Limits::none,
         Limits::none},
    };
}

bool compile(const Build& build, Interpreter& interpreter, SCR::ConditionList& conditions) {
    return build.isCondition ? conditions.compile(build.text) : interpreter.compile(build.text);
}

TEST(CompileLimits, HoldForAllThatIsBuilt) {
    struct Row {
        const char* name;
        std::int64_t Limits::*limit;
        std::int64_t Build::*value;
    };
    const Row limits[] = {{"time", &Limits::time, &Build::time},
                          {"memory", &Limits::memory, &Build::memory},
                          {"automata", &Limits::automata, &Build::automata}};
    for (const Build& build : builds()) {
        for (const Row& row : limits) {
            if (build.*row.value == Limits::none) continue;
            SCOPED_TRACE(std::string(build.name) + " under " + row.name);
            MemoryLog log;
            Interpreter interpreter(&log);
            SCR::ConditionList conditions(interpreter);
            Limits limited;
            limited.*row.limit = build.*row.value;
            interpreter.limits(limited);
            const long held = Allocations::startPeak();
            const auto start = std::chrono::steady_clock::now();
            const bool compiled = compile(build, interpreter, conditions);
            const auto taken = std::chrono::steady_clock::now() - start;
            if (limited.time != Limits::none) {
                EXPECT_LT(taken, std::chrono::milliseconds(limited.time + 400));
                // A fast machine may finish in time.
                if (compiled) continue;
            }
            EXPECT_FALSE(compiled);
            EXPECT_NE(log.text.find(": script stopped: limit `" + std::string(row.name) + "' of "),
                      std::string::npos)
                << log.text;
            EXPECT_TRUE(interpreter.wasStopped());
            const std::int64_t most = std::min(limited.memory, limited.automata);
            EXPECT_LT(Allocations::peak() - held - (8 << 20), most);
            EXPECT_EQ(interpreter.automata().held(), 0);
            EXPECT_TRUE(interpreter.compile("Long n; n = 1;") && interpreter.execute()) << log.text;
        }
    }
}

TEST(CompileLimits, InterruptionsReachWhatIsBuilt) {
    for (const Build& build : builds()) {
        if (build.time != 30) continue;
        MemoryLog log;
        Interpreter interpreter(&log);
        SCR::ConditionList conditions(interpreter);
        std::atomic<bool> isDone = false;
        bool isInterrupted = false;
        std::thread interrupter([&] {
            while (!isInterrupted && !isDone) isInterrupted = interpreter.interrupt();
        });
        const bool compiled = compile(build, interpreter, conditions);
        isDone = true;
        interrupter.join();
        ASSERT_TRUE(isInterrupted) << build.name;
        EXPECT_FALSE(compiled) << build.name;
        EXPECT_NE(log.text.find("script stopped: interrupted\n"), std::string::npos) << log.text;
    }
}

// Charged as long as the script keeps them, and no longer.
TEST(CompileLimits, AutomataCountAsMemory) {
    MemoryLog log;
    Interpreter interpreter(&log);
    const std::string script = R"(String t; String all[]; Long n; Long i;
        regExprSwitch (t) { case ".*a(.x|y.){5}": n = 1; break; case "x": n = 2; }
        for (i = 0; i < 300; i = i + 1) { all[i] = strPad("", "x", 10000, true); })";
    for (const std::int64_t spare : {-300'000, 300'000}) {
        interpreter.limits({});
        ASSERT_TRUE(interpreter.compile(script)) << log.text;
        const std::int64_t held = interpreter.automata().held();
        EXPECT_GT(held, 10'000);
        interpreter.limits({.memory = held + 3'200'000 + spare});
        EXPECT_EQ(interpreter.execute(), spare > 0) << log.text;
    }
    ASSERT_TRUE(interpreter.compile("Long n;"));
    EXPECT_EQ(interpreter.automata().held(), 0);
}

TEST(CompileLimits, FaultsAreReportedInTheOrderOfTheText) {
    const struct {
        const char *text, *log;
        enum { Script, Query, Condition } kind = Script;
    } rows[] = {
        {"String t;\nt = strMatch(t, \"(\");\nt = x;",
         "ERROR: line 2: invalid regular expression `(\n"},
        {"String t;\nt = x;\nt = strMatch(t, \"(\");", "ERROR: line 2: unknown identifier `x'\n"},
        {"String t;\nregExprSwitch (t) {\ncase \"a(\":\nt = strMatch(t, \"(\");\ncase \"(\": t = "
         "x; }",
         "ERROR: line 3: illegal regular expression: a(\n"},
        {"String t;\nregExprSwitch (t) {\ncase \"a\":\nt = strMatch(t, \"(\");\ncase \"(\": t = x; "
         "}",
         "ERROR: line 4: invalid regular expression `(\n"},
        {"String t;\nregExprSwitch (t) {\ncase \"a\":\nt = t;\ncase \"(\": t = x; }",
         "ERROR: line 5: illegal regular expression: (\n"},
        {"function Long f { }\nString t;\nt = strMatch(t, \"(\");\nfunction Long g { }",
         "ERROR: line 1: possible missing return value in `Long f()'\n"
         "ERROR: line 3: invalid regular expression `(\n"},
        {"#line 7 \"inner\"\nString t;\nt = strMatch(t, \"(\");\n#line 2 \"\"\nt = x;",
         "ERROR: inner: line 8: invalid regular expression `(\n"},
        {"strMatch(\"\", \"(\") == x", "ERROR: line 1: invalid regular expression `(\n",
         rows->Query},
        {"strMatch(\"\", \"(\")", "ERROR: line 1: invalid regular expression `(\n", rows->Query},
        {"true;\n\"a\" =~ \"(\";\nx;",
         "ERROR: line 2: illegal pattern `(': unexpected end of pattern\n", rows->Condition},
    };
    for (const auto& row : rows) {
        MemoryLog log;
        Interpreter interpreter(&log);
        SCR::ConditionList conditions(interpreter);
        bool isCompiled = true;
        {
            const Harness::StdoutCapture capture;
            isCompiled = row.kind == row.Query       ? interpreter.compileQuery(row.text)
                         : row.kind == row.Condition ? conditions.compile(row.text)
                                                     : interpreter.compile(row.text);
        }
        EXPECT_FALSE(isCompiled);
        EXPECT_EQ(log.text, row.log) << row.text;
        bool value = false;
        EXPECT_FALSE(interpreter.evaluateQuery(value)) << row.text;
        EXPECT_EQ(conditions.size(), 0) << row.text;
    }
}

// Reports that its parse is over.
struct WaitingLog final : SCR::Log {
    void log(const FND::String& /*message*/, FND::Status::Severity /*severity*/) override {
        isParsed = true;
    }
    std::atomic<bool> isParsed = false;
};

TEST(CompileLimits, OthersCompileMeanwhile) {
    WaitingLog log;
    Interpreter slow(&log);
    std::atomic<bool> isDone = false;
    std::thread compiling([&] {
        EXPECT_FALSE(slow.compile("function Long f { }\n" + switches(400, "(.x|y.){4}")));
        isDone = true;
    });
    while (!log.isParsed) std::this_thread::yield();
    for (int i = 0; i < 20; ++i) {
        Interpreter interpreter(nullptr);
        EXPECT_TRUE(interpreter.compile("String t; regExprSwitch (t) { case \"a\": t = \"b\"; }"));
    }
    EXPECT_FALSE(isDone);
    slow.interrupt();
    compiling.join();
}

// Labels that are all in one chain of a table whose places are known.
TEST(CompileLimits, LabelsDoNotCollide) {
    const auto secondsFor = [](std::int64_t step) {
        const auto start = std::chrono::steady_clock::now();
        Interpreter interpreter(nullptr);
        EXPECT_TRUE(interpreter.compile(labels(30'000, step)));
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    // The sizes that such a table grows to.
    EXPECT_LT(secondsFor(std::int64_t{20753} * 42043),
              8 * secondsFor(1'000'003 * std::int64_t{7919}));
}

}  // namespace
