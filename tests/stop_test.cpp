// Stops an interpreter at each point where it may be stopped, and calls it while it works: nothing
// is thrown at the host, and the interpreter works afterwards.

#include <ucontext.h>
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/common_interface_defs.h>
#endif

#include "Allocations.h"
#include "Examples.h"
#include "Script.h"
#include "scr/CompareInterface.h"
#include "scr/ConditionList.h"
#include "scr/HostExtension.h"
#include "scr/Node.h"
#include "scr/builtin/base/BuiltIn.h"
#include "scr/code/Hot.h"
#include "scr/run/RunControl.h"

namespace {

using Harness::MemoryLog;
using SCR::HostExtension;
using SCR::Interpreter;
using SCR::Limits;

// Counts messages and keeps none, so that the memory of an interpreter can be measured.
struct StopLog final : SCR::Log {
    void log(const FND::String& message, FND::Status::Severity /*severity*/) override {
        if (message.find("stopped by a test") != FND::String::npos) ++stops;
    }
    int stops = 0;
};

// Compiles and executes `script`, and makes question number `question` stop it. False when there
// were fewer questions.
bool runStopped(const std::string& script, std::int64_t question, SCR::CodeTier tier) {
    StopLog log;
    Interpreter interpreter(&log);
    interpreter.codeTier(tier);
    interpreter.runControl().stopAtQuestion(question);
    bool isDone = interpreter.compile(script) && interpreter.execute();
    const bool wasAsked = interpreter.runControl().questions() > question;
    EXPECT_EQ(isDone, !wasAsked);
    EXPECT_EQ(log.stops, wasAsked ? 1 : 0);
    EXPECT_EQ(interpreter.wasStopped(), wasAsked);
    if (!wasAsked) return false;
    interpreter.runControl().stopAtQuestion(-1);
    isDone = interpreter.compile(script) && interpreter.execute();
    EXPECT_TRUE(isDone);
    return true;
}

// The number of questions, each of which has stopped the script once.
std::int64_t sweep(const std::string& script, SCR::CodeTier tier = SCR::CodeTier::Native) {
    SCOPED_TRACE(script);
    // The first run makes the objects that are made once and kept.
    const Harness::StdoutCapture capture;
    std::int64_t question = 0;
    while (runStopped(script, question, tier) && !testing::Test::HasFailure()) {
        const long held = Allocations::heldCM;
        runStopped(script, question, tier);
        EXPECT_EQ(Allocations::heldCM, held) << "question " << question << " leaks";
        ++question;
    }
    return question;
}

// The number of questions of an execution. Those of a compile depend on what the process keeps of
// compiles before.
std::int64_t questionsOfRun(const std::string& script, SCR::CodeTier tier) {
    const Harness::StdoutCapture capture;
    StopLog log;
    Interpreter interpreter(&log);
    interpreter.codeTier(tier);
    interpreter.runControl().stopAtQuestion(std::int64_t{1} << 40);
    EXPECT_TRUE(interpreter.compile(script));
    const std::int64_t ofCompile = interpreter.runControl().questions();
    EXPECT_TRUE(interpreter.execute());
    return interpreter.runControl().questions() - ofCompile;
}

TEST(StopTest, EachQuestionMayStopEachBuiltIn) {
    const Harness::ExampleFolder folder;
    std::int64_t questions = 0;
    for (const SCR::BuiltIn* row : SCR::builtIns()) {
        // It sleeps for as long as it says.
        if (has(row->effects, SCR::Effect::Sleep)) continue;
        questions += sweep(Harness::scriptOf(row->example));
        if (HasFailure()) return;
    }
    RecordProperty("questions", static_cast<int>(questions));
    EXPECT_GT(questions, 500);
}

TEST(StopTest, EachQuestionMayStopTheLanguage) {
    constexpr const char* script = R"(
        function String twice(String s) { return s + s; }
        Long list[];
        function Long sum {
            Long i; Long all;
            for (i = 0; i < size(list); i = i + 1) { all = all + list[i]; }
            return all;
        }
        function BEGIN { logStdout("begin"); }
        function END { logStdout("end"); }
        String words[]; Long counts{}; String nested[]{}; Long n; Decimal d;
        words[3] = twice(strPad("word", "-", 60, true)); counts{words[3]} = counts{words[3]} + 1;
        nested[n]{twice("k")} = twice(words[3]) + words[3];
        do { list[n] = n; n = n + 1; } while (n < 20);
        while (n > 0) { n = n - 1; d = d + longToDecimal(sum()) / 3.0; }
        regExprSwitch (words[3]) { case "wo.*d": n = 1; break; case "word-*": n = 2; }
        switch (nested[0]{"kk"}) { case "none": n = 3; break; default: n = n + 1; }
        arrayClear(words); hashClear(counts);
    )";
    SCR::Code::Hot::makeAfter(1);
    const std::int64_t questions = questionsOfRun(script, SCR::CodeTier::Tree);
    EXPECT_GT(questions, 100);
    for (const auto tier : {SCR::CodeTier::Tree, SCR::CodeTier::Portable, SCR::CodeTier::Native}) {
        EXPECT_GT(sweep(script, tier), questions);
        EXPECT_EQ(questionsOfRun(script, tier), questions);
    }
    RecordProperty("questions", static_cast<int>(questions));
}

// What a stop leaves of a long hash is whole: all of the rest is found, and it can be added to.
TEST(StopTest, LongContainersAreEmptiedInPieces) {
    MemoryLog log;
    Interpreter interpreter(&log);
    std::int64_t stopsAt = 0;
    bool fills = true;
    unsigned long left = 0;
    auto* const host = HostExtension::insert(interpreter, "host");
    host->function("fills", [&] { return fills; });
    host->function("stopAt", [&] { interpreter.runControl().stopAtQuestion(stopsAt); });
    host->function("look", [&](SCR::HashView<long> hash) {
        left = hash.size();
        unsigned long found = 0;
        hash.forEach([&](const FND::String& key, long value) {
            const long* const element = hash.find(key);
            found +=
                element != nullptr && *element == value && key == std::to_string(value) ? 1 : 0;
        });
        EXPECT_EQ(found, left);
    });
    ASSERT_TRUE(interpreter.compile(
        "Long h{}; String a[]; Long i; if (fills()) { for (i = 0; i < 6000; i = i + 1) { "
        "h{longToStr(i)} = i; a[i] = longToStr(i); } stopAt(); arrayClear(a); hashClear(h); } "
        "else { look(h); for (i = 0; i < 9; i = i + 1) h{longToStr(i)} = i; look(h); }"))
        << log.text;
    int parts = 0;
    for (bool isDone = false; !isDone; stopsAt += 1 + stopsAt / 8) {
        fills = true;
        isDone = interpreter.execute();
        interpreter.runControl().stopAtQuestion(-1);
        fills = false;
        ASSERT_TRUE(interpreter.execute());
        parts += left > 9 && left < 6'000 ? 1 : 0;
    }
    EXPECT_EQ(left, 9U);
    EXPECT_GT(parts, 10);
}

// A host that lowers the limits while memory is held gets it back without a stop.
TEST(StopTest, GivingBackNeverStops) {
    MemoryLog log;
    Interpreter interpreter(&log);
    HostExtension& host = *HostExtension::insert(interpreter, "host");
    host.function("lower", [&] { interpreter.limits({.steps = 0, .memory = 0}); });
    SCR::ConditionList conditions(interpreter);
    bool value = false;
    for (const char* const script :
         {"String a[]; String b; lower(); b = strPad(\"k\", \"abc\", 4000, true);",
          "String a{}; function String f { lower(); return \"x\"; } a{f()} = strPad(f(), \"x\", "
          "900, "
          "true);",
          "String b; b = strPad(\"k\", \"abc\", 4000, true) + \"x\"; lower();"}) {
        interpreter.limits({});
        ASSERT_TRUE(interpreter.compile(script)) << log.text;
        interpreter.execute();
        interpreter.limits({});
        const std::int64_t before = interpreter.runControl().buffers();
        const std::string text = "strPad(\"\", \"x\", 4000, true) + \"y\" == \"\"";
        ASSERT_TRUE(interpreter.compileQuery(text)) << log.text;
        ASSERT_TRUE(conditions.compile(text + ";")) << log.text;
        EXPECT_TRUE(interpreter.evaluateQuery(value) && conditions.all(value));
        EXPECT_GT(interpreter.runControl().buffers(), before);
        interpreter.limits({.memory = 1});
        EXPECT_FALSE(interpreter.compileQuery(text));
        EXPECT_FALSE(conditions.compile(text + ";"));
        conditions.clear();
        EXPECT_EQ(interpreter.runControl().buffers(), before);
    }
}

// Actions of a host in a function, a log, an extension or a condition.
TEST(StopTest, TheInterpreterMayBeCalledFromWhereItIsAtWork) {
    struct CallingLog final : SCR::Log {
        void log(const FND::String& /*message*/, FND::Status::Severity /*severity*/) override {
            ++messages;
            if (act) act();
        }
        std::function<void()> act;
        int messages = 0;
    };
    CallingLog log;
    Interpreter interpreter(&log);
    HostExtension& host = *HostExtension::insert(interpreter, "host");
    Interpreter other(nullptr);
    HostExtension& otherHost = *HostExtension::insert(other, "host");
    long open = 0;
    long most = 0;
    host.function("again", [&] {
        most = std::max(most, ++open);
        interpreter.execute();
        --open;
    });
    host.function("across", [&] { other.execute(); });
    otherHost.function("back", [&] { interpreter.execute(); });
    interpreter.limits({.depth = 20});
    ASSERT_TRUE(interpreter.compile("again();"));
    EXPECT_TRUE(interpreter.execute());
    EXPECT_EQ(most, 21);
    EXPECT_EQ(log.messages, 1);
    // However deep they may nest, the stack is protected.
    interpreter.limits({.depth = Limits::none});
    other.limits({.depth = Limits::none});
    EXPECT_TRUE(interpreter.execute());
    EXPECT_GT(most, 100);
    ASSERT_TRUE(interpreter.compile("across();") && other.compile("back();"));
    EXPECT_TRUE(interpreter.execute());
    // A log.
    bool hasCompiled = false;
    log.act = [&] { hasCompiled |= interpreter.compile("Long n;") || interpreter.check(""); };
    EXPECT_FALSE(interpreter.compile("Long s; s = nothing;"));
    EXPECT_FALSE(interpreter.compileQuery("nothing"));
    EXPECT_TRUE(interpreter.compile("strToLong(\"x\");") && interpreter.execute());
    EXPECT_FALSE(interpreter.compile("include \"/none\";\n"));
    EXPECT_FALSE(hasCompiled);
    log.act = [&] { interpreter.execute(); };
    EXPECT_TRUE(interpreter.compile("strToLong(\"x\");") && interpreter.execute());
    log.act = [] { throw std::runtime_error("log"); };
    EXPECT_TRUE(interpreter.compile("strToLong(\"x\");") && interpreter.execute());
    EXPECT_FALSE(interpreter.compile("Long s = nothing;"));
}

TEST(StopTest, FailuresOfTheHostStopTheScript) {
    const struct {
        const char* script;
        bool isCompiled;
        const char *output, *log;
    } rows[] = {
        {"fail(\"no tariff\");\nlogStdout(\"on\");", true, "",
         "ERROR: line 1: script stopped: fail: no tariff\n"},
        {"Long n;\nn = 1 + throwing();", true, "",
         "ERROR: line 2: script stopped: throwing: bad\n"},
        {"gentle(); logStdout(\"on\");", true, "on", "gentle: no matter\n"},
        {"function Long f { fail(\"deep\"); return 1; }\nif (f() == 1) { logStdout(\"on\"); }",
         true, "", "ERROR: line 1: script stopped: fail: deep\n"},
        {"function BEGIN { throwing(); }\nfunction END { logStdout(\"end\"); }", false, "",
         "ERROR: line 1: script stopped: throwing: bad\n"},
        // A code of control flow is no failure.
        {"function Long BEGIN { return 1; }\nlogStdout(\"on\");", true, "on", ""},
        {"inner(); logStdout(\"on\");\nfunction Long f { return 1; }", true, "on", ""},
    };
    for (const auto& row : rows) {
        const Harness::ScriptRun run = Harness::run(
            row.script, {.prepare = [](Interpreter& interpreter) {
                HostExtension& host = *HostExtension::insert(interpreter, "host");
                host.function("fail", [](Interpreter& running, FND::String text) {
                    EXPECT_TRUE(running.fail(text));
                });
                host.function("throwing", []() -> long { throw std::runtime_error("bad"); });
                host.function("gentle", [](Interpreter& running) { running.fail("no matter"); })
                    ->nullOnFailure(true);
                // A failure in a run within the run belongs to the inner run.
                host.function("inner", [](Interpreter& running) {
                    bool value = true;
                    EXPECT_FALSE(running.evaluateQuery(value));
                });
                EXPECT_FALSE(interpreter.fail("nothing runs"));
            }});
        EXPECT_EQ(run.compiled, row.isCompiled) << row.script;
        EXPECT_EQ(run.output, row.output) << row.script;
        EXPECT_EQ(run.log, row.log) << row.script;
        EXPECT_EQ(run.ok, run.log.find("stopped") == std::string::npos) << row.script;
    }
}

TEST(StopTest, InterruptionsReachWhatRunsAndNothingElse) {
    MemoryLog log;
    Interpreter interpreter(&log);
    HostExtension& host = *HostExtension::insert(interpreter, "host");
    long wasRunning = 0;
    host.function("interrupt", [&] { wasRunning += interpreter.interrupt() ? 1 : 0; });
    EXPECT_FALSE(interpreter.interrupt());
    ASSERT_TRUE(interpreter.compile("Long n; n = 1;"));
    EXPECT_FALSE(interpreter.interrupt());
    EXPECT_TRUE(interpreter.execute());
    // Even the shortest scripts are stopped, at the call or at their end.
    for (const char* const script : {"interrupt();", "if (true) { interrupt(); }"}) {
        ASSERT_TRUE(interpreter.compile(script));
        EXPECT_FALSE(interpreter.execute());
    }
    EXPECT_FALSE(interpreter.compile("function BEGIN { interrupt(); }"));
    EXPECT_EQ(wasRunning, 3);
    // Nested runs are all stopped.
    bool isInner = true;
    host.function("query", [&] {
        bool value = false;
        isInner = interpreter.evaluateQuery(value);
    });
    ASSERT_TRUE(interpreter.compile("function Bool f { interrupt(); return true; } query();"));
    ASSERT_TRUE(interpreter.compileQuery("f()"));
    EXPECT_FALSE(interpreter.execute());
    EXPECT_FALSE(isInner);
    // From another thread, while it executes and while it compiles.
    std::string large;
    for (int i = 0; i < 300'000; ++i) large += "Long v" + std::to_string(i) + ";\n";
    const std::function<bool()> works[] = {
        [&] { return interpreter.execute(); },
        [&] { return interpreter.compile(large); },
        [&] { return interpreter.check(large); },
    };
    for (const auto& work : works) {
        ASSERT_TRUE(interpreter.compile("while (true) {}"));
        log.text.clear();
        std::thread interrupter([&] {
            while (!interpreter.interrupt()) std::this_thread::yield();
        });
        EXPECT_FALSE(work());
        interrupter.join();
        EXPECT_NE(log.text.find("script stopped: interrupted\n"), std::string::npos) << log.text;
        EXPECT_TRUE(interpreter.wasStopped());
    }
}

TEST(StopTest, TimeIsNoticedWhereverItGoes) {
    std::string straight;
    for (int i = 0; i < 100'000; ++i) straight += "s = strToUpper(s);\n";
    // Nested blocks, none of them long.
    std::string nested = "s = strToUpper(s);";
    for (int level = 0; level < 4; ++level) {
        const std::string inner = nested;
        for (int i = 1; i < 14; ++i) nested += inner;
        nested = "if (true) { " + nested + " }";
    }
    const struct {
        std::string script;
        std::int64_t time;
    } rows[] = {
        {"Long i; for (i = 0; i < 500; i = i + 1) wait(2);", 20},
        {"wait(2); wait(2); wait(2);", 3},
        {"wait(5);", 3},
        {"String s = strPad(\"\", \"a\", 1000, true);\n" + straight, 1},
        {"String s = strPad(\"\", \"a\", 1000, true);\n" + nested, 1},
    };
    for (const auto& row : rows) {
        MemoryLog log;
        Interpreter interpreter(&log);
        HostExtension::insert(interpreter, "host")->function("wait", [](long milliseconds) {
            std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
        });
        ASSERT_TRUE(interpreter.compile(row.script)) << log.text;
        interpreter.limits({.time = row.time});
        EXPECT_FALSE(interpreter.execute()) << row.script.substr(0, 60);
        EXPECT_NE(log.text.find("limit `time' of"), std::string::npos) << log.text;
    }
    // Conditions, none of which takes long.
    MemoryLog log;
    Interpreter interpreter(&log);
    SCR::ConditionList conditions(interpreter);
    std::string list;
    for (int i = 0; i < 10'000; ++i) list += "1 < 2;";
    ASSERT_TRUE(conditions.compile(list)) << log.text;
    interpreter.runControl().stopAtQuestion(-1);
    bool value = false;
    EXPECT_TRUE(conditions.all(value) && value);
    EXPECT_GT(interpreter.runControl().questions(), 4);
}

// Calls of the system take longer than other calls, and much longer on some machines.
TEST(StopTest, CallsOfTheSystemAreNotTakenForTurns) {
    const Harness::ExampleFolder folder;
    const struct {
        const char* call;
        std::int64_t calls;  // in which there is at least one question
    } rows[] = {
        {R"(fileOpen(f, "a", "w");)", 1},
        {"fileSeek(f, 0);", 1},
        {"fileTell(f);", 1},
        {"fileFlush(f);", 1},
        {"fileClose(f);", 1},
        {R"(fileDelete("b");)", 1},
        {R"(fileRename("b", "c");)", 1},
        {R"(fileCopy("b", "c");)", 1},
        {R"(sysGetEnv("B");)", 1},
        {R"(logStdout("");)", 200},
        {R"(fileWriteStr(f, "x");)", 1100},
        {"fileReadLine(f, s, 9);", 1100},
    };
    constexpr std::int64_t turns = 2200;
    for (const auto& row : rows) {
        MemoryLog log;
        Interpreter interpreter(&log);
        ASSERT_TRUE(
            interpreter.compile("File f; String s; fileOpen(f, \"a\", \"w+\"); fileWriteStr(f, "
                                "strPad(\"\", \"\n\", 4000, "
                                "true)); fileSeek(f, 0); Long i; for (i = 0; i < " +
                                std::to_string(turns) + "; i = i + 1) { " + row.call + " }"))
            << log.text;
        const std::int64_t looks = turns / 256 + 2;
        interpreter.runControl().stopAtQuestion(-1);
        EXPECT_TRUE(interpreter.execute()) << log.text;
        EXPECT_GT(interpreter.runControl().questions(), looks + turns / row.calls) << row.call;
    }
}

// A host's own list of conditions.
TEST(StopTest, ConditionsOfHostsAreEvaluatedAsRuns) {
    struct List final : SCR::CompareInterface {
        bool condition(SCR::BoolNode* condition) override {
            nodes.emplace_back(condition);
            return true;
        }
        bool comparePattern(Interpreter& /*interpreter*/, SCR::ParserStack& /*stack*/) override {
            return false;
        }
        std::vector<std::unique_ptr<SCR::BoolNode>> nodes;
    } list;
    MemoryLog log;
    Interpreter interpreter(&log);
    const std::uint64_t generation = interpreter.generation();
    ASSERT_TRUE(interpreter.compile("function Bool endless { while (true) {} return true; }"));
    EXPECT_NE(interpreter.generation(), generation);
    const std::int64_t before = interpreter.runControl().buffers();
    ASSERT_TRUE(interpreter.compileConditions("1 < 2; endless();", list)) << log.text;
    interpreter.limits({.steps = 1000});
    bool value = false;
    EXPECT_TRUE(interpreter.evaluate(*list.nodes[0], value));
    EXPECT_TRUE(value);
    EXPECT_FALSE(interpreter.evaluate(*list.nodes[1], value));
    EXPECT_EQ(log.text, "ERROR: line 1: script stopped: limit `steps' of 1000 passed\n");
    EXPECT_EQ(interpreter.runControl().buffers(), before) << "what a host keeps is not charged";
}

// The child of a fork compiles and executes, whatever other threads were doing.
TEST(StopTest, ForkedChildrenCompile) {
    if (KESTREL_SANITIZED) GTEST_SKIP() << "a sanitizer's allocator may be locked in the child";
    std::atomic<bool> isOver = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            while (!isOver) {
                Interpreter interpreter(nullptr);
                interpreter.compile("String s; regExprSwitch (s) { case \"a*b\": s = \"x\"; }");
            }
        });
    }
    constexpr int children = 20;
    int done = 0;
    for (int i = 0; i < children; ++i) {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            alarm(20);
            Interpreter interpreter(nullptr);
            const bool isGood =
                interpreter.compile("String s; regExprSwitch (s) { case \"b*\": s = \"x\"; }") &&
                interpreter.execute();
            _exit(isGood ? 0 : 1);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        done += status == 0 ? 1 : 0;
    }
    isOver = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(done, children);
}

// AddressSanitizer has to know of each change of the stack.
#ifdef __SANITIZE_ADDRESS__
constexpr auto beginSwitchS = __sanitizer_start_switch_fiber;
constexpr auto endSwitchS = __sanitizer_finish_switch_fiber;
#else
constexpr auto beginSwitchS = [](void** /*kept*/, const void* /*stack*/, std::size_t /*size*/) {};
constexpr auto endSwitchS = [](void* /*kept*/, const void** /*stack*/, std::size_t* /*size*/) {};
#endif

void (*fiberActS)() = nullptr;

void runFiber() {
    const void* outer = nullptr;
    std::size_t size = 0;
    endSwitchS(nullptr, &outer, &size);
    fiberActS();
    beginSwitchS(nullptr, outer, size);
}

// Calls `act` on `stack`.
[[gnu::noinline]] void onFiber(std::vector<char>& stack, void (*act)()) {
    ucontext_t fiber;
    ucontext_t main;
    ASSERT_EQ(getcontext(&fiber), 0);
    fiber.uc_stack.ss_sp = stack.data();
    fiber.uc_stack.ss_size = stack.size();
    fiber.uc_link = &main;
    fiberActS = act;
    makecontext(&fiber, runFiber, 0);
    void* kept = nullptr;
    beginSwitchS(&kept, stack.data(), stack.size());
    ASSERT_EQ(swapcontext(&main, &fiber), 0);
    endSwitchS(kept, nullptr, nullptr);
}

// Scripts run on stacks that are not the thread's; the limit of depth, or the bounds given, protect
// them.
TEST(StopTest, FibersRun) {
    static Interpreter* interpreterS = nullptr;
    static bool hasRunS = false;
    MemoryLog log;
    Interpreter interpreter(&log);
    interpreterS = &interpreter;
    ASSERT_TRUE(
        interpreter.compile("Long left; left = 50; function Long f { left = left - 1; if (left > "
                            "0) { f(); } return 1; } f();"));
    std::vector<char> stack(4 << 20);
    for (const bool isSaid : {false, true}) {
        for (const long depth : {100, 20}) {
            interpreter.limits({.depth = depth});
            interpreter.stackEnd(isSaid ? stack.data() : nullptr);
            onFiber(stack, [] { hasRunS = interpreterS->execute(); });
            EXPECT_EQ(hasRunS, depth > 50) << log.text;
        }
    }
    // The end that was given holds without a limit of the depth; what lies before it stays.
    constexpr std::size_t kept = 64 << 10;
    std::fill_n(stack.begin(), kept, 'k');
    interpreter.limits({.depth = 1'000'000'000});
    interpreter.stackEnd(stack.data() + kept);
    ASSERT_TRUE(interpreter.compile("function Long g(Long n) { return 1 + g(n + 1); } g(1);"));
    onFiber(stack, [] { hasRunS = interpreterS->execute(); });
    EXPECT_FALSE(hasRunS);
    EXPECT_TRUE(std::all_of(stack.begin(), stack.begin() + kept, [](char c) { return c == 'k'; }));
}

}  // namespace
