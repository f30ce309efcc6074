#pragma once

#include <atomic>
#include <cstdint>

namespace SCR {

class Interpreter;

/// What the handles of an interpreter's script share with it, and outlives it.
struct Link {
    std::atomic<const void*> user{nullptr};  ///< the thread that uses the interpreter now
    Interpreter* interpreter = nullptr;      ///< null when it is gone
    std::uint64_t generation = 0;
    bool isReady = false;  ///< a script is compiled
};

/// Its address is one that no other thread has.
[[gnu::tls_model("initial-exec")]] inline thread_local char threadMarkS = 0;

/// Lets the calling thread use an interpreter; false while another one does. `isOutermost` tells
/// whether it did not use it yet, and must then call `leave`.
inline bool enter(Link& link, bool& isOutermost) noexcept {
    const void* const me = &threadMarkS;
    if (link.user.load(std::memory_order_relaxed) == me) return true;
    const void* none = nullptr;
    isOutermost = link.user.compare_exchange_strong(none, me, std::memory_order_acquire,
                                                    std::memory_order_relaxed);
    return isOutermost;
}
inline void leave(Link& link) noexcept { link.user.store(nullptr, std::memory_order_release); }

/// Uses an interpreter on the calling thread, unless another one was already doing so. Takes next
/// to no time, and does not notice two threads that begin in the same moment.
class LightUse {
public:
    explicit LightUse(Link& link) noexcept : link_(link) {
        const void* const me = &threadMarkS;
        const void* const user = link.user.load(std::memory_order_relaxed);
        isEntered_ = user == nullptr || user == me;
        isOutermost_ = user == nullptr;
        if (isOutermost_) link.user.store(me, std::memory_order_relaxed);
    }
    LightUse(const LightUse&) = delete;
    LightUse& operator=(const LightUse&) = delete;
    ~LightUse() {
        if (isOutermost_) leave(link_);
    }
    explicit operator bool() const { return isEntered_; }

private:
    Link& link_;
    bool isEntered_;
    bool isOutermost_;
};

/// Uses an interpreter on the calling thread, unless another one does. May be nested.
class Use {
public:
    explicit Use(Link& link) noexcept : link_(link), isEntered_(enter(link, isOutermost_)) {}
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
    ~Use() {
        if (isOutermost_) leave(link_);
    }
    /// Whether the interpreter may be used.
    explicit operator bool() const { return isEntered_; }

private:
    Link& link_;
    bool isOutermost_ = false;
    const bool isEntered_;
};

}  // namespace SCR
