#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"

namespace SCR {

/// Where scripts print: what `logStdout` writes to. Hosts derive from it and give it to an
/// interpreter by `Interpreter::output`, which does not own it. It is called on the thread that
/// uses the interpreter; one shared by interpreters of several threads must lock.
class KESTREL_API Output {
public:
    Output() = default;
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    virtual ~Output();

    /// Takes the bytes of `text` as they are, after those of earlier calls; the view ends with the
    /// call. True when all of them were taken, be it into a buffer. False otherwise, with errno
    /// telling why: the interpreter notes that (see `OutputFailures`) and the script goes on,
    /// unless it has to stop. One that waits gives up so, with EINTR, once `RunControl::mustStop`
    /// says that the script has to stop.
    virtual bool write(std::string_view text) = 0;
    /// Lets out what `write` keeps; without waiting unless `mayWait`. `Interpreter::finish` calls
    /// it. False, with errno set, when not all of it arrived; EAGAIN for what would have to wait.
    /// The base keeps nothing and gives true.
    virtual bool flush(bool mayWait);
};

/// The output of interpreters that were given none: the stream `stdout` of the C library, in whose
/// buffer the text joins what the host prints. A wait for its reader ends when the script that the
/// calling thread runs has to stop; what the stream held before stays in it then. A pipe or socket
/// without a reader gives EPIPE and no signal. Any thread.
KESTREL_API Output& standardOutput();

/// An output that did not take all that was written to it.
struct OutputFailure {
    /// The file as the script named it; "standard output" for that of `logStdout`.
    FND::String name;
    /// The cause, as errno tells it.
    int error = 0;
};

/// What became known of outputs that failed: while `logStdout` wrote to its output or
/// `Interpreter::finish` flushed that, and as a file was closed that had not taken all that was
/// written to it. Thread rule of the interpreter.
class KESTREL_API OutputFailures {
public:
    /// The most that are told apart.
    static constexpr std::size_t mostCM = 20;

    /// Notes a failure. Without memory it is counted only.
    void add(std::string_view name, int error) noexcept;
    /// Notes those of `others`.
    void add(const OutputFailures& others) noexcept;

    bool empty() const { return count_ == 0; }
    /// How many there were.
    std::int64_t count() const { return count_; }
    /// The first ones, at most `mostCM`; each name is there once with an error.
    const std::vector<OutputFailure>& first() const { return first_; }
    void clear() noexcept;

private:
    std::vector<OutputFailure> first_;
    std::int64_t count_ = 0;
};

}  // namespace SCR
