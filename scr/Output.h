#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"

namespace SCR {

/// Where scripts print: the target of `logStdout`. Hosts derive from it and give it to an
/// interpreter by `Interpreter::output`, which does not own it. It is called on the thread that
/// uses the interpreter; an output shared by interpreters of several threads must lock.
class KESTREL_API Output {
public:
    Output() = default;
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    virtual ~Output();

    /// Takes the bytes of `text` as they are, after those of earlier calls; the view is valid only
    /// during the call. True when all of them were taken, if only into a buffer. False otherwise,
    /// with the reason in errno: the interpreter notes the failure (see `OutputFailures`) and the
    /// script goes on, unless it has to stop. An output that waits gives up with EINTR when
    /// `RunControl::mustStop` says that the script has to stop.
    virtual bool write(std::string_view text) = 0;
    /// Writes out what `write` has buffered; does not wait unless `mayWait`. `Interpreter::finish`
    /// calls it. False, with errno set, when not all of it arrived; EAGAIN when the rest would have
    /// to wait. The base implementation buffers nothing and gives true.
    virtual bool flush(bool mayWait);
};

/// The default output of interpreters: the stream `stdout` of the C library, so that the text joins
/// what the host prints, in the same buffer. A wait for its reader ends when the script that the
/// calling thread runs has to stop; the stream keeps what it held before. A pipe or socket without
/// a reader gives EPIPE and no signal. Any thread.
KESTREL_API Output& standardOutput();

/// An output that did not take all that was written to it.
struct OutputFailure {
    /// The file as the script named it; "standard output" for the output of `logStdout`.
    FND::String name;
    /// The cause, as errno gives it.
    int error = 0;
};

/// The known failures of outputs: when `logStdout` wrote to its output, when `Interpreter::finish`
/// flushed it, and when a file was closed that had not taken all that was written to it. Thread
/// rule of the interpreter.
class KESTREL_API OutputFailures {
public:
    /// The largest number that is listed one by one.
    static constexpr std::size_t mostCM = 20;

    /// Notes a failure. When there is no memory, only counts it.
    void add(std::string_view name, int error) noexcept;
    /// Adds those of `others`.
    void add(const OutputFailures& others) noexcept;

    bool empty() const { return count_ == 0; }
    /// How many there were.
    std::int64_t count() const { return count_; }
    /// The first ones, at most `mostCM`; each pair of name and error appears once.
    const std::vector<OutputFailure>& first() const { return first_; }
    void clear() noexcept;

private:
    std::vector<OutputFailure> first_;
    std::int64_t count_ = 0;
};

}  // namespace SCR
