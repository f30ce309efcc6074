#include "scr/os/WaitingFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "scr/os/FileAccess.h"
#include "scr/os/PipeGuard.h"
#include "scr/run/RunControl.h"

namespace SCR {

namespace {

constexpr int stepMillisS = 50;
constexpr int stepsAfterScriptS = 100;

// Functions that the C library calls for a stream; `cookie` is the file.

ssize_t readStream(void* cookie, char* buffer, std::size_t size) {
    return static_cast<WaitingFile*>(cookie)->read(buffer, size);
}

ssize_t writeStream(void* cookie, const char* bytes, std::size_t size) {
    return static_cast<WaitingFile*>(cookie)->write(bytes, size) ? static_cast<ssize_t>(size) : 0;
}

int seekStream(void* cookie, off64_t* offset, int whence) {
    const off64_t position = lseek64(static_cast<WaitingFile*>(cookie)->handle(), *offset, whence);
    if (position < 0) return -1;
    *offset = position;
    return 0;
}

int closeStream(void* cookie) {
    const std::unique_ptr<WaitingFile> file(static_cast<WaitingFile*>(cookie));
    return file->close() ? 0 : -1;
}

}  // namespace

int WaitingFile::flagsOf(const char* mode) {
    int flags = mode[0] == 'r' ? O_RDONLY : O_WRONLY;
    if (std::strchr(mode, '+') != nullptr) flags = O_RDWR;
    if (mode[0] != 'r') flags |= O_CREAT | (mode[0] == 'w' ? O_TRUNC : O_APPEND);
    if (std::strchr(mode, 'x') != nullptr) flags |= O_EXCL;
    return flags;
}

std::FILE* WaitingFile::openStream(const FileAccess& files, const FND::String& name,
                                   const char* mode, const RunControl* control) {
    std::unique_ptr<WaitingFile> file(new (std::nothrow) WaitingFile(control));
    if (!file || !file->open(files, name, flagsOf(mode))) return nullptr;
    // It accepts no other letters in between.
    const char plainMode[] = {mode[0], std::strchr(mode, '+') != nullptr ? '+' : '\0', '\0'};
    std::FILE* const stream =
        fopencookie(file.get(), plainMode, {readStream, writeStream, seekStream, closeStream});
    if (stream != nullptr) static_cast<void>(file.release());  // now the stream's
    return stream;
}

bool WaitingFile::open(const FileAccess& files, const FND::String& name, int flags) {
    int steps = 0;
    while ((handle_ = files.open(name, flags | O_NONBLOCK | O_CLOEXEC)) < 0) {
        if (errno == EINTR) continue;
        // For example the error of a pipe without a reader.
        if (errno != ENXIO) return false;
        struct stat status {};
        const bool isPipe = files.status(name, status) && S_ISFIFO(status.st_mode);
        errno = ENXIO;
        if (!isPipe) return false;
        if (!mayWait(steps)) return false;
        poll(nullptr, 0, stepMillisS);
    }
    return fstat(handle_, &status_) == 0;
}

ssize_t WaitingFile::read(char* buffer, std::size_t size) const {
    // A pipe that has no writer yet would seem to be at its end.
    while (waitFor(POLLIN)) {
        const ssize_t length = ::read(handle_, buffer, size);
        if (length >= 0 || (errno != EAGAIN && errno != EINTR)) return length;
    }
    return -1;
}

bool WaitingFile::write(const char* bytes, std::size_t size) const {
    constexpr std::size_t pieceSize = 256 * 1024;
    const PipeGuard guard(!S_ISREG(status_.st_mode));
    while (size > 0) {
        const ssize_t length = ::write(handle_, bytes, std::min(size, pieceSize));
        if (size > pieceSize && control_ != nullptr && control_->isRunning() &&
            control_->mustStop()) {
            return false;
        }
        if (length > 0) {
            bytes += length;
            size -= static_cast<std::size_t>(length);
        } else if (errno == EAGAIN) {
            if (!waitFor(POLLOUT)) return false;
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

bool WaitingFile::close() {
    if (!isOpen()) return true;
    const int handle = handle_;
    handle_ = -1;
    return ::close(handle) == 0 || errno == EINTR;
}

bool WaitingFile::waitFor(short events) const {
    for (int steps = 0;;) {
        pollfd file{handle_, events, 0};
        const int ready = poll(&file, 1, stepMillisS);
        if (ready > 0) return true;
        if (ready < 0 && errno != EINTR) return false;
        if (!mayWait(steps)) return false;
    }
}

bool WaitingFile::mayWait(int& steps) const {
    bool mayGoOn = true;
    if (control_ != nullptr && control_->isRunning()) {
        mayGoOn = !control_->mustStop();
    } else if (control_ != nullptr) {
        mayGoOn = !control_->wasStopped() && ++steps <= stepsAfterScriptS;
    }
    if (!mayGoOn) errno = EINTR;
    return mayGoOn;
}

}  // namespace SCR
