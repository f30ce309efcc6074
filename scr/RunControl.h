#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "fnd/Export.h"
#include "scr/Limits.h"

namespace SCR {

class Interpreter;
class Node;

/// Thrown inside the library to unwind a script that was stopped (by a limit, an interruption or
/// too deep a recursion); the interpreter's entry points catch it, it never leaves the library.
/// An extension's node lets it pass.
class KESTREL_API ScriptStopped {
public:
    ScriptStopped() = default;
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
    void enter();
    /// Ends what `enter` began.
    void leave();

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

    const Limits& limits() const { return limits_; }
    /// Sets what `enter` and the checks go by from now on.
    void limits(const Limits& limits) { limits_ = limits; }
    /// Whether the execution begun last was stopped.
    bool wasStopped() const { return wasStopped_; }

    /// Stops the script now if it has to stop; for built-ins that wait or work for long, which ask
    /// several times a second. `place` is their node.
    void ask(const Node* place);
    /// Whether `ask` would stop the script.
    bool mustStop() const;
    /// Whether script code is running.
    bool isRunning() const { return depth_ > 0; }

    /// Makes the running script stop soon, or the next one to run when none is running. Any thread.
    void interrupt() { interrupted_.store(true, std::memory_order_relaxed); }

    /// Logs `message` with the line of `place`, when known, and stops the script.
    [[noreturn]] void stop(const Node* place, const FND::String& message);

private:
    friend class RunScope;

    void look(const Node* place);
    void startInterval();
    [[noreturn]] void stopAtStackEnd(const Node* place);
    [[noreturn]] void stopAtLimit(const Node* place, const char* name, std::int64_t limit);

    /// Turns between two looks at the interruption: far below a millisecond of script time.
    static constexpr std::int64_t lookIntervalCM = 1024;

    Interpreter& interpreter_;
    Limits limits_;
    std::int64_t untilLook_ = lookIntervalCM;
    std::int64_t stepsLeft_ = Limits::none;  // beyond those of untilLook_
    std::int64_t openCalls_ = 0;
    char* stackEnd_ = nullptr;
    std::chrono::steady_clock::time_point deadline_;
    int depth_ = 0;
    bool wasStopped_ = false;
    std::uint64_t runs_ = 0;
    std::atomic<bool> interrupted_{false};
};

/// Keeps a `RunControl` entered for the life of a scope.
class RunScope {
public:
    explicit RunScope(RunControl& control) : control_(control), openCalls_(control.openCalls_) {
        control_.enter();
    }
    RunScope(const RunScope&) = delete;
    RunScope& operator=(const RunScope&) = delete;
    ~RunScope() {
        control_.openCalls_ = openCalls_;
        control_.leave();
    }

private:
    RunControl& control_;
    const std::int64_t openCalls_;
};

}  // namespace SCR
