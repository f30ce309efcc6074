#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <new>
#include <utility>
#include <vector>

#include "scr/run/MemoryCharge.h"

namespace SCR {

/// Some of the numbered slots of a container, side by side in memory.
struct SlotChunk {
    std::byte* slots = nullptr;
    std::size_t first = 0;  ///< the number of the first
};

/// The elements of an array, each in a slot of its own, as code finds them.
struct ElementSlots {
    const unsigned long* size = nullptr;             ///< how many there are
    const std::vector<SlotChunk>* chunks = nullptr;  ///< null when they do not lie in slots
    std::size_t slotSize = 0;
    std::size_t valueOffset = 0;  ///< in a slot
};

/// Memory for numbered slots of one size, in chunks that never move, so that the contents of a slot
/// stay where they are when others are added. The chunks hold 4, 4, 8, 16, ... 2048 slots and, from
/// slot 4096 on, 4096 each: few slots take little, many waste little. A chunk is made when it is
/// first asked for, independently of the chunks before it. The owner keeps the list of chunks and
/// manages the contents of the slots. Memory that is taken is charged. One thread at a time.
namespace Slots {

using Chunks = std::vector<SlotChunk>;

inline constexpr std::size_t firstSlotsS = 4;
inline constexpr std::size_t pageSlotsS = 4096;
inline constexpr std::size_t lastSmallChunkS = std::bit_width((pageSlotsS - 1) / firstSlotsS);

// The chunk of each group of slots that lies before the pages. A table look-up is faster than
// finding the highest bit of the slot's number.
inline constexpr auto smallChunksS = [] {
    std::array<unsigned char, pageSlotsS / firstSlotsS> chunks{};
    for (std::size_t group = 0; group < chunks.size(); ++group) {
        chunks[group] = static_cast<unsigned char>(std::bit_width(group));
    }
    return chunks;
}();

/// The chunk that slot `number` lies in.
constexpr std::size_t chunkOf(std::size_t number) {
    return number < pageSlotsS ? smallChunksS[number / firstSlotsS]
                               : number / pageSlotsS + lastSmallChunkS;
}
/// The number of the first slot of a chunk.
constexpr std::size_t firstOf(std::size_t chunk) {
    if (chunk > lastSmallChunkS) return (chunk - lastSmallChunkS) * pageSlotsS;
    return chunk > 0 ? (firstSlotsS / 2) << chunk : 0;
}
/// How many slots a chunk holds.
constexpr std::size_t slotsOf(std::size_t chunk) { return firstOf(chunk + 1) - firstOf(chunk); }

/// Slot `number`; null while its chunk does not exist. The chunk is below the size of `chunks`.
inline std::byte* find(const Chunks& chunks, std::size_t number, std::size_t slotSize) {
    const SlotChunk& chunk = chunks[chunkOf(number)];
    if (chunk.slots == nullptr) [[unlikely]]
        return nullptr;
    return chunk.slots + (number - chunk.first) * slotSize;
}

/// Whether chunk `chunk` exists.
inline bool exists(const Chunks& chunks, std::size_t chunk) {
    return chunk < chunks.size() && chunks[chunk].slots != nullptr;
}

/// Bytes of the chunks when their slots have `slotSize`.
std::size_t heapBytes(const Chunks& chunks, std::size_t slotSize);
/// Makes `chunks` at least as long as `count`; the new ones do not exist yet.
void extend(Chunks& chunks, std::size_t count);
/// Makes a chunk that does not exist yet and gives its first slot. Throws std::bad_alloc.
std::byte* allocate(Chunks& chunks, std::size_t chunk, std::size_t slotSize);
/// Frees a chunk, if it exists.
void release(Chunks& chunks, std::size_t chunk) noexcept;
/// Drops the chunks that do not exist after the highest one that does, but none below `count`.
void trim(Chunks& chunks, std::size_t count) noexcept;

}  // namespace Slots

/// Chunks that are freed with it; what their slots hold needs no destruction.
struct OwnedSlots {
    OwnedSlots() = default;
    OwnedSlots(const OwnedSlots&) = delete;
    OwnedSlots& operator=(const OwnedSlots&) = delete;
    ~OwnedSlots() {
        for (std::size_t chunk = 0; chunk < chunks.size(); ++chunk) Slots::release(chunks, chunk);
    }

    Slots::Chunks chunks;
};

}  // namespace SCR
