#pragma once

#include <cstdint>
#include <string_view>

namespace FND {

/// The local zone at one instant.
struct LocalOffset {
    /// What the local clock is ahead of UTC, in seconds; less than a day either way.
    std::int64_t secs;
    /// The zone's name at the instant, such as "CET"; of the C library, holds until the zone
    /// changes.
    std::string_view name;
};

/// The offset of the process's local zone at `secs` seconds since 1970-01-01 UTC. Exact for the
/// years 0001 to 9999 and some days around them. Any thread may call it.
LocalOffset localOffsetAt(std::int64_t secs) noexcept;

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

/// The instants for a local clock of `localSecs`, counted as if it were UTC; same range and thread
/// rule as `localOffsetAt`.
LocalInstants localInstants(std::int64_t localSecs) noexcept;

}  // namespace FND
