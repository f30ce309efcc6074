#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include "fnd/ForkGuard.h"

namespace FSM {

/// A free list of memory slots for objects of one class, taken from the heap in blocks of 64 slots.
/// When the last slot in use comes back, nearly all blocks return to the heap, so one big automaton
/// does not keep its memory for the rest of the process. Safe from any thread; a pool lives as long
/// as the process.
template <class Object>
class Pool {
public:
    /// Memory for one object; throws std::bad_alloc when there is none.
    void* take() {
        std::lock_guard<std::mutex> guard(lock_);
        if (free_ == nullptr) addBlock();
        Slot* slot = free_;
        free_ = slot->next;
        ++used_;
        return slot;
    }

    /// Takes back memory that `take` gave; null is ignored.
    void give(void* memory) {
        if (memory == nullptr) return;
        Blocks unused;  // freed after the lock is released
        std::lock_guard<std::mutex> guard(lock_);
        Slot* slot = static_cast<Slot*>(memory);
        slot->next = free_;
        free_ = slot;
        if (--used_ == 0 && blocks_.size() > blocksKeptS) unused = keepBlocks(blocksKeptS);
    }

    /// Returns all memory to the heap, unless a slot is still in use.
    void freeMemory() {
        Blocks unused;
        std::lock_guard<std::mutex> guard(lock_);
        if (used_ == 0) unused = keepBlocks(0);
    }

private:
    static constexpr std::size_t slotsInBlockS = 64;
    static constexpr std::size_t blocksKeptS = 16;

    union Slot {
        Slot* next;
        alignas(Object) std::byte object[sizeof(Object)];
    };

    using Blocks = std::vector<std::unique_ptr<Slot[]>>;

    void addBlock() {
        kept_.reserve(blocksKeptS);
        blocks_.push_back(std::make_unique<Slot[]>(slotsInBlockS));
        link(blocks_.back().get());
    }

    void link(Slot* block) {
        for (std::size_t i = slotsInBlockS; i-- > 0;) {
            block[i].next = free_;
            free_ = &block[i];
        }
    }

    // Returns the blocks that are not kept.
    Blocks keepBlocks(std::size_t count) {
        Blocks unused = std::exchange(blocks_, std::exchange(kept_, {}));
        free_ = nullptr;
        for (std::size_t i = 0; i < std::min(count, unused.size()); ++i) {
            blocks_.push_back(std::move(unused[i]));
            link(blocks_.back().get());
        }
        return unused;
    }

    std::mutex lock_;
    FND::ForkGuard guard_{FND::ForkGuard::Rank::PatternMemory, lock_};
    Slot* free_ = nullptr;
    std::size_t used_ = 0;
    Blocks blocks_;
    Blocks kept_;  // room for the blocks to keep, so that giving back needs no memory
};

}  // namespace FSM
