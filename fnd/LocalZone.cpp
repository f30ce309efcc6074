#include "fnd/LocalZone.h"

#include <array>
#include <atomic>
#include <cstddef>

#include <time.h>

// The C library's conversion takes a lock and some 50 ns. Offsets are therefore kept by blocks of
// time in which they do not change: a block whose two ends have one offset has it throughout, as
// real zones keep an offset for longer than a block (the shortest that the zone database knows is
// four days, the block three).

namespace FND {
namespace {

constexpr std::int64_t secsPerDayS = 86400;

constexpr int blockShiftS = 18;
constexpr std::int64_t blockSecsS = std::int64_t{1} << blockShiftS;

// An entry is one word, so that it is read and written as a whole: the generation of the zone, the
// block's number, counted from a time before all, and the block's offset, made positive.
constexpr int offsetBitsS = 18;
constexpr int blockBitsS = 22;
constexpr std::int64_t offsetBiasS = std::int64_t{1} << (offsetBitsS - 1);
constexpr std::int64_t blockBiasS = std::int64_t{1} << (blockBitsS - 1);
constexpr std::uint64_t offsetMaskS = (std::uint64_t{1} << offsetBitsS) - 1;
constexpr std::uint64_t changesS = offsetMaskS;  // in place of an offset: it changes in the block

constexpr std::size_t entryCountS = 4096;  // 34 years lie side by side
std::array<std::atomic<std::uint64_t>, entryCountS> entriesS;
std::atomic<std::uint64_t> generationS{1};

tm localTimeAt(std::int64_t secs) noexcept {
    // POSIX lets localtime_r leave TZ unread.
    [[maybe_unused]] static const bool zoneIsReadS = (tzset(), true);
    const time_t time = secs;
    tm local{};
    if (!localtime_r(&time, &local)) local.tm_zone = "UTC";
    return local;
}

std::int64_t askOffsetAt(std::int64_t secs) noexcept { return localTimeAt(secs).tm_gmtoff; }

/// The offset field of the entry of the block that begins at `start`.
std::uint64_t offsetOfBlock(std::int64_t start) noexcept {
    const std::int64_t offset = askOffsetAt(start);
    const bool fits = offset > -secsPerDayS && offset < secsPerDayS;
    if (!fits || askOffsetAt(start + blockSecsS) != offset) return changesS;
    return static_cast<std::uint64_t>(offset + offsetBiasS);
}

}  // namespace

std::int64_t localOffsetAt(std::int64_t secs) noexcept {
    const std::int64_t block = secs >> blockShiftS;
    const std::uint64_t key = generationS.load(std::memory_order_relaxed) << blockBitsS |
                              static_cast<std::uint64_t>(block + blockBiasS);
    auto& kept = entriesS[static_cast<std::uint64_t>(block) % entryCountS];
    std::uint64_t entry = kept.load(std::memory_order_relaxed);
    if (entry >> offsetBitsS != key) {
        entry = key << offsetBitsS | offsetOfBlock(block * blockSecsS);
        kept.store(entry, std::memory_order_relaxed);
    }
    const std::uint64_t offset = entry & offsetMaskS;
    if (offset == changesS) return askOffsetAt(secs);
    return static_cast<std::int64_t>(offset) - offsetBiasS;
}

std::string_view localZoneNameAt(std::int64_t secs) noexcept { return localTimeAt(secs).tm_zone; }

LocalInstants localInstants(std::int64_t localSecs) noexcept {
    const std::int64_t offsetBefore = localOffsetAt(localSecs - secsPerDayS);
    const std::int64_t offsetAfter = localOffsetAt(localSecs + secsPerDayS);
    LocalInstants instants{localSecs - offsetBefore, localSecs - offsetAfter, true, true};
    if (offsetBefore != offsetAfter) {
        instants.beforeIsReal = localOffsetAt(instants.before) == offsetBefore;
        instants.afterIsReal = localOffsetAt(instants.after) == offsetAfter;
    }
    return instants;
}

void rereadLocalZone() noexcept {
    tzset();
    generationS.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace FND
