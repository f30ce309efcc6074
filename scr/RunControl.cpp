#include "scr/RunControl.h"

#include <pthread.h>

#include <algorithm>

#include "scr/Interpreter.h"

namespace SCR {

namespace {

// The lowest address that script code may reach on the calling thread's stack: its end plus a
// reserve for what runs between two calls, the deepest expression in the deepest block. Asked once
// a thread, since the C library reads a file to answer for the main thread.
char* stackEndOfThread() {
    thread_local char* const end = [] {
        constexpr std::size_t reserve = 256 * 1024;
        pthread_attr_t attributes;
        if (pthread_getattr_np(pthread_self(), &attributes) != 0)
            return static_cast<char*>(nullptr);
        void* lowest = nullptr;
        std::size_t size = 0;
        pthread_attr_getstack(&attributes, &lowest, &size);
        pthread_attr_destroy(&attributes);
        return static_cast<char*>(lowest) + std::min(reserve, size / 2);
    }();
    return end;
}

}  // namespace

void RunControl::enter() {
    if (depth_++ > 0) return;
    ++runs_;
    wasStopped_ = false;
    stackEnd_ = stackEndOfThread();
    stepsLeft_ = limits_.steps;
    startInterval();
    if (limits_.time != Limits::none) {
        deadline_ = std::chrono::steady_clock::now() + std::chrono::milliseconds(limits_.time);
    }
}

void RunControl::leave() { --depth_; }

void RunControl::startInterval() {
    untilLook_ = std::min(lookIntervalCM, stepsLeft_);
    if (stepsLeft_ != Limits::none) stepsLeft_ -= untilLook_;
}

void RunControl::look(const Node* place) {
    if (stepsLeft_ == 0) stopAtLimit(place, "steps", limits_.steps);
    startInterval();
    --untilLook_;
    ask(place);
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
    interpreter_.logError("ERROR: " + interpreter_.places().prefix(place) +
                          "script stopped: " + message);
    throw ScriptStopped();
}

}  // namespace SCR
