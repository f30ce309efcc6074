#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <new>
#include <utility>

#include "scr/Interpreter.h"
#include "scr/Observation.h"
#include "scr/run/RunControl.h"

namespace SCR {

// The control of the script that the thread runs. In the library's own static storage, so that
// reading it needs no call.
[[gnu::tls_model("initial-exec"),
  gnu::visibility("hidden")]] extern constinit thread_local RunControl* currentControlG;

/// Of the calling thread's own stack.
struct ThreadStack {
    char* lowest = nullptr;
    char* highest = nullptr;
    char* end = nullptr;  ///< the lowest address that script code may reach

    /// The part of a stack that is kept free: for the code between two calls, the deepest
    /// expression in the deepest block.
#ifdef __OPTIMIZE__
    static constexpr std::size_t reserveCM = 256 * 1024;
#else
    static constexpr std::size_t reserveCM = 1024 * 1024;
#endif

    /// Asks the system. Once per thread, since the C library reads a file to answer for the main
    /// thread.
    static ThreadStack find();
};
[[gnu::tls_model("initial-exec"),
  gnu::visibility("hidden")]] extern constinit thread_local ThreadStack threadStackG;

inline char* RunControl::stackEndHere() const {
    if (givenStackEnd_ != nullptr) [[unlikely]] {
        return static_cast<char*>(const_cast<void*>(givenStackEnd_)) + ThreadStack::reserveCM;
    }
    if (threadStackG.highest == nullptr) [[unlikely]]
        threadStackG = ThreadStack::find();
    const char* const here = static_cast<char*>(__builtin_frame_address(0));
    return here >= threadStackG.lowest && here < threadStackG.highest ? threadStackG.end : nullptr;
}

inline void RunControl::startInterval() {
    counters_.untilLook = std::min(stopsAt_ < 0 ? lookIntervalCM : std::int64_t{1}, stepsLeft_);
    if (stepsLeft_ != Limits::none) stepsLeft_ -= counters_.untilLook;
}

[[gnu::always_inline]] inline void RunControl::startExecution() {
    ++runs_;
    stepsLeft_ = limits_.steps;
    startInterval();
    deadline_ = std::chrono::steady_clock::time_point::max();
    if (limits_.time != Limits::none) [[unlikely]]
        setDeadline();
}

[[gnu::always_inline]] inline void RunControl::begin() {
    wasStopped_ = false;
    isStopPending_ = false;
    if (!failure_.empty()) [[unlikely]]
        failure_.clear();
    startExecution();
    state_.store(State::Running, std::memory_order_relaxed);
}

[[gnu::always_inline]] inline void RunControl::end() noexcept {
    state_.store(State::Idle, std::memory_order_relaxed);
    counters_.untilLook = neverCM;
    stepsLeft_ = Limits::none;
}

[[gnu::always_inline]] inline void RunControl::nextExecution() {
    ask(nullptr);
    if (depth_ == 1) startExecution();
}

[[gnu::always_inline]] inline void RunControl::finish() {
    ask(nullptr);
    wasStopped_ = false;
}

/// Keeps a `RunControl` entered on the calling thread. Scopes nest, since a host's function may run
/// its interpreter again; only the outermost one resets the counts.
class RunScope {
public:
    /// Throws `ScriptStopped` when too many runs are nested, or when they come near the end of the
    /// stack.
    ///
    /// For nodes that do not end with the script: adds to `buffers` what they took for themselves.
    /// It must be given back to the control when they end.
    [[gnu::always_inline]] explicit RunScope(RunControl& control, std::int64_t* buffers = nullptr)
        : control_(control),
          openCalls_(control.counters_.openCalls),
          stackEnd_(control.counters_.stackEnd),
          kept_(buffers) {
        char* const end = control.stackEndHere();
        const bool isOutermost = control.depth_ == 0;
        if (isOutermost) [[likely]] {
            control.begin();
        } else {
            nest(control);
        }
        if (static_cast<char*>(__builtin_frame_address(0)) < end) [[unlikely]]
            refuse(control, isOutermost);
        if (!isOutermost) [[unlikely]]
            control.noteCall(nullptr);
        if (kept_ != nullptr) [[unlikely]]
            before_ = control.buffers_;
        ++control.depth_;
        control.counters_.stackEnd = end;
        outer_ = std::exchange(currentControlG, &control);
    }
    RunScope(const RunScope&) = delete;
    RunScope& operator=(const RunScope&) = delete;
    [[gnu::always_inline]] ~RunScope() {
        control_.counters_.openCalls = openCalls_;
        control_.counters_.stackEnd = stackEnd_;
        if (kept_ != nullptr) [[unlikely]]
            *kept_ += control_.buffers_ - before_;
        if (--control_.depth_ == 0) control_.end();
        currentControlG = outer_;
        if (control_.wasGivenObjects_) [[unlikely]]
            control_.dropObjects();
    }

    /// Call this when everything is done: throws `ScriptStopped` when the run had to stop and did
    /// not notice.
    [[gnu::always_inline]] void finish() { control_.finish(); }

private:
    // These take no `this`, so that the members can stay in registers.

    // Throws when too many runs are nested.
    static void nest(RunControl& control) {
        if (control.counters_.openCalls >= control.limits_.depth) {
            control.stopAtLimit(nullptr, "depth", control.limits_.depth);
        }
    }
    // There is no room on the stack.
    [[noreturn, gnu::noinline]] static void refuse(RunControl& control, bool isOutermost) {
        if (isOutermost) control.end();
        control.stopAtStackEnd(nullptr);
    }

    RunControl& control_;
    const std::int64_t openCalls_;
    char* const stackEnd_;
    RunControl* outer_ = nullptr;
    std::int64_t* kept_ = nullptr;
    std::int64_t before_ = 0;
};

// Every call of a host enters through here, so that nothing is thrown at the host.

/// Calls `action` and returns its result; turns any exception into a logged error and false.
template <class Action>
bool contain(Interpreter& interpreter, const Action& action) noexcept {
    try {
        try {
            return action();
        } catch (const ScriptStopped& stopped) {
            interpreter.runControl().report(stopped);
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const std::exception& error) {
            interpreter.logError(FND::String("ERROR: ") + error.what());
        } catch (...) {
            interpreter.logError("ERROR: unknown exception");
        }
    } catch (...) {
        interpreter.logOutOfMemory();
    }
    return false;
}

/// Tells who watches the script that nothing of it runs any more.
[[gnu::noinline, gnu::cold]] inline void tellEnd(Interpreter& interpreter, bool isDone) noexcept {
    const RunControl& control = interpreter.runControl();
    if (control.isRunning()) return;
    contain(interpreter, [&] {
        control.observation()->leave(!isDone);
        return true;
    });
}

/// As `enterRun`, for what ends no run in the eyes of who watches.
template <class Action>
bool enterQuietly(Interpreter& interpreter, const Action& action,
                  std::int64_t* buffers = nullptr) noexcept {
    return contain(interpreter, [&] {
        RunScope run(interpreter.runControl(), buffers);
        const bool isGood = action();
        run.finish();
        return isGood;
    });
}

/// Calls `action` as a run of the interpreter, under its limits: false when the action gave false,
/// was stopped or threw. Adds to `buffers` the memory taken for nodes that do not end with the
/// script.
template <class Action>
bool enterRun(Interpreter& interpreter, const Action& action,
              std::int64_t* buffers = nullptr) noexcept {
    const bool isDone = enterQuietly(interpreter, action, buffers);
    // After the message of a stop, whose place the observation still has.
    if (interpreter.runControl().observation() != nullptr) [[unlikely]]
        tellEnd(interpreter, isDone);
    return isDone;
}

}  // namespace SCR
