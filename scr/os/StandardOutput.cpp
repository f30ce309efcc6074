#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <string_view>

#include <fcntl.h>
#include <poll.h>
#include <stdio_ext.h>
#include <sys/single_threaded.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "scr/Output.h"
#include "scr/os/PipeGuard.h"
#include "scr/run/RunControl.h"

namespace SCR {

namespace {

/// Locks a stream against other threads while it lives.
class StreamLock {
public:
    explicit StreamLock(std::FILE* stream)
        : stream_(__libc_single_threaded != 0 ? nullptr : stream) {
        if (stream_ != nullptr) flockfile(stream_);
    }
    StreamLock(const StreamLock&) = delete;
    StreamLock& operator=(const StreamLock&) = delete;
    ~StreamLock() {
        if (stream_ != nullptr) funlockfile(stream_);
    }

private:
    std::FILE* const stream_;  // null without other threads
};

/// Writes to an open file without waiting longer than the script may run, or not at all.
class StoppableFile {
public:
    explicit StoppableFile(int handle, bool mayWait = true)
        : handle_(handle), mayWait_(mayWait), control_(RunControl::current()) {
        struct stat status {};
        if (fstat(handle, &status) != 0) return;
        constexpr unsigned memoryDevices = 1;  // such as /dev/null
        isSocket_ = S_ISSOCK(status.st_mode);
        isPipe_ = S_ISFIFO(status.st_mode);
        isTerminal_ = S_ISCHR(status.st_mode) && major(status.st_rdev) != memoryDevices;
    }
    StoppableFile(const StoppableFile&) = delete;
    StoppableFile& operator=(const StoppableFile&) = delete;
    ~StoppableFile() {
        if (own_ >= 0) close(own_);
    }

    /// Writes `text` and removes from its front what was written; true when everything was.
    bool write(std::string_view& text) {
        const PipeGuard guard(isPipe_);
        while (!text.empty()) {
            // When a pipe has room, it has room for PIPE_BUF bytes.
            const bool asksFirst = isPipe_ || (isTerminal_ && !opensOwn());
            if (asksFirst && !waitUntilWritable()) return false;
            const ssize_t length = writeSome(text.substr(0, asksFirst ? PIPE_BUF : pieceSizeCM));
            if (length > 0) {
                text.remove_prefix(static_cast<std::size_t>(length));
                if (!text.empty() && mustStop()) return false;
            } else if (length < 0 && errno == EAGAIN) {
                if (!waitUntilWritable()) return false;
            } else if (length == 0 || errno != EINTR) {
                return false;
            }
        }
        return true;
    }

private:
    static constexpr std::size_t pieceSizeCM = 256 * 1024;

    ssize_t writeSome(std::string_view text) const {
        if (isSocket_) return send(handle_, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        return ::write(own_ >= 0 ? own_ : handle_, text.data(), text.size());
    }

    // A terminal tells that it has room, but not how much. It is opened anew for this object alone,
    // so that it can be written to without waiting, and others that share it do not notice.
    bool opensOwn() {
        if (own_ >= 0) return true;
        if (hasTried_) return false;
        hasTried_ = true;
        char path[32];
        std::snprintf(path, sizeof path, "/proc/self/fd/%d", handle_);
        own_ = open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        return own_ >= 0;
    }

    bool waitUntilWritable() const {
        constexpr int stepMillis = 50;
        for (;;) {
            pollfd file{handle_, POLLOUT, 0};
            const int ready = poll(&file, 1, mayWait_ ? stepMillis : 0);
            if (ready > 0) return true;
            if (ready < 0 && errno != EINTR) return false;
            if (!mayWait_) errno = EAGAIN;
            if (!mayWait_ || mustStop()) return false;
        }
    }

    bool mustStop() const {
        if (control_ == nullptr || !control_->mustStop()) return false;
        errno = EINTR;
        return true;
    }

    const int handle_;
    const bool mayWait_;
    const RunControl* const control_;  // null outside of a run
    bool isPipe_ = false;
    bool isSocket_ = false;
    bool isTerminal_ = false;
    bool hasTried_ = false;
    int own_ = -1;
};

class StandardOutput final : public Output {
public:
    // Copying a text into the buffer is cheap. For a stream that is written out at the end of each
    // line the buffer never seems to have room.
    bool write(std::string_view text) override {
        const StreamLock lock(stdout);
        const auto room = stdout->_IO_write_end - stdout->_IO_write_ptr;
        if (static_cast<std::ptrdiff_t>(text.size()) >= room) return writeOut(text);
        std::memcpy(stdout->_IO_write_ptr, text.data(), text.size());
        stdout->_IO_write_ptr += text.size();
        return true;
    }

    bool flush(bool mayWait) override {
        const StreamLock lock(stdout);
        if (!isPlain()) return fflush_unlocked(stdout) == 0;
        StoppableFile file(fileno(stdout), mayWait);
        return drain(file);
    }

private:
    // Adds it to the buffer, which has the room.
    static bool keep(std::string_view text) {
        return fwrite_unlocked(text.data(), 1, text.size(), stdout) == text.size();
    }

    // Whether it is a byte stream on an open file. A host may have replaced it by something else.
    static bool isPlain() { return fileno(stdout) >= 0 && std::fwide(stdout, 0) <= 0; }

    static bool writeOut(std::string_view text) {
        constexpr std::size_t leastBuffer = 1024;
        // The first text gives the stream its buffer.
        const bool isFirst = __fbufsize(stdout) == 0 && text.size() < leastBuffer;
        if (isFirst || !isPlain()) return keep(text);
        StoppableFile file(fileno(stdout));
        if (!drain(file)) return false;
        const std::size_t lines = __flbf(stdout) != 0 ? text.rfind('\n') + 1 : 0;
        const bool restFits = text.size() - lines < __fbufsize(stdout);
        std::string_view direct = restFits ? text.substr(0, lines) : text;
        const std::string_view rest = text.substr(direct.size());
        return file.write(direct) && (rest.empty() || keep(rest));
    }

    // Writes what is in the buffer. What cannot be written stays there, unless nobody will ever
    // read it: closing the stream would then end the process by a signal.
    static bool drain(StoppableFile& file) {
        char* const buffer = stdout->_IO_write_base;
        std::string_view pending(buffer, __fpending(stdout));
        const bool isWritten = pending.empty() || file.write(pending);
        if (isWritten || errno == EPIPE) {
            const int error = errno;
            __fpurge(stdout);
            errno = error;
        } else {
            std::memmove(buffer, pending.data(), pending.size());
            stdout->_IO_write_ptr = buffer + pending.size();
        }
        return isWritten;
    }
};

}  // namespace

Output& standardOutput() {
    static StandardOutput outputS;
    return outputS;
}

}  // namespace SCR
