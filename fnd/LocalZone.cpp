#include "fnd/LocalZone.h"

#include <time.h>

namespace FND {

LocalOffset localOffsetAt(std::int64_t secs) noexcept {
    // POSIX lets localtime_r leave TZ unread.
    [[maybe_unused]] static const bool zoneIsReadS = (tzset(), true);
    const time_t time = secs;
    tm local{};
    if (!localtime_r(&time, &local)) return {0, "UTC"};
    return {local.tm_gmtoff, local.tm_zone};
}

LocalInstants localInstants(std::int64_t localSecs) noexcept {
    // No offset is a whole day, and a change of offset stands alone for more than two.
    constexpr std::int64_t secsPerDay = 86400;
    const std::int64_t offsetBefore = localOffsetAt(localSecs - secsPerDay).secs;
    const std::int64_t offsetAfter = localOffsetAt(localSecs + secsPerDay).secs;
    LocalInstants instants{localSecs - offsetBefore, localSecs - offsetAfter, true, true};
    if (offsetBefore != offsetAfter) {
        instants.beforeIsReal = localOffsetAt(instants.before).secs == offsetBefore;
        instants.afterIsReal = localOffsetAt(instants.after).secs == offsetAfter;
    }
    return instants;
}

}  // namespace FND
