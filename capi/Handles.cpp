#include "capi/Handles.h"

#include <array>
#include <atomic>
#include <bit>
#include <mutex>
#include <new>

#include "fnd/ForkGuard.h"

namespace CApi::Handles {

namespace {

struct Slot {
    std::atomic<Object*> object{nullptr};
    std::atomic<std::uint32_t> uses{1};
    std::uint32_t nextFree = 0;  // the number of the next free slot; guarded by the mutex
};

// Chunk n has 64 << n slots; slots never move. Slot numbers begin at 1.
constexpr std::uint32_t firstChunkS = 64;
constexpr std::size_t chunksS = 25;
std::array<std::atomic<Slot*>, chunksS> tableS;

std::mutex mutexS;
FND::ForkGuard guardS(FND::ForkGuard::Rank::Handles, mutexS);
std::uint32_t usedS = 0;  // slots that were ever used
std::uint32_t freeS = 0;  // the first free one of these

struct Position {
    std::size_t chunk;
    std::uint32_t offset;
};

Position positionOf(std::uint32_t number) {
    // Any number may come, so this must not overflow.
    const std::uint64_t first = firstChunkS;
    const std::uint64_t from = number - 1 + first;
    const auto chunk = static_cast<std::size_t>(std::bit_width(from) - std::bit_width(first));
    return {chunk, static_cast<std::uint32_t>(from - (first << chunk))};
}

Slot* slotOf(std::uint32_t number) noexcept {
    if (number == 0) return nullptr;
    const Position at = positionOf(number);
    if (at.chunk >= chunksS) return nullptr;
    Slot* const chunk = tableS[at.chunk].load(std::memory_order_acquire);
    return chunk != nullptr ? chunk + at.offset : nullptr;
}

std::uint32_t numberOf(const void* handle) {
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(handle));
}
std::uint32_t usesOf(const void* handle) {
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(handle) >> 32);
}

}  // namespace

void* add(Object& object) noexcept {
    const std::lock_guard lock(mutexS);
    std::uint32_t number = freeS;
    if (number == 0) {
        const Position at = positionOf(usedS + 1);
        if (at.chunk >= chunksS) return nullptr;
        if (tableS[at.chunk].load(std::memory_order_relaxed) == nullptr) {
            Slot* const made = new (std::nothrow) Slot[std::size_t{firstChunkS} << at.chunk];
            if (made == nullptr) return nullptr;
            tableS[at.chunk].store(made, std::memory_order_release);
        }
        number = ++usedS;
    }
    Slot& slot = *slotOf(number);
    if (number == freeS) freeS = slot.nextFree;
    slot.object.store(&object, std::memory_order_release);
    const std::uintptr_t uses = slot.uses.load(std::memory_order_relaxed);
    // A number, which nobody follows.
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    return reinterpret_cast<void*>(uses << 32 | number);
}

Object* find(const void* handle, Kind kind) noexcept {
    const Slot* const slot = slotOf(numberOf(handle));
    if (slot == nullptr || slot->uses.load(std::memory_order_acquire) != usesOf(handle)) {
        return nullptr;
    }
    Object* const object = slot->object.load(std::memory_order_acquire);
    return object != nullptr && object->kind() == kind ? object : nullptr;
}

void remove(const void* handle) noexcept {
    const std::lock_guard lock(mutexS);
    const std::uint32_t number = numberOf(handle);
    Slot* const slot = slotOf(number);
    if (slot == nullptr || slot->uses.load(std::memory_order_relaxed) != usesOf(handle)) return;
    slot->object.store(nullptr, std::memory_order_relaxed);
    slot->uses.store(usesOf(handle) + 1, std::memory_order_release);
    slot->nextFree = freeS;
    freeS = number;
}

}  // namespace CApi::Handles
