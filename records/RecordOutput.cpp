#include "records/RecordOutput.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Records {

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
    struct stat status {};
    if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        descriptor_ = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
        return descriptor_ >= 0 || fail();
    }
    std::string name = path + ".XXXXXX";
    descriptor_ = mkostemp(name.data(), O_CLOEXEC);
    if (descriptor_ < 0) return fail();
    temporary_ = name;
    const mode_t mask = umask(0);
    umask(mask);
    return fchmod(descriptor_, 0666 & ~mask) == 0 || fail();
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
    while (!text.empty()) {
        const ssize_t count = ::write(descriptor_, text.data(), text.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return fail();
        text.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

bool RecordOutput::finish() {
    if (!flush()) return false;
    if (temporary_.empty()) return true;
    if (fsync(descriptor_) != 0 || rename(temporary_.c_str(), path_.c_str()) != 0) return fail();
    temporary_.clear();
    return true;
}

}  // namespace Records
