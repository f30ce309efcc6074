#pragma once

#include <csignal>

namespace SCR {

/// Keeps the signal that ends a process as it writes to a pipe without a reader from the calling
/// thread, for the life of a scope: the write fails then, and nothing else happens.
class PipeGuard {
public:
    /// Does nothing unless `isNeeded`.
    explicit PipeGuard(bool isNeeded);
    PipeGuard(const PipeGuard&) = delete;
    PipeGuard& operator=(const PipeGuard&) = delete;
    ~PipeGuard();

private:
    bool isActive_ = false;
    sigset_t mask_{};  // of the thread before
};

}  // namespace SCR
