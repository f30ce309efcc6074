#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace Cli {

/// A line on standard error with the progress of a job: records done, their rate and, for a file,
/// the share done and the time left. One thread.
class Progress {
public:
    /// `path` is the file that the job reads.
    explicit Progress(const std::string& path);
    /// Redraws the line, unless that was done within the last half second.
    void show(std::int64_t records, std::int64_t bytes);
    /// Removes the line.
    void clear() const;

private:
    using Clock = std::chrono::steady_clock;

    std::int64_t size_ = 0;  // of the file, in bytes; 0 when it is none
    Clock::time_point begin_ = Clock::now();
    Clock::time_point shown_ = begin_;
    bool isShown_ = false;
};

}  // namespace Cli
