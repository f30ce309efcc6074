// Where scripts print and write, and how failures of outputs become known.

#include <stdio_ext.h>

#include "Examples.h"
#include "Script.h"
#include "scr/Output.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using SCR::Interpreter;

/// Takes `room` bytes, slowly.
class HostOutput final : public SCR::Output {
public:
    bool write(std::string_view given) override {
        std::this_thread::sleep_for(pause);
        if (text.size() + given.size() > room) {
            errno = ENOSPC;
            return false;
        }
        text += given;
        return true;
    }
    bool flush(bool /*mayWait*/) override {
        text += '|';
        errno = EIO;
        return text.size() <= room;
    }

    std::string text;
    std::size_t room = 1000;
    std::chrono::milliseconds pause{0};
};

// The failures as "name error", each with a semicolon.
std::string failuresOf(Interpreter& interpreter) {
    std::string text;
    for (const SCR::OutputFailure& failure : interpreter.outputFailures().first()) {
        text += failure.name + ' ' + std::to_string(failure.error) + ';';
    }
    return text;
}

TEST(OutputTest, AHostMayTakeWhatScriptsPrint) {
    Harness::MemoryLog log;
    HostOutput output;
    {
        Interpreter interpreter(&log);
        interpreter.output(&output);
        ASSERT_TRUE(
            interpreter.compile("function BEGIN { logStdout(\"begin \"); }"
                                "function END { logStdout(\" end\"); }"
                                "logStdout(\"\"); logStdout(\"a\" + \"b\");"));
        EXPECT_TRUE(interpreter.execute() && interpreter.execute());
        output.room = output.text.size() + 2;
        EXPECT_TRUE(interpreter.execute());
        EXPECT_TRUE(interpreter.execute());  // fails, and the script goes on
        EXPECT_TRUE(interpreter.finish());   // so does this
        EXPECT_EQ(output.text, "begin ababab|");
        EXPECT_EQ(interpreter.outputFailures().count(), 3);
        EXPECT_EQ(failuresOf(interpreter), "standard output " + std::to_string(ENOSPC) +
                                               ";standard output " + std::to_string(EIO) + ';');
        interpreter.outputFailures().clear();
        EXPECT_TRUE(interpreter.outputFailures().empty());
    }
    EXPECT_EQ(output.text, "begin ababab|") << "nothing was printed since";

    Interpreter interpreter(&log);
    interpreter.output(&output);
    interpreter.limits({.time = 20});
    output.pause = 5ms;
    ASSERT_TRUE(interpreter.compile("Long i; for (i = 0; i < 100; i = i + 1) logStdout(\"\");"));
    const auto before = Clock::now();
    EXPECT_FALSE(interpreter.execute());
    EXPECT_LT(Clock::now() - before, 200ms);
}

TEST(OutputTest, WhatAFileDidNotTakeIsKnownOnceItIsClosed) {
    const Harness::ExampleFolder folder;
    const std::string full = "/dev/full " + std::to_string(ENOSPC) + ';';
    const std::string open = "File f; fileOpen(f, \"/dev/full\", \"w\"); ";
    const std::string element = "File f{}; fileOpen(f{\"a\"}, \"/dev/full\", \"w\"); ";
    const struct {
        std::string script;
        std::string failures;  // after the execution
        std::string atEnd;     // the further failures at the end
    } rows[] = {
        {open + "fileWriteStr(f, \"x\"); fileClose(f);", full, ""},
        {open + "fileWriteStr(f, \"x\"); fileOpen(f, \"other\", \"w\");", full, ""},
        {open + "fileWriteStr(f, \"x\"); fileSeek(f, 0); fileClose(f);", full, ""},
        {open + "fileWriteLong(f, 1); fileFlush(f);", "", full},
        {open + "fileWriteStr(f, \"x\");", "", full},
        {open + "fileClose(f);", "", ""},
        {element + "fileWriteStr(f{\"a\"}, \"x\"); hashRemove(f, \"a\");", full, ""},
        {"File f[]; fileOpen(f[9], \"/dev/full\", \"w\"); fileWriteStr(f[9], \"x\");"
         "arrayClear(f);",
         full, ""},
        {element + "fileWriteStr(f{\"a\"}, \"x\");", "", full},
        {"File f; fileOpen(f, \"new\", \"w\"); fileOpen(f, \"new\", \"r\"); fileWriteStr(f, "
         "\"x\");",
         "", ""},
        {"File f; fileOpen(f, \"new\", \"w\"); String s; fileReadLine(f, s, 9);", "", ""},
    };
    for (const auto& row : rows) {
        for (const bool isRecompiled : {false, true}) {
            Harness::MemoryLog log;
            Interpreter interpreter(&log);
            ASSERT_TRUE(interpreter.compile(row.script)) << row.script << log.text;
            EXPECT_TRUE(interpreter.execute()) << row.script;
            EXPECT_EQ(failuresOf(interpreter), row.failures) << row.script;
            EXPECT_TRUE(isRecompiled ? interpreter.compile("") : interpreter.finish());
            EXPECT_EQ(failuresOf(interpreter), row.failures + row.atEnd) << row.script;
            EXPECT_EQ(log.text, "");
        }
    }
    SCR::Log log;
    Interpreter interpreter(&log);
    ASSERT_TRUE(
        interpreter.compile("File f[]; Long i; for (i = 0; i < 30; i = i + 1) {"
                            "fileOpen(f[i], strPad(\"\", \"/\", i, true) + \"/dev/full\", "
                            "\"w\"); fileWriteStr(f[i], \"x\"); }"));
    EXPECT_TRUE(interpreter.execute() && interpreter.finish());
    EXPECT_EQ(interpreter.outputFailures().count(), 30);
    EXPECT_EQ(interpreter.outputFailures().first().size(), SCR::OutputFailures::mostCM);
}

/// A pipe in place of standard output.
class PipedOutput {
public:
    PipedOutput() : saved_(dup(STDOUT_FILENO)) {
        std::fflush(stdout);
        EXPECT_EQ(pipe(ends_), 0);
        dup2(ends_[1], STDOUT_FILENO);
        close(ends_[1]);
    }
    PipedOutput(const PipedOutput&) = delete;
    PipedOutput& operator=(const PipedOutput&) = delete;
    ~PipedOutput() {
        __fpurge(stdout);
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
        closeReader();
    }
    void closeReader() {
        if (ends_[0] >= 0) close(ends_[0]);
        ends_[0] = -1;
    }
    std::string read() const {
        std::string text(1 << 20, '\0');
        const ssize_t length = ::read(ends_[0], text.data(), text.size());
        text.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
        return text;
    }

private:
    const int saved_;
    int ends_[2]{-1, -1};
};

TEST(OutputTest, APipeThatNobodyReadsKeepsNoScriptWaiting) {
    const std::string scripts[] = {
        "while (true) logStdout(\"a line\\n\");",
        "logStdout(strPad(\"\", \"x\", 10000000, true));",
        "Long i; for (i = 0; i < 7000; i = i + 1) logStdout(\"xxxxxxxxxx\");",
    };
    for (const std::string& script : scripts) {
        for (const bool isInterrupted : {false, true}) {
            SCOPED_TRACE(script);
            Harness::MemoryLog log;
            const PipedOutput pipe;
            Interpreter interpreter(&log);
            interpreter.limits({.time = isInterrupted ? SCR::Limits::none : 50});
            ASSERT_TRUE(interpreter.compile(script));
            std::thread other([&] {
                std::this_thread::sleep_for(100ms);
                if (isInterrupted) interpreter.interrupt();
            });
            const auto before = Clock::now();
            EXPECT_FALSE(interpreter.execute());
            interpreter.finish();
            EXPECT_LT(Clock::now() - before, 1050ms);
            other.join();
            EXPECT_NE(log.text.find(isInterrupted ? "interrupted" : "limit `time'"),
                      std::string::npos)
                << log.text;
            EXPECT_NE(failuresOf(interpreter).find(std::to_string(EINTR)), std::string::npos);
            EXPECT_GT(pipe.read().size(), 50000U);
        }
    }
}

TEST(OutputTest, APipeThatIsClosedEndsNoHost) {
    PipedOutput pipe;
    pipe.closeReader();
    Harness::MemoryLog log;
    Interpreter interpreter(&log);
    ASSERT_TRUE(
        interpreter.compile("Long i; for (i = 0; i < 2000; i = i + 1) logStdout(\"text\");"
                            "logStdout(\"short\");"));
    EXPECT_TRUE(interpreter.execute() && interpreter.finish()) << log.text;
    EXPECT_EQ(failuresOf(interpreter), "standard output " + std::to_string(EPIPE) + ';');
    EXPECT_EQ(__fpending(stdout), 0U);  // the end of the process would write it
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
}

TEST(OutputTest, PrintsKeepTheirPlaceAmongThoseOfTheHost) {
    const std::string size = "5000";
    for (const int mode : {_IOFBF, _IOLBF, _IONBF}) {
        const Harness::StdoutCapture capture;
        std::setvbuf(stdout, nullptr, mode, 0);
        SCR::Log log;
        Interpreter interpreter(&log);
        ASSERT_TRUE(interpreter.compile("logStdout(\"a\\nb\"); logStdout(strPad(\"\", \"x\", " +
                                        size + ", true)); logStdout(\"c\\n\");"));
        std::string expected;
        for (int turn = 0; turn < 3; ++turn) {
            std::fputs("host ", stdout);
            EXPECT_TRUE(interpreter.execute());
            expected += "host a\nb" + std::string(5000, 'x') + "c\n";
        }
        EXPECT_EQ(capture.text(), expected);
        std::setvbuf(stdout, nullptr, _IOFBF, 0);
    }
}

}  // namespace
