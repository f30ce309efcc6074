#pragma once

#include <atomic>

namespace Records {

/// The request to end a job, raised by any thread or a signal handler. It wakes a thread that waits
/// for input.
class StopSignal {
public:
    StopSignal();
    ~StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    /// Safe in a signal handler.
    void raise() noexcept;
    bool isRaised() const noexcept { return isRaised_.load(std::memory_order_relaxed); }
    /// Waits until `descriptor` can be read, which at its end is at once, or the signal is raised.
    void waitForInput(int descriptor) const noexcept;

private:
    std::atomic<bool> isRaised_{false};
    static_assert(std::atomic<bool>::is_always_lock_free);
    const int event_;  // readable when it is raised
};

}  // namespace Records
