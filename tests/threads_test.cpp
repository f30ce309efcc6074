// Interpreters in parallel: what they share must be safe. Also meant to be run under
// ThreadSanitizer.

#include "Script.h"
#include "fsm/Engine.h"
#include "scr/ConditionList.h"
#include "scr/Extension.h"
#include "scr/HostExtension.h"
#include "scr/run/ScriptMutexes.h"

namespace {

using Harness::MemoryLog;
using SCR::HostExtension;
using SCR::Interpreter;

constexpr int threadsS = 8;
constexpr int roundsS = 12;

void onThreads(const std::function<void(int)>& action) {
    std::vector<std::thread> threads;
    threads.reserve(threadsS);
    for (int thread = 0; thread < threadsS; ++thread) threads.emplace_back(action, thread);
    for (std::thread& thread : threads) thread.join();
}

// Compiles, executes, fails to compile, asks queries and ends, over and over. The last interpreter
// takes the table of the library with it.
TEST(ThreadsTest, InterpretersComeAndGo) {
    const std::size_t before = SCR::MainExtension::tableSize();
    onThreads([](int thread) {
        for (int round = 0; round < roundsS; ++round) {
            MemoryLog log;
            Interpreter interpreter(&log);
            HostExtension* const host = HostExtension::insert(interpreter, "host");
            auto counter = host->variable<long>("counter");
            host->function("twice", [](long n) { return 2 * n; });
            ASSERT_TRUE(interpreter.compile(
                "Long i; String h{}; Date d;\n"
                "for (i = 0; i < 50; i = i + 1) {\n"
                "    counter = counter + twice(" +
                std::to_string(thread) +
                ");\n"
                "    h{longToStr(i)} = strPad(\"\", \"x\", i, true);\n"
                "    d = strToDate(\"2026-01-31\"); dateAdd(d, 0, i, 0, 0, 0, 0);\n"
                "    regExprSwitch (h{longToStr(i)}) { case \"x{3,5}\": counter = counter + 1; }\n"
                "}"))
                << log.text;
            ASSERT_TRUE(interpreter.execute()) << log.text;
            ASSERT_EQ(counter, 100 * thread + 3);
            SCR::ConditionList conditions(interpreter);
            ASSERT_TRUE(conditions.compile("counter > 2; h{\"4\"} =~ \"x+\";"));
            bool holds = false;
            ASSERT_TRUE(conditions.all(holds) && holds) << log.text;
            conditions.clear();
            ASSERT_FALSE(interpreter.compile("broken"));
        }
    });
    EXPECT_EQ(SCR::MainExtension::tableSize(), before);
}

// Other threads use and give back what a compile made, one after the other, while scripts of
// further threads come and go.
TEST(ThreadsTest, InterpretersAreHandedOn) {
    struct Used {
        MemoryLog log;
        Interpreter interpreter{&log};
        SCR::ConditionList conditions{interpreter};
    };
    std::vector<std::unique_ptr<Used>> all(threadsS);
    // In round k, thread i has interpreter i + k.
    for (int round = 0; round < 3 * threadsS; ++round) {
        onThreads([&](int thread) {
            std::unique_ptr<Used>& used =
                all[static_cast<std::size_t>((thread + round) % threadsS)];
            if (round % 3 == 0) {
                used = std::make_unique<Used>();
                ASSERT_TRUE(used->interpreter.compile(
                    "Long n; Long list[]; Long k{}; function Long more(Long a) { return a + 1; }"
                    "for (n = 0; n < 20; n = n + 1) { list[n] = more(n); k{longToStr(n)} = n; }"))
                    << used->log.text;
                ASSERT_TRUE(used->conditions.compile("n == 20; list[3] == 4; k{\"7\"} == 7;"));
            } else if (round % 3 == 1) {
                bool holds = false;
                ASSERT_TRUE(used->interpreter.execute()) << used->log.text;
                ASSERT_TRUE(used->conditions.all(holds) && holds) << used->log.text;
            } else {
                used.reset();
            }
        });
    }
}

TEST(ThreadsTest, OneEngineServesAll) {
    FSM::Engine engine;
    for (int i = 0; i < 50; ++i) {
        ASSERT_TRUE(engine.insertPattern(std::to_string(i) + ".*", static_cast<unsigned long>(i)));
    }
    ASSERT_TRUE(engine.finalSetup());
    onThreads([&engine](int thread) {
        for (int i = 0; i < 2000; ++i) {
            const int number = (i * 7 + thread) % 50;
            const std::string text = std::to_string(number) + "x";
            ASSERT_EQ(engine.firstPath(text), number < 10 ? number : number / 10);
        }
    });
}

// A counter that only a script's mutex protects. The host's threads share the interpreter's
// mutexes.
TEST(ThreadsTest, ScriptMutexesExclude) {
    MemoryLog log;
    Interpreter interpreter(&log);
    auto made = HostExtension::insert(interpreter, "host")->variable<long>("made");
    ASSERT_TRUE(interpreter.compile("made = mutexCreate();")) << log.text;
    ASSERT_TRUE(interpreter.execute());
    const long handle = made;
    long shared = 0;
    onThreads([&](int /*thread*/) {
        SCR::ScriptMutexes& mutexes = interpreter.mainExtension().mutexes();
        for (int i = 0; i < 500; ++i) {
            ASSERT_TRUE(mutexes.acquire(handle));
            ++shared;
            ASSERT_TRUE(mutexes.release(handle));
        }
    });
    EXPECT_EQ(shared, 500 * threadsS);
}

// Interrupted from outside while others start and end.
TEST(ThreadsTest, InterruptsReachTheirOwnOnly) {
    onThreads([](int thread) {
        MemoryLog log;
        Interpreter interpreter(&log);
        if (thread % 2 == 0) {
            ASSERT_TRUE(interpreter.compile("while (true) {}"));
            std::thread interrupter([&interpreter] {
                while (!interpreter.interrupt()) std::this_thread::yield();
            });
            EXPECT_FALSE(interpreter.execute());
            interrupter.join();
            EXPECT_EQ(log.text, "ERROR: line 1: script stopped: interrupted\n");
        } else {
            ASSERT_TRUE(interpreter.compile("Long i; for (i = 0; i < 20000; i = i + 1) {}"));
            EXPECT_TRUE(interpreter.execute()) << log.text;
        }
    });
}

}  // namespace
