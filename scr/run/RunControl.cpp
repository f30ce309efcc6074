#include "scr/run/RunControl.h"

#include <pthread.h>

#include <algorithm>
#include <ctime>
#include <utility>

#include "scr/Interpreter.h"
#include "scr/Log.h"
#include "scr/message/Codes.h"
#include "scr/run/Entry.h"
#include "scr/run/PlaceTable.h"

namespace SCR {

constinit thread_local RunControl* currentControlG = nullptr;
constinit thread_local ThreadStack threadStackG;

ThreadStack ThreadStack::find() {
    ThreadStack stack;
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) return stack;
    void* lowest = nullptr;
    std::size_t size = 0;
    pthread_attr_getstack(&attributes, &lowest, &size);
    pthread_attr_destroy(&attributes);
    stack.lowest = static_cast<char*>(lowest);
    stack.highest = stack.lowest + size;
    stack.end = stack.lowest + std::min(reserveCM, size / 2);
    return stack;
}

RunControl::RunControl(Interpreter& interpreter) : interpreter_(interpreter) {}
RunControl::~RunControl() = default;

RunControl* RunControl::current() { return currentControlG; }

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds longestTickS(10);

// The steady clock, late by up to a tick of the kernel: it is read several times as fast. Where
// there is no such clock, the exact one.
Clock::time_point roughNow() {
#ifdef CLOCK_MONOTONIC_COARSE
    timespec now{};
    if (clock_gettime(CLOCK_MONOTONIC_COARSE, &now) == 0) {
        return Clock::time_point(std::chrono::seconds(now.tv_sec) +
                                 std::chrono::nanoseconds(now.tv_nsec));
    }
#endif
    return Clock::now();
}

// Whether the steady clock is past `deadline`. Every call of a host's function asks for it, so the
// exact time is only looked at near the deadline.
bool isPast(Clock::time_point deadline) {
    return roughNow() >= deadline - 2 * longestTickS && Clock::now() > deadline;
}

}  // namespace

// A limit of seconds may come a tick late, never early: a host with such a limit begins a run for
// each record.
void RunControl::setDeadline() {
    constexpr std::int64_t longest = std::int64_t{1} << 40;  // the clock can count that far
    constexpr std::int64_t second = 1000;
    const auto now = limits_.time < second ? Clock::now() : roughNow() + longestTickS;
    deadline_ = now + std::chrono::milliseconds(std::clamp<std::int64_t>(limits_.time, 0, longest));
}

void RunControl::limits(const Limits& limits) {
    limits_ = limits;
    counters_.mostCalls = limits.depth;
    memoryBound_ = stopsAt_ < 0 ? limits.memory : -1;
}

void RunControl::dropObjects() noexcept {
    if (depth_ > 0) return;
    wasGivenObjects_ = false;
    interpreter_.dropObjects();
}

void RunControl::chargeBuffer(std::size_t bytes) {
    const auto size = static_cast<std::int64_t>(bytes);
    charged_ += size;
    if (charged_ > memoryBound_) [[unlikely]]
        settle(size);
    buffers_ += size;
}

bool RunControl::takeForCode(std::size_t bytes) {
    const auto size = static_cast<std::int64_t>(bytes);
    if (size > limits_.memory - limits_.memory / 64 - charged_) return false;
    charged_ += size;
    codeBytes_ += size;
    return true;
}

void RunControl::clearCharges() {
    buffers_ = 0;
    codeBytes_ = 0;
    charged_ = interpreter_.heapBytes();
}

// Counting visits every element. Near the limit each charge would need a new count, so a script
// that comes that close is stopped.
void RunControl::settle(std::int64_t bytes) {
    charged_ -= bytes;
    count(nullptr);
    charged_ = interpreter_.heapBytes() + buffers_ + codeBytes_;
    if (bytes > limits_.memory - limits_.memory / 64 - charged_) {
        stopAtLimit(nullptr, "memory", limits_.memory);
    }
    charged_ += bytes;
}

void RunControl::look(const Node* place) {
    if (stepsLeft_ == 0) stopAtLimit(place, "steps", limits_.steps);
    startInterval();
    --counters_.untilLook;
    ask(place);
}

void RunControl::throwFailure(const Node* place) {
    counters_.hasFailed = 0;
    try {
        std::rethrow_exception(std::exchange(failureInCode_, nullptr));
    } catch (ScriptStopped& stopped) {
        stopped.passedThrough(place);
        throw;
    }
}

void RunControl::lookAtWork() {
    untilAsked_ = stopsAt_ < 0 ? workIntervalCM : 0;
    ask(nullptr);
}

inline void RunControl::count(const Node* place) {
    if (questions_++ == stopsAt_) stop(place, "stopped by a test");
}

void RunControl::askWhy(const Node* place) {
    if (isStopPending_) [[unlikely]] {
        isStopPending_ = false;
        throw ScriptStopped();
    }
    count(place);
    if (!failure_.empty()) [[unlikely]] {
        kind_ = Outcome::Kind::Failed;
        stop(place, takeFailure());
    }
    if (state_.load(std::memory_order_relaxed) == State::Interrupted) stop(place, "interrupted");
    if (limits_.time != Limits::none && isPast(deadline_)) {
        stopAtLimit(place, "time", limits_.time);
    }
}

void RunControl::askFor(std::size_t milliseconds) {
    if (!isRunning()) return;
    ask(nullptr);
    if (milliseconds == 0 || limits_.time == Limits::none) return;
    const auto end = std::chrono::steady_clock::now() +
                     std::chrono::milliseconds(static_cast<std::int64_t>(milliseconds));
    if (end > deadline_) stopAtLimit(nullptr, "time", limits_.time);
}

bool RunControl::mustStop() const {
    return isStopPending_ || !failure_.empty() ||
           state_.load(std::memory_order_relaxed) == State::Interrupted ||
           (limits_.time != Limits::none && std::chrono::steady_clock::now() > deadline_);
}

bool RunControl::interrupt() {
    State state = State::Running;
    return state_.compare_exchange_strong(state, State::Interrupted, std::memory_order_relaxed) ||
           state == State::Interrupted;
}

bool RunControl::fail(const FND::String& message) {
    if (!isRunning()) return false;
    if (failure_.empty()) failure_ = message.empty() ? "failed" : message;
    return true;
}

void RunControl::stopAtQuestion(std::int64_t question) {
    stopsAt_ = question;
    questions_ = 0;
    untilAsked_ = question < 0 ? workIntervalCM : 0;
    limits(limits_);
}

void RunControl::stopAtStackEnd(const Node* place) {
    limit_ = "stack";
    stop(place, "calls are nested too deep for the stack");
}

void RunControl::stopAtLimit(const Node* place, const char* name, std::int64_t limit) {
    limit_ = name;
    stop(place, FND::String("limit `") + name + "' of " + std::to_string(limit) + " passed");
}

void RunControl::stopForFailure(const FND::String& function, const FND::String& message) {
    kind_ = Outcome::Kind::Failed;
    function_ = function;
    stop(nullptr, message);
}

void RunControl::stop(const Node* place, const FND::String& message) {
    wasStopped_ = true;
    message_ = message;
    prefix_.clear();
    const bool isKnown = place != nullptr && interpreter_.places().find(place) != nullptr;
    stop_ = std::make_unique<Diagnostic>();
    trace(*stop_, nullptr);
    throw ScriptStopped(isKnown ? place : nullptr);
}

void RunControl::report(const ScriptStopped& stopped) {
    if (message_.empty()) return;
    interpreter_.noteStop(std::exchange(kind_, Outcome::Kind::Stopped), std::exchange(limit_, {}),
                          std::exchange(function_, {}));
    const FND::String message = std::exchange(message_, {});
    const FND::String prefix = std::exchange(prefix_, {});
    Diagnostic diagnostic;
    if (stop_ != nullptr) diagnostic = std::move(*std::exchange(stop_, nullptr));
    diagnostic.code = codeName(MessageCode::Stopped);
    diagnostic.text =
        "ERROR: " +
        (stopped.place() != nullptr ? interpreter_.places().prefix(stopped.place()) : prefix) +
        "script stopped: " + message;
    const PlaceTable& places = interpreter_.places();
    const PlaceTable::Place* const place =
        stopped.place() != nullptr ? places.find(stopped.place()) : nullptr;
    if (place != nullptr) diagnostic.place = {places.fileName(*place), place->line, 0, 0};
    interpreter_.diagnose(std::move(diagnostic));
}

void RunControl::trace(Diagnostic& diagnostic, const Node* node) {
    const std::int64_t openCalls = counters_.openCalls;
    const bool isHost = node == nullptr && site_ != nullptr && site_->openCalls() == openCalls &&
                        site_->node() != nullptr;
    if (isHost) {
        node = site_->node();
        site_->describe(diagnostic);
    }
    const PlaceTable& places = interpreter_.places();
    std::int64_t innermost = openCalls;
    const CallPlace& last =
        counters_.places[static_cast<std::size_t>(openCalls) % RunCounters::placesCM];
    if (node == nullptr && openCalls > 0 && last.number == openCalls) {
        node = last.node;
        --innermost;
    }
    if (const PlaceTable::Place* const place = node != nullptr ? places.find(node) : nullptr) {
        diagnostic.place = {places.fileName(*place), place->line, 0, 0};
    }
    addCalls(diagnostic, innermost);
}

void RunControl::addCalls(Diagnostic& diagnostic, std::int64_t innermost) const {
    constexpr int mostPlaces = 10;
    const PlaceTable& places = interpreter_.places();
    const PlaceTable::Place* last = nullptr;
    std::int64_t times = 0;
    int shown = 0;
    const auto add = [&] {
        if (last == nullptr) return;
        const FND::String often = times > 1 ? ", " + std::to_string(times) + " times" : "";
        diagnostic.notes.push_back(
            {"called from here" + often, {places.fileName(*last), last->line, 0, 0}});
    };
    std::int64_t number = innermost;
    for (; number > 0; --number) {
        const CallPlace& call =
            counters_.places[static_cast<std::size_t>(number) % RunCounters::placesCM];
        // A call that is not known any more has others of its kind after it.
        if (call.number != number) break;
        const PlaceTable::Place* const place =
            call.node != nullptr ? places.find(call.node) : nullptr;
        if (place == nullptr) continue;
        if (last != nullptr && place->line == last->line && place->file == last->file) {
            ++times;
            continue;
        }
        if (++shown > mostPlaces) break;
        add();
        last = place;
        times = 1;
    }
    add();
    if (number > 0) {
        diagnostic.notes.push_back({"and " + std::to_string(number) + " calls before that", {}});
    }
}

}  // namespace SCR
