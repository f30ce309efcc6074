// Functions that wait, and what makes them stop waiting.

#include <sys/time.h>

#include "Folder.h"
#include "Script.h"
#include "scr/run/ScriptMutexes.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// Whether there is a process whose command line holds `mark`.
bool isRunning(const std::string& mark) {
    for (const auto& entry : fs::directory_iterator("/proc")) {
        std::ifstream stream(entry.path() / "cmdline", std::ios::binary);
        const std::string line((std::istreambuf_iterator<char>(stream)), {});
        if (line.find(mark) != std::string::npos) return true;
    }
    return false;
}

TEST(Waiting, InterruptionsAndTheTimeLimitEndEveryWait) {
    const Harness::Folder folder;
    const std::string pipe = folder.path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::string opened = "File f; fileOpen(f, \"" + pipe + "\", \"r+\");";
    const std::string shellMark = "31415.9" + std::to_string(getpid());
    const std::string scripts[] = {
        "sleep(1000000);",
        "system(\"sleep " + shellMark + "; echo after\");",
        "system(\"exec >&-; trap '' TERM; while true; do sleep " + shellMark + "; done\");",
        "String out; system(\"yes\", out);",
        "Long m = mutexCreate(); mutexAcquire(m); mutexAcquire(m);",
        "fileCopy(\"/dev/zero\", \"/dev/null\");",
        "File f; fileOpen(f, \"/dev/null\", \"w\"); fileWriteLong(f, 1, 9223372036854775807);",
        "File f; fileOpen(f, \"" + pipe + "\", \"w\");",
        "File f; String s; fileOpen(f, \"" + pipe + "\", \"r\"); fileReadLine(f, s, 9);",
        opened + "String s; fileWriteStr(f, \"half\"); fileReadLine(f, s, 9);",
        opened + "fileWriteStr(f, strPad(\"\", \"x\", 200000, true));",
        opened + "fileWriteStr(f, strPad(\"\", \"x\", 65540, true)); fileClose(f);",
        "fileCopy(\"" + pipe + "\", \"/dev/null\");",
        "fileCopy(\"/dev/null\", \"" + pipe + "\");",
        opened + "fileCopy(\"/dev/zero\", \"" + pipe + "\");",
    };
    const auto filesBefore = Harness::openFiles();
    bool isTimed = false;
    for (const std::string& script : scripts) {
        Harness::MemoryLog log;
        SCR::Interpreter interpreter(&log);
        ASSERT_TRUE(
            interpreter.compile("Long turn; turn = turn + 1; if (turn == 1) {" + script + "}"));
        // Every other wait is ended by the limit of time.
        isTimed = !isTimed;
        interpreter.limits({.time = isTimed ? 50 : SCR::Limits::none});
        std::thread other([&] {
            std::this_thread::sleep_for(50ms);
            if (!isTimed) interpreter.interrupt();
        });
        const auto before = Clock::now();
        EXPECT_FALSE(interpreter.execute()) << script;
        EXPECT_LT(Clock::now() - before, 1050ms) << script;
        other.join();
        EXPECT_NE(log.text.find(isTimed ? "limit `time'" : "interrupted"), std::string::npos)
            << script << log.text;
        EXPECT_TRUE(interpreter.execute()) << script;
    }
    for (int turn = 0; turn < 100 && isRunning(shellMark); ++turn) {
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_FALSE(isRunning(shellMark));
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child was left";
    EXPECT_EQ(Harness::openFiles(), filesBefore);
}

TEST(Waiting, TheStringLimitHoldsForWhatIsRead) {
    const Harness::Folder folder;
    const std::string open = "File f; fileOpen(f, \"" + folder.path("file") + "\", \"w+\"); ";
    const std::string read = " fileSeek(f, 0); String s; fileReadLine(f, s, 9223372036854775807);";
    const std::pair<std::string, bool> rows[] = {
        {"String out; system(\"head -c 100000 /dev/zero\", out);", true},
        {"String out; system(\"head -c 100001 /dev/zero\", out);", false},
        {"String a[]; a[0] = \"x\"; system(\"head -c 100000 /dev/zero\", a[0]);", false},
        {"system(\"head -c 200000 /dev/zero\");", true},
        {open + "fileWriteLong(f, 1, 100000);" + read, true},
        {open + "fileWriteLong(f, 1, 100001);" + read, false},
    };
    for (const auto& [script, ok] : rows) {
        const Harness::ScriptRun result =
            Harness::run(script, {.prepare = [](SCR::Interpreter& interpreter) {
                             interpreter.limits({.string = 100'000});
                         }});
        EXPECT_EQ(result.ok, ok) << script << result.log;
        EXPECT_EQ(result.log.find("limit `string'") == std::string::npos, ok) << result.log;
    }
}

TEST(Waiting, AMutexIsHeldUntilAnotherThreadFreesIt) {
    SCR::ScriptMutexes mutexes;
    for (const bool isDestroyed : {false, true}) {
        const long mutex = mutexes.create();
        ASSERT_TRUE(mutexes.acquire(mutex));
        std::atomic<bool> isFree = false;
        bool wasFree = false;
        std::thread other([&] {
            mutexes.acquire(mutex);
            wasFree = isFree;
        });
        std::this_thread::sleep_for(20ms);
        isFree = true;
        EXPECT_TRUE(isDestroyed ? mutexes.destroy(mutex) : mutexes.release(mutex));
        other.join();
        EXPECT_TRUE(wasFree);
    }
}

// Signals that do nothing except interrupt system calls.
TEST(Waiting, SignalsDisturbNothing) {
    const Harness::Folder folder;
    const std::string file = folder.path("file");
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, &before);
    const itimerval often{{0, 100}, {0, 100}};
    setitimer(ITIMER_REAL, &often, nullptr);
    const Harness::ScriptRun result = Harness::run(
        R"(String out;
           Long status = system("for i in 1 2 3; do echo $i; sleep 0.05; done; exit 5", out);
           logStdout(longToStr(status) + out);
           system("head -c 3000000 /dev/zero > )" +
        file + R"(");
           if (fileCopy(")" +
        file + R"(", "/dev/null")) logStdout("copied");)");
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before, nullptr);
    EXPECT_EQ(result.output, "51\n2\n3\ncopied");
}

TEST(Waiting, ACommandHasSignalsOfItsOwn) {
    constexpr int signals[] = {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM, SIGUSR1};
    sigset_t blocked;
    sigemptyset(&blocked);
    for (const int signal : signals) {
        std::signal(signal, SIG_IGN);
        sigaddset(&blocked, signal);
    }
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    // The C library's own signals come before the last seven digits.
    const Harness::ScriptRun result = Harness::run(
        R"(String out; logStdout(longToStr(system(
               "exec sed -n 's/^Sig\\(Blk\\|Ign\\):.*\\(.......\\)$/\\1 \\2/p' /proc/self/status",
               out)) + " " + out);)");
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    for (const int signal : signals) std::signal(signal, SIG_DFL);
    // Bit 0 is SIGHUP, which tells programs to outlive their terminal.
    EXPECT_EQ(result.output, "0 Blk 0000000\nIgn 0000001\n");
}

TEST(Waiting, ACommandWhoseStatusAnotherTookHasNone) {
    struct sigaction ignore {};
    struct sigaction before {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGCHLD, &ignore, &before);
    const Harness::ScriptRun result =
        Harness::run(R"(String out; logStdout(longToStr(system("echo text", out)) + out);)");
    sigaction(SIGCHLD, &before, nullptr);
    EXPECT_EQ(result.output, "-1text\n");
}

}  // namespace
