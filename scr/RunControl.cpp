#include "scr/RunControl.h"

#include <pthread.h>

#include <algorithm>
#include <utility>

#include "scr/Interpreter.h"

namespace SCR {

namespace {

// Within the library's own static storage, so that reading it costs no call.
[[gnu::tls_model("initial-exec")]] thread_local RunControl* currentS = nullptr;

// The lowest address that script code may reach on the calling thread's stack: its end plus a
// reserve for what runs between two calls, the deepest expression in the deepest block. Asked once
// a thread, since the C library reads a file to answer for the main thread.
[[gnu::noinline]] char* findStackEnd() {
    constexpr std::size_t reserve = 256 * 1024;
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) return nullptr;
    void* lowest = nullptr;
    std::size_t size = 0;
    pthread_attr_getstack(&attributes, &lowest, &size);
    pthread_attr_destroy(&attributes);
    return static_cast<char*>(lowest) + std::min(reserve, size / 2);
}

[[gnu::tls_model("initial-exec")]] thread_local char* stackEndS = nullptr;

char* stackEndOfThread() {
    if (stackEndS == nullptr) [[unlikely]]
        stackEndS = findStackEnd();
    return stackEndS;
}

}  // namespace

RunControl* RunControl::current() { return currentS; }

inline void RunControl::startInterval() {
    untilLook_ = std::min(lookIntervalCM, stepsLeft_);
    if (stepsLeft_ != Limits::none) stepsLeft_ -= untilLook_;
}

RunControl* RunControl::enter() {
    RunControl* const outer = std::exchange(currentS, this);
    if (depth_++ > 0) return outer;
    ++runs_;
    wasStopped_ = false;
    stackEnd_ = stackEndOfThread();
    stepsLeft_ = limits_.steps;
    startInterval();
    if (limits_.time != Limits::none) {
        constexpr std::int64_t longest = std::int64_t{1} << 40;  // what the clock can count
        deadline_ = std::chrono::steady_clock::now() +
                    std::chrono::milliseconds(std::clamp<std::int64_t>(limits_.time, 0, longest));
    }
    return outer;
}

void RunControl::leave(RunControl* outer) {
    --depth_;
    currentS = outer;
}

void RunControl::chargeBuffer(std::int64_t bytes) {
    buffers_ += bytes;
    charged_ += bytes;
    if (charged_ > limits_.memory) [[unlikely]] {
        buffers_ -= bytes;
        settle(bytes);
        buffers_ += bytes;
    }
}

void RunControl::clearCharges() {
    buffers_ = 0;
    charged_ = interpreter_.heapBytes();
}

// Counting takes time for every element. Close to the limit each charge would have to count anew,
// so a script that comes that close is stopped.
void RunControl::settle(std::int64_t bytes) {
    const std::int64_t close = limits_.memory - limits_.memory / 64;
    charged_ = interpreter_.heapBytes() + buffers_;
    if (bytes > close - charged_) stopAtLimit(nullptr, "memory", limits_.memory);
    charged_ += bytes;
}

void RunControl::look(const Node* place) {
    if (stepsLeft_ == 0) stopAtLimit(place, "steps", limits_.steps);
    startInterval();
    --untilLook_;
    ask(place);
}

void RunControl::lookAtWork() {
    untilAsked_ = workIntervalCM;
    ask(nullptr);
}

void RunControl::ask(const Node* place) {
    if (interrupted_.exchange(false, std::memory_order_relaxed)) stop(place, "interrupted");
    if (limits_.time != Limits::none && std::chrono::steady_clock::now() > deadline_) {
        stopAtLimit(place, "time", limits_.time);
    }
}

bool RunControl::mustStop() const {
    return interrupted_.load(std::memory_order_relaxed) ||
           (limits_.time != Limits::none && std::chrono::steady_clock::now() > deadline_);
}

void RunControl::stopAtStackEnd(const Node* place) {
    stop(place, "calls are nested too deep for the stack");
}

void RunControl::stopAtLimit(const Node* place, const char* name, std::int64_t limit) {
    stop(place, FND::String("limit `") + name + "' of " + std::to_string(limit) + " passed");
}

void RunControl::stop(const Node* place, const FND::String& message) {
    wasStopped_ = true;
    message_ = message;
    const bool isKnown = place != nullptr && interpreter_.places().find(place) != nullptr;
    throw ScriptStopped(isKnown ? place : nullptr);
}

void RunControl::report(const ScriptStopped& stopped) {
    if (message_.empty()) return;
    interpreter_.logError("ERROR: " + interpreter_.places().prefix(stopped.place()) +
                          "script stopped: " + message_);
    message_.clear();
}

}  // namespace SCR
