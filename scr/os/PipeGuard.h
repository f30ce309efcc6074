#pragma once

#include <csignal>

namespace SCR {

/// While it lives, the calling thread does not get the signal that ends a process when it writes to
/// a pipe without a reader: the write only fails.
class PipeGuard {
public:
    /// Does nothing unless `isNeeded`.
    explicit PipeGuard(bool isNeeded);
    PipeGuard(const PipeGuard&) = delete;
    PipeGuard& operator=(const PipeGuard&) = delete;
    ~PipeGuard();

private:
    bool isActive_ = false;
    sigset_t mask_{};  // the thread's former mask
};

}  // namespace SCR
