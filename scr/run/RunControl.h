#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <utility>
#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/Limits.h"
#include "scr/Outcome.h"

namespace SCR {

class Interpreter;
class Node;
class Observation;
class RunControl;
struct Diagnostic;

/// Where a call of a user function was made, if it is still the one that opened the call of this
/// number.
struct CallPlace {
    const Node* node = nullptr;
    std::int64_t number = 0;
};

/// What the code of a script counts by itself.
struct RunCounters {
    std::int64_t untilLook;       ///< turns before the next look
    std::int64_t openCalls = 0;   ///< calls that are open
    std::int64_t mostCalls = 0;   ///< calls that may be open
    char* stackEnd = nullptr;     ///< the lowest address that a call may find itself at
    std::uint32_t hasFailed = 0;  ///< whether a failure was noted
    std::uint32_t failedAt = 0;   ///< for the code that leaves: the statement
    /// The open calls by the lowest bits of their numbers, for messages. Deep ones may have taken
    /// the places of others.
    static constexpr std::size_t placesCM = 64;
    std::array<CallPlace, placesCM> places{};
};

/// A function of the host that is being called, for the messages that it logs.
class HostSite {
public:
    HostSite(const HostSite&) = delete;
    HostSite& operator=(const HostSite&) = delete;

    /// The node of the call, or null while its arguments are being evaluated.
    virtual const Node* node() const = 0;
    /// Adds the values of the arguments to the notes.
    virtual void describe(Diagnostic& diagnostic) = 0;
    /// The number of open calls of user functions when it began.
    std::int64_t openCalls() const { return openCalls_; }

protected:
    /// Becomes the innermost one of `control`.
    explicit inline HostSite(RunControl& control);
    inline ~HostSite();

private:
    RunControl& control_;
    HostSite* const outer_;
    const std::int64_t openCalls_;
};

/// Thrown inside the library to unwind a script that was stopped (by a limit, an interruption or
/// too deep a recursion). The interpreter's entry points catch it; it never leaves the library. An
/// extension's node must let it pass.
class KESTREL_API ScriptStopped {
public:
    /// `place` is where in the script it was stopped; null when that is not known yet.
    explicit ScriptStopped(const Node* place = nullptr) : place_(place) {}

    const Node* place() const { return place_; }
    /// Notes that the statement `place` was running. Only the first call counts: it comes from the
    /// innermost statement.
    void passedThrough(const Node* place) {
        if (place_ == nullptr) place_ = place;
    }

private:
    const Node* place_;
};

/// Watches over the work of one interpreter for its host, compiling and running scripts. Loops
/// report every turn, user functions every call, and long work its progress. `ScriptStopped` stops
/// a script that must not go on. The usual cost of a turn is a decrement and a branch. Only the
/// interpreter's thread uses this class; any thread may call `interrupt()`.
///
/// A `RunScope` (scr/run/Entry.h) begins a run. Outside of a run nothing is counted and nothing
/// is stopped.
class KESTREL_API RunControl {
public:
    explicit RunControl(Interpreter& interpreter);
    ~RunControl();
    RunControl(const RunControl&) = delete;
    RunControl& operator=(const RunControl&) = delete;

    /// How often a run began; distinguishes one execution from another.
    std::uint64_t runs() const { return runs_; }

    /// Counts one turn of the loop `place`, or one call made by the call node `place`.
    void turn(const Node* place) {
        if (--counters_.untilLook < 0) [[unlikely]]
            look(place);
    }

    /// Called on entry to a user function: counts a turn and stops the script when too many calls
    /// are open, or when they come near the end of the thread's stack.
    void enterCall(const Node* place) {
        turn(place);
        noteCall(place);
        checkCall(place);
    }
    /// The second half of that.
    void checkCall(const Node* place) {
        if (counters_.openCalls > counters_.mostCalls) [[unlikely]]
            stopAtLimit(place, "depth", limits_.depth);
        if (static_cast<char*>(__builtin_frame_address(0)) < counters_.stackEnd) [[unlikely]] {
            stopAtStackEnd(place);
        }
    }
    /// Called when the call returns; not called when it is stopped.
    void leaveCall() { --counters_.openCalls; }
    /// Looks whether the script has to stop, after a turn for which there was no count left.
    void look(const Node* place);

    /// The counters, for the code of a script.
    RunCounters& counters() { return counters_; }
    /// Called where something was caught that may not pass the code of a script: keeps it until
    /// `throwFailure`.
    void noteFailure() noexcept {
        failureInCode_ = std::current_exception();
        counters_.hasFailed = 1;
    }
    /// Throws what was noted, with `place` as the statement that was running.
    [[noreturn]] void throwFailure(const Node* place);

    /// Stops the script when a string of `size` bytes is longer than the limit allows. Call it
    /// before making the string.
    void checkString(const Node* place, std::size_t size) {
        if (size > static_cast<std::size_t>(limits_.string)) [[unlikely]]
            stopAtLimit(place, "string", limits_.string);
    }

    /// The control of the script that the calling thread runs, the innermost one; null outside.
    static RunControl* current();

    /// Counts bytes that the script's variables are about to take; stops the script when its values
    /// would hold more than the limit allows. See scr/run/MemoryCharge.h.
    void charge(std::size_t bytes) {
        charged_ += static_cast<std::int64_t>(bytes);
        if (charged_ > memoryBound_) [[unlikely]]
            settle(static_cast<std::int64_t>(bytes));
    }
    /// The same for bytes outside the variables; `giveBuffer` gives them back.
    void chargeBuffer(std::size_t bytes);
    /// Gives back what `chargeBuffer` took. Never stops the script.
    void giveBuffer(std::size_t bytes) noexcept {
        charged_ -= static_cast<std::int64_t>(bytes);
        buffers_ -= static_cast<std::int64_t>(bytes);
    }
    /// Charges bytes for code of the script, which it keeps; false, and nothing happens, when that
    /// would pass the limit.
    bool takeForCode(std::size_t bytes);
    /// The bytes outside the variables that are charged at present.
    std::int64_t buffers() const { return buffers_; }
    /// Gives back bytes that `charge` took and that `Interpreter::heapBytes` no longer counts.
    void giveBack(std::size_t bytes) noexcept { charged_ -= static_cast<std::int64_t>(bytes); }
    /// The script is gone: forgets all charges except for what the interpreter still holds.
    void clearCharges();

    const Limits& limits() const { return limits_; }
    /// Sets the limits for later checks. The time and the steps of the current run stay.
    void limits(const Limits& limits);
    /// The highest tier in which scripts run.
    CodeTier codeTier() const { return codeTier_; }
    void codeTier(CodeTier tier) { codeTier_ = tier; }
    /// Whether the last run was stopped.
    bool wasStopped() const { return wasStopped_; }
    /// For what runs between a run and those who ask that.
    void wasStopped(bool wasStopped) { wasStopped_ = wasStopped; }

    /// Sets the end of the stack of the running code: `lowest` is the lowest address that it may
    /// use. Null, the default, means the end of the calling thread's stack when the code runs on
    /// it; on another stack only the limit of open calls holds then.
    void stackEnd(const void* lowest) { givenStackEnd_ = lowest; }

    /// Stops the script now if it has to stop. Built-ins that wait or work for long call it several
    /// times a second. `place` is their node.
    [[gnu::always_inline]] void ask(const Node* place) {
        // What is usual is told apart at once.
        const bool isQuiet = !isStopPending_ && failure_.empty() && questions_ != stopsAt_ &&
                             limits_.time == Limits::none &&
                             state_.load(std::memory_order_relaxed) != State::Interrupted;
        if (isQuiet) [[likely]] {
            ++questions_;
        } else {
            askWhy(place);
        }
    }
    /// Stops the script now if it has to stop, or if an operation that takes so many milliseconds
    /// and cannot be stopped would pass the limit of time.
    void askFor(std::size_t milliseconds);
    /// Counts work on `bytes` bytes, beyond the usual work of a turn, and calls `ask` now and then.
    /// See scr/run/CountedWork.h.
    void work(std::size_t bytes) {
        untilAsked_ -= static_cast<std::int64_t>(bytes);
        if (untilAsked_ < 0) [[unlikely]]
            lookAtWork();
    }
    /// Whether `ask` would stop the script.
    bool mustStop() const;
    /// Between two executions that are one run: counts the steps and the time of the next one anew.
    /// Stops the script if it has to stop. Without effect in an inner run.
    void nextExecution();
    /// The number of runs that are open, one within the other.
    int depth() const { return depth_; }
    /// What happened to invalid Dates since the host last reset this: texts that are no Date were
    /// read, and an invalid Date was compared with another one.
    struct InvalidDates {
        bool areRead = false;
        bool areCompared = false;
    };
    InvalidDates& invalidDates() { return invalidDates_; }
    /// Whether anything is being compiled or executed.
    bool isRunning() const { return depth_ > 0; }

    /// Makes the current run stop soon; false when there is none. Any thread.
    bool interrupt();
    /// The innermost run was interrupted and is over; those around it go on.
    void forgetInterruption() {
        State state = State::Interrupted;
        state_.compare_exchange_strong(state, State::Running, std::memory_order_relaxed);
    }
    /// Makes the run stop with `message` at the next check, such as the one after the call of a
    /// host's function. False, with no effect, outside of a run.
    bool fail(const FND::String& message);
    /// Whether `fail` was called and the run has not been stopped yet.
    bool hasFailed() const { return !failure_.empty(); }
    /// Forgets the message of `fail` and returns it; empty when there was none.
    FND::String takeFailure() { return std::exchange(failure_, {}); }

    /// For code that must not throw, when `ScriptStopped` was thrown there: the script stops at the
    /// next check, for the same reason.
    void stopLater() { isStopPending_ = true; }
    bool isStopPending() const { return isStopPending_; }
    /// The interpreter looks after the run which objects its script has dropped.
    void giveObject() { wasGivenObjects_ = true; }
    /// Call this at the end of a run.
    void dropObjects() noexcept;
    /// True at the first call of each run.
    bool isFirstShortage() { return std::exchange(shortageRun_, runs_) != runs_; }

    /// For tests: lets the question number `question`, 0-based and counted from now on, stop the
    /// script. Each look at the clock, at an interruption or at the memory taken is a question, and
    /// each report of a turn, of work or of bytes causes a look. A negative number ends that.
    void stopAtQuestion(std::int64_t question);
    /// The number of questions since `stopAtQuestion`.
    std::int64_t questions() const { return questions_; }

    /// Stops the script; `report` then logs `message` with the line of `place` or, when that is not
    /// known, of the innermost statement that ran.
    [[noreturn]] void stop(const Node* place, const FND::String& message);
    /// The same because the host's function `function` failed.
    [[noreturn]] void stopForFailure(const FND::String& function, const FND::String& message);
    /// The place of the parser when it was stopped, as "line N: ".
    void stoppedAt(const FND::String& prefix) { prefix_ = prefix; }
    [[noreturn]] void stopAtLimit(const Node* place, const char* name, std::int64_t limit);
    /// Logs why `stop` stopped the script, and in which line.
    void report(const ScriptStopped& stopped);

    /// Who watches the script, or null.
    Observation* observation() const { return observation_; }
    void observation(Observation* observation) { observation_ = observation; }

    /// Adds to a message of the run the place of `node`, which logs it, or when that is null of the
    /// innermost call that is known; the calls that led there; and the values of the arguments of
    /// the host's function that is being called.
    void trace(Diagnostic& diagnostic, const Node* node);

private:
    friend class RunScope;
    friend class HostSite;

    void noteCall(const Node* place) {
        const std::int64_t number = ++counters_.openCalls;
        counters_.places[static_cast<std::size_t>(number) % RunCounters::placesCM] = {place,
                                                                                      number};
    }
    void addCalls(Diagnostic& diagnostic, std::int64_t innermost) const;

    // See scr/run/Entry.h.
    void begin();
    void finish();
    void end() noexcept;
    char* stackEndHere() const;
    void startInterval();
    void startExecution();
    void setDeadline();
    void lookAtWork();
    void settle(std::int64_t bytes);
    void count(const Node* place);
    // The same as `ask`, when there may be something.
    void askWhy(const Node* place);
    [[noreturn]] void stopAtStackEnd(const Node* place);

    enum class State : int { Idle, Running, Interrupted };

    /// Turns between two looks at the clock: far below a millisecond of script time.
    static constexpr std::int64_t lookIntervalCM = 256;
    /// Bytes of work between two looks; some work takes several nanoseconds a byte.
    static constexpr std::int64_t workIntervalCM = 128 * 1024;
    /// Outside of a run.
    static constexpr std::int64_t neverCM = INT64_MAX;

    Interpreter& interpreter_;
    Limits limits_;
    std::int64_t memoryBound_ = limits_.memory;  // may be charged without a question
    RunCounters counters_{.untilLook = neverCM, .mostCalls = limits_.depth};
    std::int64_t untilAsked_ = workIntervalCM;
    std::int64_t stepsLeft_ = Limits::none;  // in addition to those of untilLook
    const void* givenStackEnd_ = nullptr;
    std::chrono::steady_clock::time_point deadline_;
    int depth_ = 0;
    CodeTier codeTier_ = CodeTier::Native;
    std::int64_t charged_ = 0;    // at least what the script's values hold
    std::int64_t buffers_ = 0;    // the part of it outside the variables
    std::int64_t codeBytes_ = 0;  // for code
    FND::String message_;         // why the script was last stopped
    Outcome::Kind kind_ = Outcome::Kind::Stopped;
    FND::String limit_;
    FND::String function_;
    FND::String prefix_;   // where the parser was then
    FND::String failure_;  // the message of `fail`
    std::exception_ptr failureInCode_;
    HostSite* site_ = nullptr;            // the innermost one
    Observation* observation_ = nullptr;  // not owned
    std::unique_ptr<Diagnostic> stop_;    // what was known where the script was stopped
    InvalidDates invalidDates_;
    bool wasStopped_ = false;
    bool wasGivenObjects_ = false;
    bool isStopPending_ = false;
    std::uint64_t runs_ = 0;
    std::uint64_t shortageRun_ = 0;  // the last run in which a container had no room
    std::int64_t questions_ = 0;
    std::int64_t stopsAt_ = -1;  // the question that stops the script; negative for none
    std::atomic<State> state_{State::Idle};
};

inline HostSite::HostSite(RunControl& control)
    : control_(control), outer_(control.site_), openCalls_(control.counters_.openCalls) {
    control.site_ = this;
}

inline HostSite::~HostSite() { control_.site_ = outer_; }

}  // namespace SCR
