#include "fnd/DateTime.h"
#include "fnd/date/Calendar.h"

#include <algorithm>
#include <chrono>
#include <new>

#include <time.h>

namespace FND {
namespace {

using std::chrono::days;
using std::chrono::sys_days;
using std::chrono::year_month_day;

__extension__ using Wide = __int128;

constexpr std::int64_t monthsPerYearS = 12;
// Larger amounts are out of range for any date.
constexpr std::int64_t maxYearsS = 9999;
constexpr std::int64_t maxMonthsS = maxYearsS * monthsPerYearS;
constexpr std::int64_t maxDaysS = maxYearsS * 366;
constexpr std::int64_t maxSpanS = maxDaysS * SecondsPerDay;

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
    return moveTo(*this, secs_ + (reached - day).count() * SecondsPerDay);
}

bool DateTime::addDays(std::int64_t days) noexcept {
    if (!isValid() || !isWithin(days, maxDaysS)) return false;
    return moveTo(*this, secs_ + days * SecondsPerDay);
}

bool DateTime::addLocalTime(std::int64_t hours, std::int64_t minutes, std::int64_t seconds,
                            const TimeZone& local) noexcept {
    const Wide span = Wide{hours} * SecondsPerHour + Wide{minutes} * SecondsPerMinute + seconds;
    if (!isValid() || span < -maxSpanS || span > maxSpanS) return false;
    const auto moved = static_cast<std::int64_t>(span);
    const std::int64_t offset = local.offsetAt(secs_);
    if (local.offsetAt(secs_ + moved) == offset) return moveTo(*this, secs_ + moved);
    return moveTo(*this, fromLocalSecs(secs_ + offset + moved, local).secs_);
}

bool DateTime::addLocalTime(std::int64_t hours, std::int64_t minutes,
                            std::int64_t seconds) noexcept {
    return addLocalTime(hours, minutes, seconds, localZone());
}

std::int64_t DateTime::toLocalSecs(const TimeZone& local) const noexcept {
    return isValid() ? secs_ + local.offsetAt(secs_) : invalidSecsCM;
}

std::int64_t DateTime::toLocalSecs() const noexcept { return toLocalSecs(localZone()); }

DateTime DateTime::fromLocalSecs(std::int64_t localSecs, const TimeZone& local) noexcept {
    if (!isWithin(localSecs, maxSpanS)) return {};
    const TimeZone::Instants instants = local.instantsOf(localSecs);
    return DateTime(instants.beforeIsReal || !instants.afterIsReal ? instants.before
                                                                   : instants.after);
}

DateTime DateTime::fromLocalSecs(std::int64_t localSecs) noexcept {
    return fromLocalSecs(localSecs, localZone());
}

void DateTime::rereadLocalZone() noexcept {
    tzset();
    TimeZone::rereadLocal();
}

const TimeZone& DateTime::localZone() noexcept {
    try {
        return TimeZone::local();
    } catch (const std::bad_alloc&) {
        static const TimeZone utcS;
        return utcS;
    }
}

}  // namespace FND
