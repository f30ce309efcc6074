#pragma once

#include <cstdint>
#include <string_view>

namespace FND {

// The local zone of the process, from the C library. Instants are seconds since 1970-01-01 UTC in
// the years 0001 to 9999 and some days around them. Any thread may call these functions; that of
// offsets takes no lock for an instant within days of one that was asked for before.

/// What the local clock is ahead of UTC at the instant `secs`, in seconds; less than a day.
std::int64_t localOffsetAt(std::int64_t secs) noexcept;

/// The zone's name at the instant `secs`, such as "CET"; of the C library, holds until the zone
/// changes.
std::string_view localZoneNameAt(std::int64_t secs) noexcept;

/// The two instants at which a local clock may show one time: by the offset that holds before and
/// by the one that holds after the change of offset next to it, the same where there is none. Each
/// is real if the local clock does show the time then: both where clocks are set back, neither
/// where they are set forward.
struct LocalInstants {
    std::int64_t before;
    std::int64_t after;
    bool beforeIsReal;
    bool afterIsReal;
};

/// The instants for a local clock of `localSecs`, counted as if it were UTC.
LocalInstants localInstants(std::int64_t localSecs) noexcept;

/// Reads TZ anew; no other thread may use the local zone meanwhile.
void rereadLocalZone() noexcept;

}  // namespace FND
