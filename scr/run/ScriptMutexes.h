#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>

#include "fnd/Export.h"

namespace SCR {

/// The mutexes that the scripts of one interpreter create and use by number. Handles count from 0;
/// the lowest free one is reused first. Several threads may create and destroy mutexes at once; a
/// mutex must be created before other threads use it.
class ScriptMutexes {
public:
    ScriptMutexes() = default;
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

    /// Bytes of all handles.
    std::size_t heapBytes() const { return size_ * entryBytesCM; }

private:
    // A flag and a condition instead of a bare mutex, since any thread may unlock it.
    struct Entry {
        std::atomic<bool> isUsed = true;
        bool isLocked = false;
        std::mutex guard;  // of isLocked
        std::condition_variable unlocked;
    };

    // An entry and its share of the deque's own blocks.
    static constexpr std::size_t entryBytesCM = sizeof(Entry) + sizeof(Entry) / 4;

    static void unlock(Entry& entry);

    Entry* find(long handle);

    std::deque<Entry> entries_;          // entries never move
    std::atomic<std::size_t> size_ = 0;  // of entries_
    std::size_t firstUnused_ = 0;        // no entry before it is unused
    std::mutex instanceMutex_;
};

}  // namespace SCR
