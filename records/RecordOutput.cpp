#include "records/RecordOutput.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Records {
namespace {

namespace fs = std::filesystem;

// Where a path leads after all links; nothing if it leads to an open file of a process.
std::optional<std::string> targetOf(fs::path path) {
    std::error_code error;
    for (int links = 0; links < 40; ++links) {
        const fs::path place = fs::canonical(fs::absolute(path, error).parent_path(), error);
        if (place.native().starts_with("/proc/")) return std::nullopt;
        if (!fs::is_symlink(path, error)) break;
        path = path.parent_path() / fs::read_symlink(path, error);
    }
    return path.native();
}

// The beginning of the names of the temporary files of `path`.
std::string temporaryPrefix(const fs::path& path) {
    std::string name = ".";
    name.append(path.filename().string()).append(".");
    return path.parent_path() / name;
}

// Removes temporary files next to `path` whose names begin with `prefix`, or are those of results
// of messages if that is empty, and whose writers are gone.
void removeTemporaries(const fs::path& path, const std::string& prefix) {
    const fs::path parent = path.parent_path();
    std::error_code error;
    for (fs::directory_iterator entry(parent.empty() ? "." : parent, error), end;
         !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename();
        const bool isTemporary =
            name.size() > 8 && name.front() == '.' && name[name.size() - 7] == '.';
        const bool isWanted = prefix.empty()
                                  ? name.find("-of-stream.") != std::string::npos
                                  : name.size() == prefix.size() + 6 && name.starts_with(prefix);
        if (!isTemporary || !isWanted) continue;
        const int descriptor = ::open(entry->path().c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
        if (descriptor < 0) continue;
        if (flock(descriptor, LOCK_EX | LOCK_NB) == 0) unlink(entry->path().c_str());
        close(descriptor);
    }
}

}  // namespace

bool RecordOutput::syncDirectory(const std::string& file) {
    const fs::path path(file);
    const fs::path directory = path.has_parent_path() ? path.parent_path() : fs::path(".");
    const int descriptor = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return errno == EACCES;  // it may be writable but not readable
    const bool isSynced = fsync(descriptor) == 0 || errno == EINVAL;
    const int error = errno;
    close(descriptor);
    errno = error;
    return isSynced;
}

RecordOutput::~RecordOutput() {
    if (descriptor_ > STDERR_FILENO) close(descriptor_);
    if (!temporary_.empty()) unlink(temporary_.c_str());
}

bool RecordOutput::fail() {
    errorNumber_ = errno;
    isClosed_ = errno == EPIPE;
    error_ = (path_ == "-" ? std::string("standard output") : path_) + ": " + std::strerror(errno);
    return false;
}

bool RecordOutput::open(const std::string& path, bool isAlone) {
    path_ = path;
    isAlone_ = isAlone;
    if (path == "-") {
        descriptor_ = STDOUT_FILENO;
        return true;
    }
    const std::optional<std::string> target = targetOf(path);
    target_ = target.value_or(path);
    struct stat status {};
    const bool exists = stat(target_.c_str(), &status) == 0;
    if (!target || (exists && !S_ISREG(status.st_mode))) {
        descriptor_ = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
        return descriptor_ >= 0 || fail();
    }
    if (isAlone) removeLeftovers(target_);
    if (!openTemporary()) return fail();
    // Read once, as that changes it for a moment, which other threads would see.
    static const mode_t mask = [] {
        const mode_t own = umask(0);
        umask(own);
        return own;
    }();
    return fchmod(descriptor_, exists ? status.st_mode & 07777 : 0666 & ~mask) == 0 || fail();
}

bool RecordOutput::openTemporary() {
    for (;;) {
        std::string name = temporaryPrefix(target_) + "XXXXXX";
        descriptor_ = mkostemp(name.data(), O_CLOEXEC);
        if (descriptor_ < 0) return false;
        temporary_ = name;
        // If files cannot be locked, leftovers stay.
        struct stat status {};
        if (flock(descriptor_, LOCK_EX) != 0) return true;
        if (fstat(descriptor_, &status) != 0) return false;
        if (status.st_nlink != 0) return true;
        close(descriptor_);  // another run took it for a leftover before it was locked
    }
}

void RecordOutput::removeLeftovers(const std::string& path) {
    removeTemporaries(path, fs::path(temporaryPrefix(path)).filename());
}

void RecordOutput::removeAllLeftovers(const std::string& directory) {
    removeTemporaries(directory + "/.", "");
}

bool RecordOutput::write(std::string_view records) {
    if (buffer_.size() + records.size() >= flushSizeCM) return flush() && writeOut(records);
    buffer_ += records;
    return true;
}

bool RecordOutput::flush() {
    if (!writeOut(buffer_)) return false;
    buffer_.clear();
    return true;
}

void RecordOutput::startSync() {
    if (!temporary_.empty()) sync_file_range(descriptor_, 0, 0, SYNC_FILE_RANGE_WRITE);
}

bool RecordOutput::writeOut(std::string_view text) {
    if (descriptor_ != STDOUT_FILENO) return writeTo(text);
    // The prints of scripts wait in the buffer of the C library; they must not be cut in two.
    flockfile(stdout);
    const bool isWritten = std::fflush(stdout) == 0 ? writeTo(text) : fail();
    funlockfile(stdout);
    return isWritten;
}

bool RecordOutput::writeTo(std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(descriptor_, text.data(), text.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0 && errno == EAGAIN) {
            pollfd output{descriptor_, POLLOUT, 0};
            poll(&output, 1, -1);
            continue;
        }
        if (count < 0) return fail();
        text.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

bool RecordOutput::finish() {
    if (!flush()) return false;
    if (temporary_.empty()) return true;
    if (fsync(descriptor_) != 0 || rename(temporary_.c_str(), target_.c_str()) != 0) return fail();
    temporary_.clear();
    return !isAlone_ || syncDirectory(target_) || fail();
}

}  // namespace Records
