#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/Limits.h"

namespace SCR {

class Interpreter;
class Node;

/// Thrown inside the library to unwind a script that was stopped (by a limit, an interruption or
/// too deep a recursion); the interpreter's entry points catch it, it never leaves the library.
/// An extension's node lets it pass.
class KESTREL_API ScriptStopped {
public:
    /// `place` tells where in the script it was stopped; null when that is not known yet.
    explicit ScriptStopped(const Node* place = nullptr) : place_(place) {}

    const Node* place() const { return place_; }
    /// Says that the statement `place` was running; what said so first is the innermost.
    void passedThrough(const Node* place) {
        if (place_ == nullptr) place_ = place;
    }

private:
    const Node* place_;
};

/// Watches over one interpreter's running script: loops report every turn and user functions every
/// call, and a script that must not go on is stopped by `ScriptStopped`. The usual cost of a turn
/// is a decrement and a branch. All of it is used by the interpreter's thread, but for
/// `interrupt()`, which any thread may call.
class KESTREL_API RunControl {
public:
    explicit RunControl(Interpreter& interpreter) : interpreter_(interpreter) {}
    RunControl(const RunControl&) = delete;
    RunControl& operator=(const RunControl&) = delete;

    /// Prepares for running script code on the calling thread. Calls nest (a host's function may
    /// run its interpreter again); only the outermost starts anew.
    /// Gives the control that was the calling thread's until then.
    RunControl* enter();
    /// Ends what `enter` began; `outer` is what that gave.
    void leave(RunControl* outer);

    /// How often running began anew; tells one execution from another.
    std::uint64_t runs() const { return runs_; }

    /// Counts one turn of the loop `place`, or one call made by the call node `place`.
    void turn(const Node* place) {
        if (--untilLook_ < 0) [[unlikely]]
            look(place);
    }

    /// Called at the entry of a user function's call: counts a turn and stops the script when too
    /// many calls are open, or when they come near the end of the thread's stack.
    void enterCall(const Node* place) {
        turn(place);
        if (++openCalls_ > limits_.depth) [[unlikely]]
            stopAtLimit(place, "depth", limits_.depth);
        if (static_cast<char*>(__builtin_frame_address(0)) < stackEnd_) [[unlikely]] {
            stopAtStackEnd(place);
        }
    }
    /// Called when the call returns; not called when it is stopped.
    void leaveCall() { --openCalls_; }

    /// Stops the script when a string of `size` bytes is longer than the limit allows. To be asked
    /// before the string is made.
    void checkString(const Node* place, std::size_t size) {
        if (size > static_cast<std::size_t>(limits_.string)) [[unlikely]]
            stopAtLimit(place, "string", limits_.string);
    }

    /// The control of the script that the calling thread runs, the innermost one; null outside.
    static RunControl* current();

    /// Counts bytes that the script's variables are about to take; stops the script when its values
    /// would hold more than the limit allows. See scr/Memory.h.
    void charge(std::size_t bytes) {
        charged_ += static_cast<std::int64_t>(bytes);
        if (charged_ > limits_.memory) [[unlikely]]
            settle(static_cast<std::int64_t>(bytes));
    }
    /// The same for bytes outside the variables; a negative number gives bytes back.
    void chargeBuffer(std::int64_t bytes);
    /// Gives back bytes that `charge` took and that `Interpreter::heapBytes` no longer counts.
    void giveBack(std::size_t bytes) noexcept { charged_ -= static_cast<std::int64_t>(bytes); }
    /// Forgets what was charged but for what the interpreter still holds: the script is gone.
    void clearCharges();

    const Limits& limits() const { return limits_; }
    /// Sets what `enter` and the checks go by from now on.
    void limits(const Limits& limits) { limits_ = limits; }
    /// Whether the execution begun last was stopped.
    bool wasStopped() const { return wasStopped_; }

    /// Stops the script now if it has to stop; for built-ins that wait or work for long, which ask
    /// several times a second. `place` is their node.
    void ask(const Node* place);
    /// Counts work on `bytes` bytes, beyond what a turn usually does, and asks now and then. See
    /// scr/Work.h.
    void work(std::size_t bytes) {
        untilAsked_ -= static_cast<std::int64_t>(bytes);
        if (untilAsked_ < 0) [[unlikely]]
            lookAtWork();
    }
    /// Whether `ask` would stop the script.
    bool mustStop() const;
    /// Whether script code is running.
    bool isRunning() const { return depth_ > 0; }

    /// Makes the running script stop soon, or the next one to run when none is running. Any thread.
    void interrupt() { interrupted_.store(true, std::memory_order_relaxed); }

    /// Stops the script; `report` logs `message` then with the line of `place` or, when that is not
    /// known, of the innermost statement that ran.
    [[noreturn]] void stop(const Node* place, const FND::String& message);
    [[noreturn]] void stopAtLimit(const Node* place, const char* name, std::int64_t limit);
    /// Logs why `stop` stopped the script, and in which line.
    void report(const ScriptStopped& stopped);

private:
    friend class RunScope;

    void look(const Node* place);
    void startInterval();
    void lookAtWork();
    void settle(std::int64_t bytes);
    [[noreturn]] void stopAtStackEnd(const Node* place);

    /// Turns between two looks at the interruption: far below a millisecond of script time.
    static constexpr std::int64_t lookIntervalCM = 1024;
    /// Bytes of work between two looks: some of it takes several nanoseconds a byte.
    static constexpr std::int64_t workIntervalCM = 128 * 1024;

    Interpreter& interpreter_;
    Limits limits_;
    std::int64_t untilLook_ = lookIntervalCM;
    std::int64_t untilAsked_ = workIntervalCM;
    std::int64_t stepsLeft_ = Limits::none;  // beyond those of untilLook_
    std::int64_t openCalls_ = 0;
    char* stackEnd_ = nullptr;
    std::chrono::steady_clock::time_point deadline_;
    int depth_ = 0;
    std::int64_t charged_ = 0;  // at least what the script's values hold
    std::int64_t buffers_ = 0;  // of that, what lies outside the variables
    FND::String message_;       // why the script was stopped last
    bool wasStopped_ = false;
    std::uint64_t runs_ = 0;
    std::atomic<bool> interrupted_{false};
};

/// Keeps a `RunControl` entered for the life of a scope.
class RunScope {
public:
    explicit RunScope(RunControl& control)
        : control_(control), openCalls_(control.openCalls_), outer_(control.enter()) {}
    /// For nodes that do not end with the script: adds to `buffers` what they took for themselves,
    /// to be given back to the control when they end.
    RunScope(RunControl& control, std::int64_t& buffers) : RunScope(control) {
        kept_ = &buffers;
        *kept_ -= control_.buffers_;
    }
    RunScope(const RunScope&) = delete;
    RunScope& operator=(const RunScope&) = delete;
    ~RunScope() {
        control_.openCalls_ = openCalls_;
        if (kept_ != nullptr) *kept_ += control_.buffers_;
        control_.leave(outer_);
    }

private:
    RunControl& control_;
    const std::int64_t openCalls_;
    RunControl* const outer_;
    std::int64_t* kept_ = nullptr;
};

}  // namespace SCR
