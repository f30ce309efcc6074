#pragma once

#include <cstddef>
#include <cstdint>

namespace FND {

inline constexpr std::int64_t SecondsPerMinute = 60;
inline constexpr std::int64_t SecondsPerHour = 3600;
inline constexpr std::int64_t SecondsPerDay = 86400;
inline constexpr int DaysPerWeek = 7;

/// The fields of a date and clock, each as a number. The first six determine an instant.
enum class Field : std::uint8_t {
    Year,
    Month,
    Day,
    Hour,
    Minute,
    Second,
    Century,
    YearOfCentury,
    DayOfYear,
    IsoYear,
    IsoYearOfCentury,
    IsoWeek,
    SundayWeek,     // of the year; the days before its first Sunday are week 0
    MondayWeek,     // the same by Monday
    SundayWeekday,  // 0 is Sunday
    MondayWeekday,  // 1 is Monday
    Hour12,         // of the half day, 12 is the first
    HalfDay,        // 0 is before noon
};
inline constexpr std::size_t FieldCount = static_cast<std::size_t>(Field::HalfDay) + 1;

/// Days since 1970-01-01 of an existing date of the proleptic Gregorian calendar.
std::int64_t dayNumberOf(int year, int month, int day) noexcept;

/// False for a day that its month does not have.
bool dateExists(int year, int month, int day) noexcept;

/// The day of the week, 0 is Sunday.
int weekdayOf(std::int64_t dayNumber) noexcept;

/// The day number of the Monday of week 1 of an ISO 8601 year: the week with 4 January.
std::int64_t isoYearStart(int isoYear) noexcept;

/// The date and clock of an instant in any zone, in years 0 to 10000.
class Calendar {
public:
    /// `secs` counts the seconds since 1970-01-01 00:00:00 on the clock.
    explicit Calendar(std::int64_t secs) noexcept;

    int operator[](Field field) const noexcept {
        const auto index = static_cast<std::size_t>(field);
        return index < decidingCountCM ? deciding_[index] : derived(field);
    }

private:
    static constexpr std::size_t decidingCountCM = static_cast<std::size_t>(Field::Second) + 1;

    int derived(Field field) const noexcept;
    int isoYear() const noexcept;

    std::int64_t dayNumber_;  // since 1970-01-01
    int deciding_[decidingCountCM];
};

}  // namespace FND
