#pragma once

#include "Test.h"

#include <sys/mman.h>

namespace Harness {

/// While the object lives, collects what the process and its child processes write to file
/// descriptor 1. One at a time in a process.
class StdoutCapture {
public:
    StdoutCapture() : file_(memfd_create("stdout", MFD_CLOEXEC)), saved_(dup(STDOUT_FILENO)) {
        flush();
        dup2(file_, STDOUT_FILENO);
    }
    StdoutCapture(const StdoutCapture&) = delete;
    StdoutCapture& operator=(const StdoutCapture&) = delete;
    ~StdoutCapture() {
        flush();
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
        close(file_);
    }

    /// Everything written so far.
    std::string text() const {
        flush();
        std::string bytes(static_cast<std::size_t>(lseek(file_, 0, SEEK_END)), '\0');
        const ssize_t length = pread(file_, bytes.data(), bytes.size(), 0);
        bytes.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
        return bytes;
    }

private:
    static void flush() {
        std::cout.flush();
        std::fflush(stdout);
    }

    int file_;
    int saved_;
};

}  // namespace Harness
