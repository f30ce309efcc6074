#include "scr/value/PlainBlock.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>

#include "scr/run/MemoryCharge.h"

namespace SCR::PlainBlocks {

namespace {

constexpr std::size_t largePageS = std::size_t{2} << 20;
// Blocks from here on are mapped.
constexpr std::size_t mappedS = 2 * largePageS;

void freeBlock(std::byte* values, std::size_t bytes) noexcept {
    if (bytes >= mappedS) {
        munmap(values, bytes);
    } else {
        ::operator delete(values);
    }
}

// `bytes` zero bytes that begin with a large page.
std::byte* mapBlock(std::size_t bytes) {
    const std::size_t all = bytes + largePageS;
    void* const mapped =
        mmap(nullptr, all, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) throw std::bad_alloc();
    auto* const begin = static_cast<std::byte*>(mapped);
    const std::size_t before = (0 - reinterpret_cast<std::uintptr_t>(mapped)) % largePageS;
    if (before > 0) munmap(begin, before);
    if (before < largePageS) munmap(begin + before + bytes, largePageS - before);
    madvise(begin + before, bytes, MADV_HUGEPAGE);
    return begin + before;
}

void fillFrom(std::byte* values, std::size_t from, std::size_t to, std::size_t width,
              const std::byte* fill) {
    if (width == 1) {
        std::memset(values + from, static_cast<int>(*fill), to - from);
        return;
    }
    for (std::size_t i = from; i < to; ++i) std::memcpy(values + i * width, fill, width);
}

bool isZero(const std::byte* fill, std::size_t width) {
    return std::all_of(fill, fill + width, [](std::byte byte) { return byte == std::byte{0}; });
}

}  // namespace

void reserve(Block& block, std::size_t count, std::size_t width, const std::byte* fill) {
    if (count <= block.capacity) return;
    constexpr std::size_t least = 8;
    std::size_t taken =
        std::max<std::size_t>({count, static_cast<std::size_t>(2 * block.capacity), least}) * width;
    if (taken >= mappedS) taken = (taken + largePageS - 1) / largePageS * largePageS;
    chargeMemory(blockBytes(taken) - heapBytes(block));
    std::byte* const made =
        taken >= mappedS ? mapBlock(taken) : static_cast<std::byte*>(::operator new(taken));
    try {
        inPieces(block.size * width, [&](std::size_t begin, std::size_t end) {
            if (end > begin) std::memcpy(made + begin, block.values + begin, end - begin);
        });
    } catch (...) {
        freeBlock(made, taken);
        throw;
    }
    if (taken < mappedS || !isZero(fill, width)) {
        fillFrom(made, block.size, taken / width, width, fill);
    }
    if (block.values != nullptr) freeBlock(block.values, block.bytes);
    block = {made, block.size, taken / width, taken};
}

void clear(Block& block) noexcept {
    if (block.values != nullptr) freeBlock(block.values, block.bytes);
    block = {};
}

void truncate(Block& block, std::size_t count, std::size_t width, const std::byte* fill) noexcept {
    if (count >= block.size) return;
    constexpr std::size_t kept = 64;
    if (count == 0 && block.capacity > kept) return clear(block);
    std::size_t used = block.size;  // what lies from here on is filled
    const std::size_t most = std::max(kept, 2 * count);
    const std::size_t needed = most * width;
    if (needed >= mappedS) {
        const std::size_t rest = (needed + largePageS - 1) / largePageS * largePageS;
        if (rest < block.bytes && munmap(block.values + rest, block.bytes - rest) == 0) {
            block.bytes = rest;
            block.capacity = rest / width;
        }
    } else if (block.capacity > most) {
        if (auto* const made = static_cast<std::byte*>(::operator new(needed, std::nothrow))) {
            std::memcpy(made, block.values, count * width);
            freeBlock(block.values, block.bytes);
            block = {made, count, most, needed};
            used = most;
        }
    }
    fillFrom(block.values, count, std::min<std::size_t>(used, block.capacity), width, fill);
    block.size = count;
}

std::size_t heapBytes(const Block& block) { return block.bytes > 0 ? blockBytes(block.bytes) : 0; }

}  // namespace SCR::PlainBlocks
