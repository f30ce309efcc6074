#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

#include "fnd/date/Calendar.h"

namespace FND {

/// The meaning of one letter after a "%" in the pattern of a date's text.
struct DateDirective {
    enum Kind : std::uint8_t {
        Number,     // `field` in `width` digits, filled up with `fill`
        Name,       // the name of `field`, from `names`; only its beginning if `width` is not 0
        Pattern,    // stands for `pattern`
        EpochSecs,  // seconds since 1970-01-01 UTC
        ZoneOffset,
        ZoneName
    };

    char letter;
    Kind kind;
    Field field = Field::Year;
    std::uint8_t width = 0;
    char fill = '0';
    std::int16_t low = 0;  // the least and the greatest value of `field`
    std::int16_t high = 0;
    const std::string_view* names = nullptr;  // of the values from `low` to `high`
    std::string_view pattern = {};
};

namespace DateDirectives {

inline constexpr std::string_view WeekdayNames[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                    "Thursday", "Friday", "Saturday"};
inline constexpr std::string_view MonthNames[] = {"January",   "February", "March",    "April",
                                                  "May",       "June",     "July",     "August",
                                                  "September", "October",  "November", "December"};
inline constexpr std::string_view HalfDayNames[] = {"AM", "PM"};
inline constexpr std::string_view LowerHalfDayNames[] = {"am", "pm"};

/// The length of the short names of months and weekdays.
inline constexpr std::uint8_t Short = 3;
inline constexpr std::uint8_t Full = 0;

constexpr DateDirective number(char letter, Field field, int width, int low, int high,
                               char fill = '0') {
    return {.letter = letter,
            .kind = DateDirective::Number,
            .field = field,
            .width = static_cast<std::uint8_t>(width),
            .fill = fill,
            .low = static_cast<std::int16_t>(low),
            .high = static_cast<std::int16_t>(high)};
}

template <std::size_t count>
constexpr DateDirective name(char letter, Field field, const std::string_view (&names)[count],
                             std::uint8_t width, int low = 0) {
    return {.letter = letter,
            .kind = DateDirective::Name,
            .field = field,
            .width = width,
            .low = static_cast<std::int16_t>(low),
            .high = static_cast<std::int16_t>(low + static_cast<int>(count) - 1),
            .names = names};
}

constexpr DateDirective pattern(char letter, std::string_view pattern) {
    return {.letter = letter, .kind = DateDirective::Pattern, .pattern = pattern};
}

/// All directives, for both printing and reading. Patterns contain no further patterns.
inline constexpr DateDirective All[] = {
    number('Y', Field::Year, 4, 1, 9999),
    number('C', Field::Century, 2, 0, 99),
    number('y', Field::YearOfCentury, 2, 0, 99),
    number('m', Field::Month, 2, 1, 12),
    name('B', Field::Month, MonthNames, Full, 1),
    name('b', Field::Month, MonthNames, Short, 1),
    name('h', Field::Month, MonthNames, Short, 1),
    number('d', Field::Day, 2, 1, 31),
    number('e', Field::Day, 2, 1, 31, ' '),
    number('j', Field::DayOfYear, 3, 1, 366),
    name('A', Field::SundayWeekday, WeekdayNames, Full),
    name('a', Field::SundayWeekday, WeekdayNames, Short),
    number('w', Field::SundayWeekday, 1, 0, 6),
    number('u', Field::MondayWeekday, 1, 1, 7),
    number('G', Field::IsoYear, 4, 1, 9999),
    number('g', Field::IsoYearOfCentury, 2, 0, 99),
    number('V', Field::IsoWeek, 2, 1, 53),
    number('U', Field::SundayWeek, 2, 0, 53),
    number('W', Field::MondayWeek, 2, 0, 53),
    number('H', Field::Hour, 2, 0, 23),
    number('k', Field::Hour, 2, 0, 23, ' '),
    number('I', Field::Hour12, 2, 1, 12),
    number('l', Field::Hour12, 2, 1, 12, ' '),
    name('p', Field::HalfDay, HalfDayNames, Full),
    name('P', Field::HalfDay, LowerHalfDayNames, Full),
    number('M', Field::Minute, 2, 0, 59),
    number('S', Field::Second, 2, 0, 59),
    {.letter = 's', .kind = DateDirective::EpochSecs},
    {.letter = 'z', .kind = DateDirective::ZoneOffset},
    {.letter = 'Z', .kind = DateDirective::ZoneName},
    pattern('F', "%Y-%m-%d"),
    pattern('T', "%H:%M:%S"),
    pattern('X', "%H:%M:%S"),
    pattern('R', "%H:%M"),
    pattern('D', "%m/%d/%y"),
    pattern('x', "%m/%d/%y"),
    pattern('r', "%I:%M:%S %p"),
    pattern('c', "%a %b %e %H:%M:%S %Y"),
    pattern('n', "\n"),
    pattern('t', "\t"),
    pattern('%', "%"),
};

/// The directive of each letter; null for bytes that are none.
inline constexpr auto ByLetter = [] {
    std::array<const DateDirective*, std::numeric_limits<unsigned char>::max() + 1> found{};
    for (const DateDirective& directive : All)
        found[static_cast<unsigned char>(directive.letter)] = &directive;
    return found;
}();

/// The directive whose "%" is `pattern[at]`; null when the byte there stands for itself. A
/// directive is two bytes long, everything else one; patterns are split this way.
inline const DateDirective* directiveAt(std::string_view pattern, std::size_t at) {
    if (pattern[at] != '%' || at + 1 == pattern.size()) return nullptr;
    return ByLetter[static_cast<unsigned char>(pattern[at + 1])];
}

}  // namespace DateDirectives
}  // namespace FND
