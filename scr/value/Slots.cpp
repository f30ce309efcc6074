#include "scr/value/Slots.h"

namespace SCR::Slots {

namespace {

constexpr std::align_val_t lineS{64};

// Large chunks start on a cache line, so that slots of 64 bytes never straddle one.
bool isAligned(std::size_t chunk) { return slotsOf(chunk) >= 32; }

}  // namespace

std::size_t heapBytes(const Chunks& chunks, std::size_t slotSize) {
    std::size_t bytes = chunks.capacity() * sizeof(SlotChunk);
    for (std::size_t chunk = 0; chunk < chunks.size(); ++chunk) {
        if (chunks[chunk].slots != nullptr) bytes += blockBytes(slotsOf(chunk) * slotSize);
    }
    return bytes;
}

void extend(Chunks& chunks, std::size_t count) {
    if (count <= chunks.size()) return;
    if (count > chunks.capacity()) chargeMemory((count - chunks.size()) * sizeof(SlotChunk));
    chunks.resize(count);
}

std::byte* allocate(Chunks& chunks, std::size_t chunk, std::size_t slotSize) {
    extend(chunks, chunk + 1);
    const std::size_t bytes = slotsOf(chunk) * slotSize;
    chargeMemory(blockBytes(bytes));
    void* const memory = isAligned(chunk) ? ::operator new(bytes, lineS) : ::operator new(bytes);
    chunks[chunk] = {static_cast<std::byte*>(memory), firstOf(chunk)};
    return chunks[chunk].slots;
}

void release(Chunks& chunks, std::size_t chunk) noexcept {
    std::byte* const memory = std::exchange(chunks[chunk].slots, nullptr);
    if (isAligned(chunk)) {
        ::operator delete(memory, lineS);
    } else {
        ::operator delete(memory);
    }
}

void trim(Chunks& chunks, std::size_t count) noexcept {
    while (chunks.size() > count && chunks.back().slots == nullptr) chunks.pop_back();
    if (chunks.capacity() > 2 * chunks.size() + 16) chunks.shrink_to_fit();
}

}  // namespace SCR::Slots
