// Jobs on records when the system fails them: failing reads and writes, signals, damaged files. No
// record is lost unnoticed, and a named output file appears whole or not at all.

#include <sys/syscall.h>

#include "Folder.h"
#include "Script.h"
#include "records/RecordJob.h"
#include "records/read/StopSignal.h"

namespace {

namespace fs = std::filesystem;
using Records::RecordJob;

/// The faults of system calls. An error of 0 means no fault.
struct Faults {
    std::size_t readPiece = 0;      ///< A read gives at most this many bytes; 0: no limit.
    int readPause = 0;              ///< The error of every other read.
    std::size_t readsUntilEnd = 0;  ///< After this many bytes,
    int readEnd = 0;                ///< every read fails with this error.
    std::size_t writePiece = 0;
    int writePause = 0;
    std::size_t writesUntilEnd = 0;
    int writeEnd = 0;
    int sync = 0;
    int rename = 0;
};

Faults faultsS;
std::size_t bytesReadS = 0;
std::size_t bytesWrittenS = 0;

// The error of a call, 0 for none; reduces `size`.
int faultOf(std::size_t& size, std::size_t piece, int pause, bool& pauses, std::size_t& done,
            std::size_t until, int end) {
    pauses = !pauses;
    if (pause != 0 && pauses) return pause;
    if (piece != 0) size = std::min(size, piece);
    if (end != 0) {
        if (done >= until) return end;
        size = std::min(size, until - done);
    }
    done += size;
    return 0;
}

}  // namespace

// The system calls of the program come here.

extern "C" ssize_t read(int file, void* to, size_t size) {
    static bool pauses = false;
    errno = faultOf(size, faultsS.readPiece, faultsS.readPause, pauses, bytesReadS,
                    faultsS.readsUntilEnd, faultsS.readEnd);
    return errno != 0 ? -1 : ::syscall(SYS_read, file, to, size);
}

extern "C" ssize_t write(int file, const void* from, size_t size) {
    static bool pauses = false;
    errno = faultOf(size, faultsS.writePiece, faultsS.writePause, pauses, bytesWrittenS,
                    faultsS.writesUntilEnd, faultsS.writeEnd);
    return errno != 0 ? -1 : ::syscall(SYS_write, file, from, size);
}

extern "C" int fsync(int /*file*/) {
    errno = faultsS.sync;
    return errno != 0 ? -1 : 0;
}

extern "C" int rename(const char* from, const char* to) noexcept {
    errno = faultsS.rename;
    return errno != 0 ? -1
                      : static_cast<int>(::syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

namespace {

std::string records(int count) {
    std::string text;
    for (int i = 0; i < count; ++i) text += std::to_string(i) + ",some text\n";
    return text;
}

class RecordFaults : public testing::Test {
protected:
    std::string path(const std::string& name) const { return folder_.path(name); }
    std::set<std::string> files() const {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder_.path())) {
            names.insert(entry.path().filename());
        }
        return names;
    }

    // The job from "in" to "out" with rejected records in "rejects".
    Records::JobOptions options(int jobs) const {
        Records::JobOptions options;
        options.input = path("in");
        options.output = path("out");
        options.rejects = path("rejects");
        options.jobs = jobs;
        return options;
    }

    static RecordJob::End run(RecordJob& job, const std::string& script) {
        Harness::MemoryLog log;
        return job.run(
            log, [](SCR::Log& to) { return std::make_unique<SCR::Interpreter>(&to); },
            [&](SCR::Interpreter& interpreter) { return interpreter.compile(script); });
    }

    Harness::Folder folder_;
};

TEST_F(RecordFaults, CallsOfTheSystemMayFail) {
    using End = RecordJob::End;
    const struct {
        const char* name;
        Faults faults;
        End end;
        const char* error;  // after the path
    } rows[] = {
        {"short reads", {.readPiece = 3}, End::Done, ""},
        {"interrupted reads", {.readPiece = 500, .readPause = EINTR}, End::Done, ""},
        {"reads that would wait", {.readPiece = 500, .readPause = EAGAIN}, End::Done, ""},
        {"bad", {.readsUntilEnd = 50'000, .readEnd = EIO}, End::Failed, "in: Input/output error"},
        {"short writes", {.writePiece = 7}, End::Done, ""},
        {"interrupted writes", {.writePiece = 900, .writePause = EINTR}, End::Done, ""},
        {"writes that would wait", {.writePiece = 900, .writePause = EAGAIN}, End::Done, ""},
        {"full",
         {.writesUntilEnd = 90'000, .writeEnd = ENOSPC},
         End::Failed,
         "out: No space left on device"},
        {"a closed pipe", {.writesUntilEnd = 80'000, .writeEnd = EPIPE}, End::Closed, ""},
        {"a failing sync", {.sync = EIO}, End::Failed, "out: Input/output error"},
        {"a failing rename", {.rename = EACCES}, End::Failed, "out: Permission denied"},
    };
    const std::string text = records(20'000);
    folder_.write("in", text);
    for (const int jobs : {1, 4}) {
        for (const auto& row : rows) {
            SCOPED_TRACE(std::string(row.name) + ", jobs " + std::to_string(jobs));
            Records::StopSignal stop;
            RecordJob job(options(jobs), stop);
            bytesReadS = bytesWrittenS = 0;
            faultsS = row.faults;
            const End end = run(job, "if (edrLong(f1) == 7) recordReject(\"7\");");
            faultsS = {};
            const Records::Counts& counts = job.counts();
            EXPECT_EQ(counts.read, counts.written + counts.rejected);
            EXPECT_EQ(end, row.end) << job.error();
            if (end == End::Done) {
                EXPECT_EQ(counts.read, 20'000);
                EXPECT_EQ(folder_.read("out").size() + std::string("7,some text\n").size(),
                          text.size());
                EXPECT_EQ(folder_.read("rejects"), path("in") + ":8: 7\t7,some text\n");
                fs::remove(path("out"));
                fs::remove(path("rejects"));
            } else if (*row.error != '\0') {
                EXPECT_EQ(job.error(), path(row.error));
            }
        }
        EXPECT_EQ(files(), std::set<std::string>{"in"});
    }
}

/// A running kestrel command whose standard input is a pipe.
class Command {
public:
    /// Standard error is a pipe, or the second side of the pseudo-terminal `terminal`.
    Command(const Harness::Folder& folder, std::vector<std::string> arguments,
            std::array<int, 2> terminal = {-1, -1}) {
        arguments.insert(arguments.begin(), KESTREL_COMMAND);
        std::vector<char*> argv;
        for (std::string& argument : arguments) argv.push_back(argument.data());
        argv.push_back(nullptr);
        int ends[3][2];
        for (auto& pair : ends) EXPECT_EQ(pipe2(pair, O_CLOEXEC), 0);
        for (int side = 0; side < 2 && terminal[0] >= 0; ++side) {
            close(ends[2][side]);
            ends[2][side] = terminal[side];
        }
        std::signal(SIGPIPE, SIG_IGN);  // that nobody reads is a fault that a test reports
        process_ = fork();
        if (process_ == 0) {
            std::signal(SIGPIPE, SIG_DFL);
            if (chdir(folder.path().c_str()) == 0 && dup2(ends[0][0], STDIN_FILENO) >= 0 &&
                dup2(ends[1][1], STDOUT_FILENO) >= 0 && dup2(ends[2][1], STDERR_FILENO) >= 0) {
                alarm(60);
                execv(argv[0], argv.data());
            }
            _exit(127);
        }
        close(ends[0][0]);
        close(ends[1][1]);
        close(ends[2][1]);
        input_ = ends[0][1];
        output_ = ends[1][0];
        messages_ = ends[2][0];
    }
    ~Command() {
        endInput();
        endOutput();
        close(messages_);
        if (process_ > 0) {
            ::kill(process_, SIGKILL);
            wait();
        }
    }

    void give(const std::string& text) const {
        EXPECT_EQ(::write(input_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    void endInput() { closeOnce(input_); }
    void endOutput() { closeOnce(output_); }
    void kill(int signal) const { ::kill(process_, signal); }
    /// `size` bytes of its output, or those up to the end.
    std::string output(std::size_t size) const { return take(output_, size); }
    std::string messages() const { return take(messages_, std::string::npos); }
    /// Its exit status, or 128 and the signal that ended it.
    int wait() {
        int status = 0;
        waitpid(process_, &status, 0);
        process_ = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

private:
    static void closeOnce(int& file) {
        if (file >= 0) close(file);
        file = -1;
    }
    static std::string take(int file, std::size_t size) {
        std::string text;
        char bytes[4096];
        while (text.size() < size) {
            const ssize_t count = ::read(file, bytes, std::min(sizeof bytes, size - text.size()));
            if (count <= 0) break;  // a terminal that nobody has open gives an error
            text.append(bytes, static_cast<std::size_t>(count));
        }
        return text;
    }

    pid_t process_ = 0;
    int input_ = -1;
    int output_ = -1;
    int messages_ = -1;
};

// Waits some seconds for `condition` to become true, and tells whether it did.
template <class Condition>
bool comesTrue(const Condition& condition) {
    for (int i = 0; i < 5000; ++i) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return false;
}

TEST_F(RecordFaults, SignalsEndAJobAfterARecord) {
    const std::string text = records(1000);
    for (const char* const jobs : {"1", "4"}) {
        for (const int signal : {SIGINT, SIGTERM, SIGKILL}) {
            SCOPED_TRACE(std::string(jobs) + " jobs, signal " + std::to_string(signal));
            const bool isKilled = signal == SIGKILL;
            {
                Command command(folder_, {"run", "-e", "", "--records", "-", "--jobs", jobs});
                command.give(text);
                EXPECT_EQ(command.output(text.size()), text);
                command.kill(signal);
                EXPECT_EQ(command.wait(), isKilled ? 128 + signal : 4);
                EXPECT_EQ(command.messages(),
                          isKilled ? "" : "kestrel: interrupted after 1000 records\n");
                EXPECT_EQ(command.output(1), "");
            }
            folder_.write("out", "old\n");
            Command command(folder_, {"run", "-e", "", "--records", "-", "--jobs", jobs, "--output",
                                      "out", "--stats"});
            command.give(text);
            EXPECT_TRUE(comesTrue([&] {
                for (const std::string& name : files()) {
                    if (name != "out" && fs::file_size(path(name)) == text.size()) return true;
                }
                return false;
            }));
            command.kill(signal);
            EXPECT_EQ(command.wait(), isKilled ? 128 + signal : 4);
            EXPECT_EQ(folder_.read("out"), "old\n");
            if (isKilled) {
                // The next job removes what is left.
                EXPECT_EQ(files().size(), 2U);
                Command next(folder_,
                             {"run", "-e", "", "--records", "/dev/null", "--output", "out"});
                EXPECT_EQ(next.wait(), 0);
                EXPECT_EQ(files(), std::set<std::string>{"out"});
            } else {
                EXPECT_EQ(files(), std::set<std::string>{"out"});
                EXPECT_EQ(command.messages(),
                          "kestrel: interrupted after 1000 records; out is as it was before\n"
                          "kestrel: records: 1000 read, "
                          "1000 written, 0 dropped, 0 rejected\n");
            }
        }
    }
}

TEST_F(RecordFaults, ASignalStopsAJobThatIsAtWork) {
    // The records are already there; the job is somewhere among them.
    const std::string text = records(200'000);
    folder_.write("in", text);
    for (const char* const jobs : {"1", "4"}) {
        Command command(folder_, {"run", "-e", "Long i; for (i = 0; i < 1000; i = i + 1) {}",
                                  "--records", "in", "--jobs", jobs, "--stats"});
        std::string output = command.output(1);
        command.kill(SIGTERM);
        output += command.output(std::string::npos);
        EXPECT_EQ(command.wait(), 4);
        EXPECT_LT(output.size(), text.size());
        EXPECT_EQ(output, text.substr(0, output.size()));
        EXPECT_TRUE(output.ends_with('\n'));
        const std::string count = std::to_string(std::count(output.begin(), output.end(), '\n'));
        EXPECT_EQ(command.messages(), "kestrel: interrupted after " + count +
                                          " records\nkestrel: records: " + count + " read, " +
                                          count + " written, 0 dropped, 0 rejected\n");
    }
}

TEST_F(RecordFaults, ASignalStopsAnEndThatNobodyReads) {
    folder_.write("in", records(1));
    for (const char* const script :
         {"function BEGIN { while (true) {} }", "function END { while (true) {} }"}) {
        Command command(folder_, {"run", "-e", script, "--records", "in"});
        // Sanitizers take long to start.
        std::this_thread::sleep_for(std::chrono::milliseconds(KESTREL_SANITIZED ? 900 : 100));
        command.kill(SIGTERM);
        EXPECT_EQ(command.wait(), 4);
    }
    Command command(folder_, {"run", "-e", "function END { while (true) { logStdout(\"x\"); } }",
                              "--records", "in", "--output", "/dev/null"});
    EXPECT_EQ(command.output(2), "xx");
    command.kill(SIGTERM);
    EXPECT_EQ(command.wait(), 4);
    EXPECT_NE(command.messages().find("script stopped: interrupted"), std::string::npos);
}

TEST_F(RecordFaults, NobodyReadsTheOutputAnyMore) {
    folder_.write("in", records(20'000));
    for (const char* const jobs : {"1", "4"}) {
        Command command(folder_, {"run", "-e", "", "--records", "in", "--jobs", jobs});
        EXPECT_EQ(command.output(12), "0,some text\n");
        command.endOutput();
        EXPECT_EQ(command.wait(), 74);
        EXPECT_EQ(command.messages(), "");
        Command prints(folder_, {"run", "-e", "logStdout(\"xxxxxxxx\");", "--records", "in",
                                 "--jobs", jobs, "--output", "/dev/null"});
        EXPECT_EQ(prints.output(2), "xx");
        prints.endOutput();
        EXPECT_EQ(prints.wait(), 74);
        EXPECT_EQ(prints.messages(), "");
    }
    Command command(folder_, {"run", "-e", "while (true) { logStdout(\"x\"); }"});
    EXPECT_EQ(command.output(2), "xx");
    command.endOutput();
    EXPECT_EQ(command.wait(), 128 + SIGPIPE);
    EXPECT_EQ(command.messages(), "");
}

TEST_F(RecordFaults, ADeviceIsWrittenDirectlyAndStays) {
    folder_.write("in", records(10));
    Command command(folder_, {"run", "-e", "", "--records", "in", "--output", "/dev/full"});
    EXPECT_EQ(command.wait(), 74);
    EXPECT_EQ(command.messages(), "kestrel: /dev/full: No space left on device\n");
    EXPECT_TRUE(fs::is_character_file("/dev/full"));
}

TEST_F(RecordFaults, ProgressIsShownToATerminalOnly) {
    for (const bool isTerminal : {false, true}) {
        std::array<int, 2> terminal{-1, -1};
        if (isTerminal) {
            constexpr int flags = O_RDWR | O_NOCTTY | O_CLOEXEC;
            terminal[0] = posix_openpt(flags);
            if (grantpt(terminal[0]) == 0 && unlockpt(terminal[0]) == 0) {
                terminal[1] = open(ptsname(terminal[0]), flags);
            }
            if (terminal[1] < 0) GTEST_SKIP() << "no pseudo-terminal is to be had";
        }
        Command command(folder_, {"run", "-e", "", "--records", "-", "--progress"}, terminal);
        command.give(records(10));
        command.output(5);
        if (isTerminal) std::this_thread::sleep_for(std::chrono::milliseconds(520));
        command.give(records(10));
        command.endInput();
        command.output(std::string::npos);
        EXPECT_EQ(command.wait(), 0);
        const std::string messages = command.messages();
        EXPECT_EQ(messages.find(" records, ") != std::string::npos, isTerminal) << messages;
        EXPECT_EQ(messages.ends_with("\r\x1b[K"), isTerminal) << testing::PrintToString(messages);
        EXPECT_EQ(messages.empty(), !isTerminal);
    }
}

}  // namespace
