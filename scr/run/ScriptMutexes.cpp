#include "scr/run/ScriptMutexes.h"

#include <algorithm>
#include <chrono>

#include "scr/run/MemoryCharge.h"

namespace SCR {

long ScriptMutexes::create() {
    const std::lock_guard lock(instanceMutex_);
    std::size_t handle = firstUnused_;
    for (; handle < entries_.size() && entries_[handle].isUsed; ++handle) {
        countWork(sizeof(entries_[handle]));
    }
    if (handle == entries_.size()) {
        // They outlive the script: as much memory again is left for later scripts.
        const BufferCharge left(heapBytes());
        chargeMemory(entryBytesCM);
        entries_.emplace_back();
        ++size_;
    } else {
        entries_[handle].isUsed = true;
    }
    firstUnused_ = handle + 1;
    return static_cast<long>(handle);
}

bool ScriptMutexes::destroy(long handle) {
    const std::lock_guard lock(instanceMutex_);
    Entry* const entry = find(handle);
    if (entry == nullptr) return false;
    unlock(*entry);
    entry->isUsed = false;
    firstUnused_ = std::min(firstUnused_, static_cast<std::size_t>(handle));
    return true;
}

bool ScriptMutexes::acquire(long handle, const std::function<void()>& ask) {
    constexpr std::chrono::milliseconds interval(50);
    Entry* const entry = find(handle);
    if (entry == nullptr) return false;
    std::unique_lock lock(entry->guard);
    while (!entry->unlocked.wait_for(lock, interval, [&] { return !entry->isLocked; })) {
        if (!ask) continue;
        lock.unlock();
        ask();
        lock.lock();
    }
    entry->isLocked = true;
    return true;
}

bool ScriptMutexes::release(long handle) {
    Entry* const entry = find(handle);
    if (entry == nullptr) return false;
    unlock(*entry);
    return true;
}

ScriptMutexes::Entry* ScriptMutexes::find(long handle) {
    if (handle < 0 || static_cast<std::size_t>(handle) >= entries_.size()) return nullptr;
    Entry& entry = entries_[static_cast<std::size_t>(handle)];
    return entry.isUsed ? &entry : nullptr;
}

void ScriptMutexes::unlock(Entry& entry) {
    {
        const std::lock_guard lock(entry.guard);
        entry.isLocked = false;
    }
    entry.unlocked.notify_one();
}

}  // namespace SCR
