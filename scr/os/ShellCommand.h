#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <vector>

#include <sys/types.h>

#include "fnd/Export.h"
#include "fnd/String.h"

namespace SCR {

/// A command that the system's shell runs, or a program, with its standard output piped to this
/// process. It shares standard input, standard error and environment with this process and inherits
/// no other open file. No signal is blocked in it. None is ignored except SIGHUP, if this process
/// ignores it. Used by one thread.
class KESTREL_API ShellCommand {
public:
    using Duration = std::chrono::milliseconds;

    /// Starts the shell with `command`, up to its first NUL.
    explicit ShellCommand(const FND::String& command);
    /// Starts a program: the first argument, looked for in the folders of PATH. No shell takes
    /// part.
    explicit ShellCommand(const std::vector<FND::String>& arguments);
    ShellCommand(const ShellCommand&) = delete;
    ShellCommand& operator=(const ShellCommand&) = delete;
    /// Ends a command that still runs, and the processes that it started: asks them to end, and
    /// kills them if the shell still runs a tenth of a second later.
    ~ShellCommand();

    /// Whether the shell or the program was started.
    bool isStarted() const { return process_ > 0; }

    /// Reads at most `size` bytes of output into `buffer`, waiting for at most `duration`. Gives
    /// how many; 0 at the end of the output; nothing when no output came in time.
    std::optional<std::size_t> read(char* buffer, std::size_t size, Duration duration);

    /// Waits for the end of the shell, at most `duration`. Gives its status, as the C library
    /// encodes it, or -1 when the status is unknown; nothing when it still runs.
    std::optional<int> wait(Duration duration);

private:
    void open(const char* program, const char* const* arguments);
    void start(const char* program, const char* const* arguments, int output);
    void closeOutput();

    int output_ = -1;
    pid_t process_ = -1;
    bool isEnded_ = false;
};

}  // namespace SCR
