#include "scr/os/ShellCommand.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace SCR {

namespace {

using namespace std::chrono_literals;

constexpr const char* shellS = "/bin/sh";

// Sends `signal` to `process` and to its known descendants.
void signalFamily(pid_t process, int signal) {
    std::vector<pid_t> family{process};
    for (std::size_t i = 0; i < family.size(); ++i) {
        // The task directory of a process contains that of its first thread, which has the same
        // number.
        std::string path = "/proc/" + std::to_string(family[i]);
        path.append("/task/").append(std::to_string(family[i])).append("/children");
        std::ifstream children(path);
        for (pid_t child = 0; children >> child;) family.push_back(child);
    }
    for (const pid_t member : family) kill(member, signal);
}

}  // namespace

ShellCommand::ShellCommand(const FND::String& command) {
    const char* const arguments[] = {"sh", "-c", "--", command.c_str(), nullptr};
    open(shellS, arguments);
}

ShellCommand::ShellCommand(const std::vector<FND::String>& arguments) {
    std::vector<const char*> list;
    list.reserve(arguments.size() + 1);
    for (const FND::String& argument : arguments) list.push_back(argument.c_str());
    list.push_back(nullptr);
    if (!arguments.empty()) open(list[0], list.data());
}

void ShellCommand::open(const char* program, const char* const* arguments) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    output_ = ends[0];
    fcntl(output_, F_SETFL, O_NONBLOCK);
    start(program, arguments, ends[1]);
    close(ends[1]);
}

void ShellCommand::start(const char* program, const char* const* arguments, int output) {
    posix_spawn_file_actions_t actions;
    if (posix_spawn_file_actions_init(&actions) != 0) return;
    posix_spawnattr_t attributes;
    if (posix_spawnattr_init(&attributes) == 0) {
        // Signals that a host ignores or blocks would stay so in all programs that the command
        // starts: `yes | head` would not end. Only SIGHUP stays ignored, for commands that should
        // outlive a terminal.
        sigset_t defaults;
        sigset_t blocked;
        sigfillset(&defaults);
        sigdelset(&defaults, SIGHUP);
        sigemptyset(&blocked);
        if (posix_spawnattr_setsigdefault(&attributes, &defaults) != 0 ||
            posix_spawnattr_setsigmask(&attributes, &blocked) != 0 ||
            posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK) !=
                0 ||
            posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO) != 0 ||
            posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1) != 0 ||
            posix_spawnp(&process_, program, &actions, &attributes, const_cast<char**>(arguments),
                         environ) != 0) {
            process_ = -1;
        }
        posix_spawnattr_destroy(&attributes);
    }
    posix_spawn_file_actions_destroy(&actions);
}

ShellCommand::~ShellCommand() {
    closeOutput();
    if (!isStarted()) return;
    for (const int signal : {SIGTERM, SIGKILL}) {
        if (isEnded_) return;
        try {
            signalFamily(process_, signal);
        } catch (const std::bad_alloc&) {
            kill(process_, signal);
        }
        wait(signal == SIGTERM ? 100ms : 500ms);
    }
}

std::optional<std::size_t> ShellCommand::read(char* buffer, std::size_t size, Duration duration) {
    for (bool isReady = false;; isReady = true) {
        const ssize_t length = ::read(output_, buffer, size);
        if (length >= 0) return static_cast<std::size_t>(length);
        if (errno != EAGAIN && errno != EINTR) return 0;
        if (isReady) return std::nullopt;
        pollfd readable{output_, POLLIN, 0};
        if (poll(&readable, 1, static_cast<int>(duration.count())) <= 0) return std::nullopt;
    }
}

std::optional<int> ShellCommand::wait(Duration duration) {
    const auto end = std::chrono::steady_clock::now() + duration;
    std::chrono::nanoseconds pause = 50us;
    for (;;) {
        int status = 0;
        const pid_t ended = waitpid(process_, &status, WNOHANG);
        isEnded_ = ended == process_ || (ended < 0 && errno != EINTR);
        if (isEnded_) return ended == process_ ? status : -1;
        if (std::chrono::steady_clock::now() >= end) return std::nullopt;
        std::this_thread::sleep_for(pause);
        pause = std::min<std::chrono::nanoseconds>(2 * pause, 20ms);
    }
}

void ShellCommand::closeOutput() {
    if (output_ >= 0) close(output_);
    output_ = -1;
}

}  // namespace SCR
