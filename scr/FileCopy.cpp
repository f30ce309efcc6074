#include "scr/FileCopy.h"

#include <cerrno>
#include <memory>
#include <new>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "scr/PipeGuard.h"

namespace SCR {

namespace {

constexpr std::size_t pieceSizeS = 128 * 1024;

/// An open file, closed at the end of its scope.
class OpenFile {
public:
    OpenFile(const FND::String& name, int flags)
        : handle_(open(name.c_str(), flags | O_CLOEXEC, 0666)) {}
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    ~OpenFile() { finish(); }

    bool isOpen() const { return handle_ >= 0; }
    bool status(struct stat& status) const { return fstat(handle_, &status) == 0; }
    bool empty() const { return ftruncate(handle_, 0) == 0; }

    ssize_t read(char* buffer, std::size_t size) const {
        ssize_t length = 0;
        do length = ::read(handle_, buffer, size);
        while (length < 0 && errno == EINTR);
        return length;
    }

    bool write(const char* bytes, std::size_t count) const {
        while (count > 0) {
            const ssize_t length = ::write(handle_, bytes, count);
            if (length < 0 && errno == EINTR) continue;
            if (length <= 0) return false;
            bytes += length;
            count -= static_cast<std::size_t>(length);
        }
        return true;
    }

    /// Closes the file; false when that says that something was not written.
    bool finish() {
        if (!isOpen()) return true;
        const int handle = handle_;
        handle_ = -1;
        return close(handle) == 0 || errno == EINTR;
    }

private:
    int handle_;
};

}  // namespace

bool copyFile(const FND::String& source, const FND::String& target,
              const std::function<void()>& ask) {
    const OpenFile from(source, O_RDONLY);
    struct stat fromStatus {};
    struct stat toStatus {};
    if (!from.isOpen() || !from.status(fromStatus) || S_ISDIR(fromStatus.st_mode)) return false;
    OpenFile to(target, O_WRONLY | O_CREAT);
    if (!to.isOpen() || !to.status(toStatus)) return false;
    if (fromStatus.st_dev == toStatus.st_dev && fromStatus.st_ino == toStatus.st_ino) return false;
    if (S_ISREG(toStatus.st_mode) && !to.empty()) return false;

    const std::unique_ptr<char[]> piece(new (std::nothrow) char[pieceSizeS]);
    if (!piece) return false;
    const PipeGuard guard(!S_ISREG(toStatus.st_mode));
    ssize_t length = 0;
    while ((length = from.read(piece.get(), pieceSizeS)) > 0) {
        if (!to.write(piece.get(), static_cast<std::size_t>(length))) return false;
        ask();
    }
    return length == 0 && to.finish();
}

}  // namespace SCR
