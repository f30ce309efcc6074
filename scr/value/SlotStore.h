#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <new>
#include <utility>
#include <vector>

#include "scr/run/Memory.h"

namespace SCR {

/// Memory for numbered slots of one size, in chunks that never move, so that the contents of a slot
/// stay where they are when others are added. The chunks hold 4, 4, 8, 16, ... 2048 slots and, from
/// slot 4096 on, 4096 each: few slots take little, many waste little. A chunk is made when it is
/// first asked for, independently of the chunks before it. The owner manages the contents of the
/// slots; the store only frees the memory. It charges the memory that it takes. One thread at a
/// time.
class SlotStore {
public:
    SlotStore() = default;
    SlotStore(const SlotStore&) = delete;
    SlotStore& operator=(const SlotStore&) = delete;
    ~SlotStore() {
        for (std::size_t chunk = 0; chunk < chunks_.size(); ++chunk) release(chunk);
    }

    /// Exchanges all slots with those of `other`.
    void swap(SlotStore& other) noexcept { chunks_.swap(other.chunks_); }

    /// The chunk that slot `number` lies in.
    static constexpr std::size_t chunkOf(std::size_t number) {
        return number < pageSlotsCM ? smallChunksCM[number / firstSlotsCM]
                                    : number / pageSlotsCM + lastSmallChunkCM;
    }
    /// The number of the first slot of a chunk.
    static constexpr std::size_t firstOf(std::size_t chunk) {
        if (chunk > lastSmallChunkCM) return (chunk - lastSmallChunkCM) * pageSlotsCM;
        return chunk > 0 ? (firstSlotsCM / 2) << chunk : 0;
    }
    /// How many slots a chunk holds.
    static constexpr std::size_t slotsOf(std::size_t chunk) {
        return firstOf(chunk + 1) - firstOf(chunk);
    }

    /// The number of chunks addressed so far; the highest of them may not exist.
    std::size_t numChunks() const { return chunks_.size(); }
    /// The first slot of chunk number `chunk`, which is below `numChunks()`; null while it does not
    /// exist.
    std::byte* chunk(std::size_t chunk) const { return chunks_[chunk].slots; }

    /// Slot `number`; null while its chunk does not exist. That chunk is below `numChunks()`.
    std::byte* find(std::size_t number, std::size_t slotSize) const {
        const Chunk& chunk = chunks_[chunkOf(number)];
        if (chunk.slots == nullptr) [[unlikely]]
            return nullptr;
        return chunk.slots + (number - chunk.first) * slotSize;
    }

    /// Bytes of the store when its slots have `slotSize`.
    std::size_t heapBytes(std::size_t slotSize) const {
        std::size_t bytes = chunks_.capacity() * sizeof(Chunk);
        for (std::size_t chunk = 0; chunk < chunks_.size(); ++chunk) {
            if (chunks_[chunk].slots != nullptr) bytes += blockBytes(slotsOf(chunk) * slotSize);
        }
        return bytes;
    }

    /// Makes `numChunks()` at least `count`.
    void extend(std::size_t count) {
        if (count <= chunks_.size()) return;
        if (count > chunks_.capacity()) chargeMemory((count - chunks_.size()) * sizeof(Chunk));
        chunks_.resize(count);
    }
    /// Makes a chunk that does not exist yet and gives its first slot. Throws std::bad_alloc.
    std::byte* allocate(std::size_t chunk, std::size_t slotSize) {
        extend(chunk + 1);
        const std::size_t bytes = slotsOf(chunk) * slotSize;
        chargeMemory(blockBytes(bytes));
        void* const memory =
            isAligned(chunk) ? ::operator new(bytes, lineCM) : ::operator new(bytes);
        chunks_[chunk] = {static_cast<std::byte*>(memory), firstOf(chunk)};
        return chunks_[chunk].slots;
    }
    /// Frees a chunk, if it exists.
    void release(std::size_t chunk) noexcept {
        std::byte* const memory = std::exchange(chunks_[chunk].slots, nullptr);
        if (isAligned(chunk)) {
            ::operator delete(memory, lineCM);
        } else {
            ::operator delete(memory);
        }
    }
    /// Drops the chunks that do not exist after the highest one that does, but none below `count`.
    void trim(std::size_t count) noexcept {
        while (chunks_.size() > count && chunks_.back().slots == nullptr) chunks_.pop_back();
        if (chunks_.capacity() > 2 * chunks_.size() + 16) chunks_.shrink_to_fit();
    }

private:
    struct Chunk {
        std::byte* slots = nullptr;
        std::size_t first = 0;
    };

    static constexpr std::size_t firstSlotsCM = 4;
    static constexpr std::size_t pageSlotsCM = 4096;
    static constexpr std::size_t lastSmallChunkCM =
        std::bit_width((pageSlotsCM - 1) / firstSlotsCM);
    static constexpr std::align_val_t lineCM{64};

    // The chunk of each group of slots that lies before the pages. A table look-up is faster than
    // finding the highest bit of the slot's number.
    static constexpr auto smallChunksCM = [] {
        std::array<unsigned char, pageSlotsCM / firstSlotsCM> chunks{};
        for (std::size_t group = 0; group < chunks.size(); ++group) {
            chunks[group] = static_cast<unsigned char>(std::bit_width(group));
        }
        return chunks;
    }();

    // Large chunks start on a cache line, so that slots of 64 bytes never straddle one.
    static constexpr bool isAligned(std::size_t chunk) { return slotsOf(chunk) >= 32; }

    std::vector<Chunk> chunks_;
};

}  // namespace SCR
