#include "Allocations.h"

#include <malloc.h>

#include <cstdlib>
#include <limits>
#include <new>

std::atomic<long> Allocations::madeCM{0};
std::atomic<long> Allocations::heldCM{0};
std::atomic<long> Allocations::bytesHeldCM{0};
std::atomic<std::size_t> Allocations::largestCM{std::numeric_limits<std::size_t>::max()};

namespace {

constexpr long unlimitedS = std::numeric_limits<long>::max();

std::atomic<long> leftG{unlimitedS};
std::atomic<bool> hasFailedG{false};
std::atomic<long> peakG{0};

void* allocate(std::size_t bytes, std::size_t alignment) {
    if (bytes > Allocations::largestCM) throw std::bad_alloc();
    if (leftG != unlimitedS && leftG-- == 0) {
        leftG = unlimitedS;
        hasFailedG = true;
        throw std::bad_alloc();
    }
    void* const memory = std::aligned_alloc(alignment, (bytes + alignment - 1) & ~(alignment - 1));
    if (memory == nullptr) throw std::bad_alloc();
    ++Allocations::madeCM;
    ++Allocations::heldCM;
    const long held = Allocations::bytesHeldCM += static_cast<long>(malloc_usable_size(memory));
    long peak = peakG;
    while (held > peak && !peakG.compare_exchange_weak(peak, held)) {
    }
    return memory;
}

void release(void* memory) noexcept {
    if (memory != nullptr) --Allocations::heldCM;
    Allocations::bytesHeldCM -= static_cast<long>(malloc_usable_size(memory));
    std::free(memory);
}

}  // namespace

long Allocations::startPeak() { return peakG = bytesHeldCM.load(); }

long Allocations::peak() { return peakG; }

void Allocations::failAfter(long count) {
    hasFailedG = false;
    leftG = count;
}

bool Allocations::endFailing() {
    leftG = unlimitedS;
    return hasFailedG;
}

void* operator new(std::size_t bytes) { return allocate(bytes, 16); }
void* operator new(std::size_t bytes, std::align_val_t alignment) {
    return allocate(bytes, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t bytes, const std::nothrow_t& /*unused*/) noexcept {
    try {
        return allocate(bytes, 16);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void operator delete(void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t /*bytes*/) noexcept { release(memory); }
void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept { release(memory); }
void operator delete(void* memory, std::size_t /*bytes*/, std::align_val_t /*alignment*/) noexcept {
    release(memory);
}
