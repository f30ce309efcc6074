#include "records/StopWatcher.h"

#include <system_error>

#include <sys/eventfd.h>
#include <unistd.h>

#include "scr/Interpreter.h"

namespace Records {

StopWatcher::StopWatcher(const StopSignal& stop)
    : stop_(stop), end_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    try {
        thread_ = std::thread([this] { live(); });
    } catch (const std::system_error&) {  // no thread is to be had: scripts end by themselves
    }
}

StopWatcher::~StopWatcher() {
    {
        const std::lock_guard lock(mutex_);
        isOver_ = true;
    }
    hasEnded_.notify_all();
    eventfd_write(end_, 1);
    if (thread_.joinable()) thread_.join();
    if (end_ >= 0) close(end_);
}

void StopWatcher::watch(SCR::Interpreter& interpreter) {
    const std::lock_guard lock(mutex_);
    watched_.push_back(&interpreter);
}

void StopWatcher::forget() {
    const std::lock_guard lock(mutex_);
    watched_.clear();
}

void StopWatcher::allow(std::chrono::milliseconds time) {
    const std::lock_guard lock(mutex_);
    allowed_ = time;
    from_ = Clock::now();
}

void StopWatcher::live() {
    stop_.waitForInput(end_);
    constexpr std::chrono::milliseconds interval(20);
    std::unique_lock lock(mutex_);
    for (from_ = Clock::now(); !isOver_; hasEnded_.wait_for(lock, interval)) {
        if (Clock::now() < from_ + allowed_) continue;
        for (SCR::Interpreter* const interpreter : watched_) interpreter->interrupt();
    }
}

}  // namespace Records
