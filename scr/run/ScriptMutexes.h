#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

#include "fnd/Export.h"

namespace SCR {

/// The mutexes that the scripts of one interpreter create and use by number. Handles count from 0;
/// the lowest free one is reused first. Several threads may create and destroy mutexes at once; a
/// mutex must be created before other threads use it. Several interpreters may share the locks: a
/// handle then stands for one lock in all of them.
class ScriptMutexes {
public:
    ScriptMutexes() : locks_(std::make_shared<Locks>()) {}
    ScriptMutexes(const ScriptMutexes&) = delete;
    ScriptMutexes& operator=(const ScriptMutexes&) = delete;

    /// A new, or reused, live handle. A new one takes memory as long as this object lives, which is
    /// charged to the script that the calling thread runs.
    long create();
    /// Unlocks the mutex, whoever holds it, and frees its handle; false for a handle that is not
    /// live.
    bool destroy(long handle);
    /// Locks, waiting as long as necessary; not recursive; false for a handle that is not live.
    /// While it waits it calls `ask` several times a second without holding anything; `ask` may
    /// throw to give up.
    bool acquire(long handle, const std::function<void()>& ask = {});
    /// Unlocks; harmless on a free mutex; false for a handle that is not live.
    bool release(long handle);

    /// From now on the locks are those of `other`; false when a mutex was created already.
    bool share(const ScriptMutexes& other);
    /// After a script was stopped: unlocks what it holds of shared locks, so that the others go on.
    void giveUp();

    /// Bytes of all handles.
    std::size_t heapBytes() const { return size_ * entryBytesCM; }

private:
    // A flag and a condition instead of a bare mutex, since any thread may unlock it.
    struct Lock {
        bool isLocked = false;
        const ScriptMutexes* holder = nullptr;  // while it is locked
        std::mutex guard;                       // of these
        std::condition_variable unlocked;
    };
    struct Locks {
        std::mutex guard;        // of the number of locks
        std::deque<Lock> locks;  // which never move
        Lock& at(std::size_t handle);
    };
    struct Entry {
        explicit Entry(Lock& shared) : lock(shared) {}
        std::atomic<bool> isUsed = true;
        Lock& lock;  // in locks_
    };

    // An entry and its share of the deque's own blocks.
    static constexpr std::size_t entryBytesCM = (sizeof(Entry) + sizeof(Lock)) / 4 * 5;

    static void unlock(Lock& lock);

    Entry* find(long handle);

    std::shared_ptr<Locks> locks_;
    std::deque<Entry> entries_;          // entries never move
    std::atomic<std::size_t> size_ = 0;  // of entries_
    std::size_t firstUnused_ = 0;        // no entry before it is unused
    std::mutex instanceMutex_;
};

}  // namespace SCR
