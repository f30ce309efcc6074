#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "records/read/StopSignal.h"

namespace SCR {
class Interpreter;
}  // namespace SCR

namespace Records {

/// Interrupts scripts that still run some time after a job was told to stop. It does so on a thread
/// of its own and again and again, so that no moment is missed. Any thread may call it.
class StopWatcher {
public:
    /// `stop` is not owned.
    explicit StopWatcher(const StopSignal& stop);
    ~StopWatcher();
    StopWatcher(const StopWatcher&) = delete;
    StopWatcher& operator=(const StopWatcher&) = delete;

    /// From now on `interpreter`, which is not owned, is interrupted when the time is over.
    void watch(SCR::Interpreter& interpreter);
    /// Forgets all interpreters.
    void forget();
    /// From now on scripts may run this long after the signal; if it is raised already, after now.
    void allow(std::chrono::milliseconds time);

private:
    using Clock = std::chrono::steady_clock;
    void live();

    const StopSignal& stop_;
    const int end_;     // readable when this object is destroyed
    std::mutex mutex_;  // for all below
    std::condition_variable hasEnded_;
    std::vector<SCR::Interpreter*> watched_;
    std::chrono::milliseconds allowed_{0};
    Clock::time_point from_;
    bool isOver_ = false;
    std::thread thread_;
};

}  // namespace Records
