#include "fnd/date/Calendar.h"

#include <chrono>

namespace FND {
namespace {

/// Days since the last Monday.
int daysSinceMonday(std::int64_t dayNumber) noexcept {
    return (weekdayOf(dayNumber) + DaysPerWeek - 1) % DaysPerWeek;
}

}  // namespace

std::int64_t dayNumberOf(int year, int month, int day) noexcept {
    return std::chrono::sys_days(std::chrono::year(year) / month / day).time_since_epoch().count();
}

bool dateExists(int year, int month, int day) noexcept {
    return (std::chrono::year(year) / month / day).ok();
}

int weekdayOf(std::int64_t dayNumber) noexcept {
    constexpr int weekdayOfDayZero = 4;
    const auto weekday = static_cast<int>((dayNumber + weekdayOfDayZero) % DaysPerWeek);
    return weekday < 0 ? weekday + DaysPerWeek : weekday;
}

std::int64_t isoYearStart(int isoYear) noexcept {
    const std::int64_t fourth = dayNumberOf(isoYear, 1, 4);
    return fourth - daysSinceMonday(fourth);
}

Calendar::Calendar(std::int64_t secs) noexcept {
    const std::chrono::sys_seconds clock{std::chrono::seconds(secs)};
    const auto day = std::chrono::floor<std::chrono::days>(clock);
    const std::chrono::year_month_day date(day);
    dayNumber_ = day.time_since_epoch().count();
    const auto secondOfDay = static_cast<unsigned>(secs - dayNumber_ * SecondsPerDay);
    deciding_[static_cast<std::size_t>(Field::Year)] = static_cast<int>(date.year());
    deciding_[static_cast<std::size_t>(Field::Month)] =
        static_cast<int>(static_cast<unsigned>(date.month()));
    deciding_[static_cast<std::size_t>(Field::Day)] =
        static_cast<int>(static_cast<unsigned>(date.day()));
    deciding_[static_cast<std::size_t>(Field::Hour)] = static_cast<int>(secondOfDay / 3600);
    deciding_[static_cast<std::size_t>(Field::Minute)] = static_cast<int>(secondOfDay / 60 % 60);
    deciding_[static_cast<std::size_t>(Field::Second)] = static_cast<int>(secondOfDay % 60);
}

int Calendar::isoYear() const noexcept {
    const int year = (*this)[Field::Year];
    if (dayNumber_ >= isoYearStart(year + 1)) return year + 1;
    return dayNumber_ < isoYearStart(year) ? year - 1 : year;
}

int Calendar::derived(Field field) const noexcept {
    const int year = (*this)[Field::Year];
    const int hour = (*this)[Field::Hour];
    const auto daysSinceNewYear = [&] {
        return static_cast<int>(dayNumber_ - dayNumberOf(year, 1, 1));
    };
    switch (field) {
        case Field::Century:
            return year / 100;
        case Field::YearOfCentury:
            return year % 100;
        case Field::DayOfYear:
            return daysSinceNewYear() + 1;
        case Field::IsoYear:
            return isoYear();
        case Field::IsoYearOfCentury:
            return isoYear() % 100;
        case Field::IsoWeek:
            return static_cast<int>(dayNumber_ - isoYearStart(isoYear())) / DaysPerWeek + 1;
        case Field::SundayWeek:
            return (daysSinceNewYear() + DaysPerWeek - weekdayOf(dayNumber_)) / DaysPerWeek;
        case Field::MondayWeek:
            return (daysSinceNewYear() + DaysPerWeek - daysSinceMonday(dayNumber_)) / DaysPerWeek;
        case Field::SundayWeekday:
            return weekdayOf(dayNumber_);
        case Field::MondayWeekday:
            return daysSinceMonday(dayNumber_) + 1;
        case Field::Hour12:
            return (hour + 11) % 12 + 1;
        case Field::HalfDay:
            return hour / 12;
        default:
            return 0;
    }
}

}  // namespace FND
