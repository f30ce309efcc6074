#pragma once

#include <new>

namespace FND {

/// Keeps a lock of the whole process usable in the child of a `fork`: forking waits until the lock
/// is free, and it is free in the child too, whatever other threads of the parent were doing.
/// Guards and their locks live as long as the process. Any thread may make one.
class ForkGuard {
public:
    /// In the order in which one thread takes the locks, the first one first.
    enum class Rank { Parse, BuiltIns, PatternGroups, PatternMemory, NodeMemory, Handles };

    template <class Mutex>
    ForkGuard(Rank rank, Mutex& mutex)
        : rank_(rank), mutex_(&mutex), handle_([](void* lock, Event event) {
              auto* const handled = static_cast<Mutex*>(lock);
              if (event == Event::Fork) handled->lock();
              if (event == Event::Parent) handled->unlock();
              // The child's thread is not the thread that took the lock.
              if (event == Event::Child) new (handled) Mutex;
          }) {
        enlist();
    }
    ForkGuard(const ForkGuard&) = delete;
    ForkGuard& operator=(const ForkGuard&) = delete;

private:
    enum class Event { Fork, Parent, Child };

    static void handleAll(Event event);
    void enlist();

    const Rank rank_;
    void* const mutex_;
    void (*const handle_)(void* mutex, Event event);
    ForkGuard* next_ = nullptr;
};

}  // namespace FND
