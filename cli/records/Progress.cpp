#include "cli/records/Progress.h"

#include <sys/stat.h>

#include <cinttypes>
#include <cstdio>

namespace Cli {

Progress::Progress(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)) size_ = status.st_size;
}

void Progress::show(std::int64_t records, std::int64_t bytes) {
    const Clock::time_point now = Clock::now();
    if (now - shown_ < std::chrono::milliseconds(500)) return;
    shown_ = now;
    isShown_ = true;
    const double seconds = std::chrono::duration<double>(now - begin_).count();
    std::fprintf(stderr, "\r%" PRId64 " records, %.0f a second", records,
                 static_cast<double>(records) / seconds);
    if (size_ > 0 && bytes > 0) {
        const double share = static_cast<double>(bytes) / static_cast<double>(size_);
        std::fprintf(stderr, ", %.0f %%, %.0f s left", 100 * share,
                     share < 1 ? seconds / share - seconds : 0.0);
    }
    std::fputs("\x1b[K", stderr);
}

void Progress::clear() const {
    if (isShown_) std::fputs("\r\x1b[K", stderr);
}

}  // namespace Cli
