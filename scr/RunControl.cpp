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
    stackEnd_ = stackEndOfThread();
    untilLook_ = lookIntervalCM;
}

void RunControl::leave() { --depth_; }

void RunControl::look(const Node* place) {
    untilLook_ = lookIntervalCM;
    if (interrupted_.exchange(false, std::memory_order_relaxed)) stop(place, "interrupted");
}

void RunControl::stopAtStackEnd(const Node* place) {
    stop(place, "calls are nested too deep for the stack");
}

void RunControl::stop(const Node* place, const char* message) {
    FND::String text = "ERROR: ";
    text += interpreter_.places().prefix(place);
    text += "script stopped: ";
    text += message;
    interpreter_.logError(text);
    throw ScriptStopped();
}

}  // namespace SCR
