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
#include <sys/stat.h>
#include <unistd.h>

namespace Records {
namespace {

// Where a path leads behind all links; nothing where it leads to an open file of a process.
std::optional<std::string> targetOf(std::filesystem::path path) {
    std::error_code error;
    for (int links = 0; links < 40; ++links) {
        const std::filesystem::path place =
            std::filesystem::canonical(std::filesystem::absolute(path, error).parent_path(), error);
        if (place.native().starts_with("/proc/")) return std::nullopt;
        if (!std::filesystem::is_symlink(path, error)) break;
        path = path.parent_path() / std::filesystem::read_symlink(path, error);
    }
    return path.native();
}

}  // namespace

RecordOutput::~RecordOutput() {
    if (descriptor_ > STDERR_FILENO) close(descriptor_);
    if (!temporary_.empty()) unlink(temporary_.c_str());
}

bool RecordOutput::fail() {
    isClosed_ = errno == EPIPE;
    error_ = (path_ == "-" ? std::string("standard output") : path_) + ": " + std::strerror(errno);
    return false;
}

bool RecordOutput::open(const std::string& path) {
    path_ = path;
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
    std::string name = target_ + ".XXXXXX";
    descriptor_ = mkostemp(name.data(), O_CLOEXEC);
    if (descriptor_ < 0) return fail();
    temporary_ = name;
    const mode_t mask = umask(0);
    umask(mask);
    return fchmod(descriptor_, exists ? status.st_mode & 07777 : 0666 & ~mask) == 0 || fail();
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

bool RecordOutput::writeOut(std::string_view text) {
    if (descriptor_ != STDOUT_FILENO) return writeTo(text);
    // What scripts print waits in the buffer of the C library: none of it may be cut in two.
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
    return true;
}

}  // namespace Records
