#include "scr/run/ScriptMutexes.h"

#include <algorithm>
#include <chrono>

#include "scr/run/MemoryCharge.h"

namespace SCR {

ScriptMutexes::Lock& ScriptMutexes::Locks::at(std::size_t handle) {
    const std::lock_guard lock(guard);
    while (locks.size() <= handle) locks.emplace_back();
    return locks[handle];
}

bool ScriptMutexes::share(const ScriptMutexes& other) {
    const std::lock_guard lock(instanceMutex_);
    if (size_ != 0) return false;
    locks_ = other.locks_;
    return true;
}

void ScriptMutexes::giveUp() {
    if (locks_.use_count() == 1) return;
    for (Entry& entry : entries_) {
        Lock& held = entry.lock;
        {
            const std::lock_guard lock(held.guard);
            if (!held.isLocked || held.holder != this) continue;
        }
        unlock(held);
    }
}

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
        entries_.emplace_back(locks_->at(handle));
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
    unlock(entry->lock);
    entry->isUsed = false;
    firstUnused_ = std::min(firstUnused_, static_cast<std::size_t>(handle));
    return true;
}

bool ScriptMutexes::acquire(long handle, const std::function<void()>& ask) {
    constexpr std::chrono::milliseconds interval(50);
    Entry* const entry = find(handle);
    if (entry == nullptr) return false;
    Lock& wanted = entry->lock;
    std::unique_lock lock(wanted.guard);
    while (!wanted.unlocked.wait_for(lock, interval, [&] { return !wanted.isLocked; })) {
        if (!ask) continue;
        lock.unlock();
        ask();
        lock.lock();
    }
    wanted.isLocked = true;
    wanted.holder = this;
    return true;
}

bool ScriptMutexes::release(long handle) {
    Entry* const entry = find(handle);
    if (entry == nullptr) return false;
    unlock(entry->lock);
    return true;
}

ScriptMutexes::Entry* ScriptMutexes::find(long handle) {
    if (handle < 0 || static_cast<std::size_t>(handle) >= entries_.size()) return nullptr;
    Entry& entry = entries_[static_cast<std::size_t>(handle)];
    return entry.isUsed ? &entry : nullptr;
}

void ScriptMutexes::unlock(Lock& lock) {
    {
        const std::lock_guard guard(lock.guard);
        lock.isLocked = false;
    }
    lock.unlocked.notify_one();
}

}  // namespace SCR
