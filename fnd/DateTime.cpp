#include "fnd/DateTime.h"

#include <algorithm>
#include <chrono>

#include <time.h>

#include "fnd/LocalZone.h"

namespace FND {
namespace {

using std::chrono::days;
using std::chrono::sys_days;
using std::chrono::year_month_day;

__extension__ using Wide = __int128;

constexpr std::int64_t secsPerMinuteS = 60;
constexpr std::int64_t secsPerHourS = 3600;
constexpr std::int64_t secsPerDayS = 86400;
constexpr std::int64_t monthsPerYearS = 12;
// Every amount beyond these leads out of range from any date.
constexpr std::int64_t maxYearsS = 9999;
constexpr std::int64_t maxMonthsS = maxYearsS * monthsPerYearS;
constexpr std::int64_t maxDaysS = maxYearsS * 366;
constexpr std::int64_t maxSpanS = maxDaysS * secsPerDayS;

constexpr bool isWithin(std::int64_t amount, std::int64_t limit) {
    return amount >= -limit && amount <= limit;
}

/// Sets `target` to the instant `secs`, if that is in range.
bool moveTo(DateTime& target, std::int64_t secs) noexcept {
    const DateTime moved(secs);
    if (!moved.isValid()) return false;
    target = moved;
    return true;
}

}  // namespace

DateTime DateTime::now() noexcept { return DateTime(time(nullptr)); }

bool DateTime::addYears(std::int64_t years) noexcept {
    return isWithin(years, maxYearsS) && addMonths(years * monthsPerYearS);
}

bool DateTime::addMonths(std::int64_t months) noexcept {
    if (!isValid() || !isWithin(months, maxMonthsS)) return false;
    if (months == 0) return moveTo(*this, secs_);  // as when only the time of day moves
    const auto day =
        std::chrono::floor<days>(std::chrono::sys_seconds(std::chrono::seconds(secs_)));
    const year_month_day date(day);
    const std::chrono::year_month month =
        date.year() / date.month() + std::chrono::months(static_cast<int>(months));
    const std::chrono::day last = (month / std::chrono::last).day();
    const sys_days reached(month / std::min(date.day(), last));
    return moveTo(*this, secs_ + (reached - day).count() * secsPerDayS);
}

bool DateTime::addDays(std::int64_t days) noexcept {
    if (!isValid() || !isWithin(days, maxDaysS)) return false;
    return moveTo(*this, secs_ + days * secsPerDayS);
}

bool DateTime::addLocalTime(std::int64_t hours, std::int64_t minutes,
                            std::int64_t seconds) noexcept {
    const Wide span = Wide{hours} * secsPerHourS + Wide{minutes} * secsPerMinuteS + seconds;
    if (!isValid() || span < -maxSpanS || span > maxSpanS) return false;
    const auto moved = static_cast<std::int64_t>(span);
    const std::int64_t offset = localOffsetAt(secs_);
    if (localOffsetAt(secs_ + moved) == offset) return moveTo(*this, secs_ + moved);
    return moveTo(*this, fromLocalSecs(secs_ + offset + moved).secs_);
}

std::int64_t DateTime::toLocalSecs() const noexcept {
    return isValid() ? secs_ + localOffsetAt(secs_) : invalidSecsCM;
}

DateTime DateTime::fromLocalSecs(std::int64_t localSecs) noexcept {
    if (!isWithin(localSecs, maxSpanS)) return {};
    const LocalInstants instants = localInstants(localSecs);
    return DateTime(instants.beforeIsReal || !instants.afterIsReal ? instants.before
                                                                   : instants.after);
}

void DateTime::rereadLocalZone() noexcept { FND::rereadLocalZone(); }

}  // namespace FND
