#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <limits>

#include "fnd/DateTime.h"
#include "fnd/LocalZone.h"

// The text forms of dates. Written by hand as the C library's own follow the locale, take texts
// that are no dates, and are slower by a multiple.

namespace FND {
namespace {

using std::chrono::days;
using std::chrono::sys_days;
using std::chrono::year_month_day;

constexpr std::int64_t secsPerMinuteS = 60;
constexpr std::int64_t secsPerHourS = 3600;
constexpr std::int64_t secsPerDayS = 86400;
constexpr int daysPerWeekS = 7;
constexpr std::string_view invalidTextS = "INVALID";

// ---------------------------------------------------------------------------------------------
// Directives

/// What a directive tells of a date: all by numbers, names by their place in the list of names.
enum class Field : std::uint8_t {
    Year,
    Century,
    YearOfCentury,
    Month,
    Day,
    DayOfYear,
    IsoYear,
    IsoYearOfCentury,
    IsoWeek,
    SundayWeek,     // of the year; the days before its first Sunday are week 0
    MondayWeek,     // the same by Monday
    SundayWeekday,  // 0 is Sunday
    MondayWeekday,  // 1 is Monday
    Hour,
    Hour12,
    HalfDay,  // 0 is before noon
    Minute,
    Second,
    Count
};

struct Directive {
    enum Kind : std::uint8_t {
        Number,     // `field` in `width` digits, filled up with `fill`
        Name,       // the name of `field`, from `names`; its first three letters if `width` is 3
        Pattern,    // short for the directives in `pattern`
        Text,       // `pattern` as it stands
        EpochSecs,  // seconds since 1970-01-01 UTC
        ZoneOffset,
        ZoneName
    };

    char letter;
    Kind kind;
    Field field = Field::Count;
    std::uint8_t width = 0;
    char fill = '0';
    std::int16_t low = 0;  // the least and greatest value of `field`
    std::int16_t high = 0;
    const std::string_view* names = nullptr;  // from `low` to `high`
    std::string_view pattern = {};
};

constexpr std::string_view weekdaysS[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                          "Thursday", "Friday", "Saturday"};
constexpr std::string_view monthsS[] = {"January",   "February", "March",    "April",
                                        "May",       "June",     "July",     "August",
                                        "September", "October",  "November", "December"};
constexpr std::string_view halfDaysS[] = {"AM", "PM"};
constexpr std::string_view lowerHalfDaysS[] = {"am", "pm"};

constexpr Directive number(char letter, Field field, int width, int low, int high,
                           char fill = '0') {
    return {.letter = letter,
            .kind = Directive::Number,
            .field = field,
            .width = static_cast<std::uint8_t>(width),
            .fill = fill,
            .low = static_cast<std::int16_t>(low),
            .high = static_cast<std::int16_t>(high)};
}

constexpr std::uint8_t shortS = 3;
constexpr std::uint8_t fullS = 0;

template <std::size_t count>
constexpr Directive name(char letter, Field field, const std::string_view (&names)[count],
                         std::uint8_t width, int low = 0) {
    return {.letter = letter,
            .kind = Directive::Name,
            .field = field,
            .width = width,
            .low = static_cast<std::int16_t>(low),
            .high = static_cast<std::int16_t>(low + static_cast<int>(count) - 1),
            .names = names};
}

constexpr Directive pattern(char letter, std::string_view pattern) {
    return {.letter = letter, .kind = Directive::Pattern, .pattern = pattern};
}

constexpr Directive text(char letter, std::string_view text) {
    return {.letter = letter, .kind = Directive::Text, .pattern = text};
}

/// All directives; printing and reading both go by this table.
constexpr Directive directivesS[] = {
    number('Y', Field::Year, 4, 1, 9999),
    number('C', Field::Century, 2, 0, 99),
    number('y', Field::YearOfCentury, 2, 0, 99),
    number('m', Field::Month, 2, 1, 12),
    name('B', Field::Month, monthsS, fullS, 1),
    name('b', Field::Month, monthsS, shortS, 1),
    name('h', Field::Month, monthsS, shortS, 1),
    number('d', Field::Day, 2, 1, 31),
    number('e', Field::Day, 2, 1, 31, ' '),
    number('j', Field::DayOfYear, 3, 1, 366),
    name('A', Field::SundayWeekday, weekdaysS, fullS),
    name('a', Field::SundayWeekday, weekdaysS, shortS),
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
    name('p', Field::HalfDay, halfDaysS, fullS),
    name('P', Field::HalfDay, lowerHalfDaysS, fullS),
    number('M', Field::Minute, 2, 0, 59),
    number('S', Field::Second, 2, 0, 59),
    {.letter = 's', .kind = Directive::EpochSecs},
    {.letter = 'z', .kind = Directive::ZoneOffset},
    {.letter = 'Z', .kind = Directive::ZoneName},
    pattern('F', "%Y-%m-%d"),
    pattern('T', "%H:%M:%S"),
    pattern('X', "%H:%M:%S"),
    pattern('R', "%H:%M"),
    pattern('D', "%m/%d/%y"),
    pattern('x', "%m/%d/%y"),
    pattern('r', "%I:%M:%S %p"),
    pattern('c', "%a %b %e %H:%M:%S %Y"),
    text('n', "\n"),
    text('t', "\t"),
    text('%', "%"),
};

constexpr std::size_t byteCountS = std::numeric_limits<unsigned char>::max() + 1;

constexpr auto directiveOfByteS = [] {
    std::array<const Directive*, byteCountS> found{};
    for (const Directive& directive : directivesS)
        found[static_cast<unsigned char>(directive.letter)] = &directive;
    return found;
}();

/// Takes the pattern apart: `onText` gets every other piece as it stands, `onDirective` each
/// directive. Both return false to stop; so does this then.
template <class OnText, class OnDirective>
bool forEachPiece(std::string_view pattern, OnText onText, OnDirective onDirective) {
    while (!pattern.empty()) {
        std::size_t length = std::min(pattern.find('%'), pattern.size());
        if (length == 0) {
            const Directive* directive =
                pattern.size() > 1 ? directiveOfByteS[static_cast<unsigned char>(pattern[1])]
                                   : nullptr;
            if (directive) {
                if (!onDirective(*directive)) return false;
                pattern.remove_prefix(2);
                continue;
            }
            length = std::min<std::size_t>(pattern.size(), 2);
        }
        if (!onText(pattern.substr(0, length))) return false;
        pattern.remove_prefix(length);
    }
    return true;
}

// ---------------------------------------------------------------------------------------------
// Clock and calendar

/// What the clock and calendar of a zone show at an instant.
struct Calendar {
    std::int64_t dayNumber;  // since 1970-01-01
    int year;
    int month;
    int day;
    int hour;
    int minute;
    int second;

    /// `secs` counts as `DateTime::toLocalSecs` does.
    explicit Calendar(std::int64_t secs) {
        const auto date =
            std::chrono::floor<days>(std::chrono::sys_seconds(std::chrono::seconds(secs)));
        const year_month_day ymd(date);
        dayNumber = date.time_since_epoch().count();
        year = static_cast<int>(ymd.year());
        month = static_cast<int>(static_cast<unsigned>(ymd.month()));
        day = static_cast<int>(static_cast<unsigned>(ymd.day()));
        const int secondOfDay = static_cast<int>(secs - dayNumber * secsPerDayS);
        hour = secondOfDay / static_cast<int>(secsPerHourS);
        minute = secondOfDay / 60 % 60;
        second = secondOfDay % 60;
    }
};

std::int64_t dayNumberOf(int year, int month, int day) {
    return sys_days(std::chrono::year(year) / month / day).time_since_epoch().count();
}

/// 0 is Sunday.
int weekdayOf(std::int64_t dayNumber) {
    constexpr int weekdayOfEpoch = 4;
    const auto weekday = static_cast<int>((dayNumber + weekdayOfEpoch) % daysPerWeekS);
    return weekday < 0 ? weekday + daysPerWeekS : weekday;
}

/// The Monday of week 1 of an ISO 8601 year: the week with 4 January.
std::int64_t isoYearStart(int isoYear) {
    const std::int64_t fourth = dayNumberOf(isoYear, 1, 4);
    return fourth - (weekdayOf(fourth) + daysPerWeekS - 1) % daysPerWeekS;
}

int isoYearOf(const Calendar& calendar) {
    if (calendar.dayNumber >= isoYearStart(calendar.year + 1)) return calendar.year + 1;
    if (calendar.dayNumber < isoYearStart(calendar.year)) return calendar.year - 1;
    return calendar.year;
}

int valueOf(Field field, const Calendar& calendar) {
    const auto dayOfYear = [&] {
        return static_cast<int>(calendar.dayNumber - dayNumberOf(calendar.year, 1, 1)) + 1;
    };
    const auto weekday = [&] { return weekdayOf(calendar.dayNumber); };
    const auto mondayWeekday = [&] { return (weekday() + daysPerWeekS - 1) % daysPerWeekS; };
    switch (field) {
        case Field::Year:
            return calendar.year;
        case Field::Century:
            return calendar.year / 100;
        case Field::YearOfCentury:
            return calendar.year % 100;
        case Field::Month:
            return calendar.month;
        case Field::Day:
            return calendar.day;
        case Field::DayOfYear:
            return dayOfYear();
        case Field::IsoYear:
            return isoYearOf(calendar);
        case Field::IsoYearOfCentury:
            return isoYearOf(calendar) % 100;
        case Field::IsoWeek:
            return static_cast<int>(calendar.dayNumber - isoYearStart(isoYearOf(calendar))) /
                       daysPerWeekS +
                   1;
        case Field::SundayWeek:
            return (dayOfYear() + 6 - weekday()) / daysPerWeekS;
        case Field::MondayWeek:
            return (dayOfYear() + 6 - mondayWeekday()) / daysPerWeekS;
        case Field::SundayWeekday:
            return weekday();
        case Field::MondayWeekday:
            return mondayWeekday() + 1;
        case Field::Hour:
            return calendar.hour;
        case Field::Hour12:
            return (calendar.hour + 11) % 12 + 1;
        case Field::HalfDay:
            return calendar.hour / 12;
        case Field::Minute:
            return calendar.minute;
        case Field::Second:
            return calendar.second;
        case Field::Count:
            break;
    }
    return 0;
}

// ---------------------------------------------------------------------------------------------
// Printing

/// Writes `value`, of at most two digits, in two.
char* writePair(char* at, int value) {
    at[0] = static_cast<char>('0' + value / 10);
    at[1] = static_cast<char>('0' + value % 10);
    return at + 2;
}

/// Collects short pieces before they are appended to the text.
class Printer {
public:
    Printer(String& out, std::int64_t secs, LocalOffset zone)
        : out_(out), calendar_(secs + zone.secs), secs_(secs), zone_(zone) {}

    void print(std::string_view pattern) {
        forEachPiece(
            pattern,
            [this](std::string_view text) {
                put(text);
                return true;
            },
            [this](const Directive& directive) {
                print(directive);
                return true;
            });
    }

    void flush() {
        out_.append(buffer_, used_);
        used_ = 0;
    }

private:
    void print(const Directive& directive) {
        switch (directive.kind) {
            case Directive::Number:
                putNumber(valueOf(directive.field, calendar_), directive.width, directive.fill);
                break;
            case Directive::Name: {
                std::string_view name =
                    directive.names[valueOf(directive.field, calendar_) - directive.low];
                if (directive.width == shortS) name = name.substr(0, shortS);
                put(name);
                break;
            }
            case Directive::Pattern:
                print(directive.pattern);
                break;
            case Directive::Text:
                put(directive.pattern);
                break;
            case Directive::EpochSecs:
                putNumber(secs_, 1, '0');
                break;
            case Directive::ZoneOffset:
                putOffset();
                break;
            case Directive::ZoneName:
                put(zone_.name);
                break;
        }
    }

    void put(std::string_view text) {
        if (text.size() > bufferSizeS - used_) {
            flush();
            if (text.size() > bufferSizeS) {
                out_.append(text);
                return;
            }
        }
        std::memcpy(buffer_ + used_, text.data(), text.size());
        used_ += text.size();
    }

    void putNumber(std::int64_t value, std::size_t width, char fill) {
        char digits[std::numeric_limits<std::int64_t>::digits10 + 2];
        const auto length = static_cast<std::size_t>(
            std::to_chars(digits, digits + sizeof digits, value).ptr - digits);
        for (std::size_t i = length; i < width; ++i) put({&fill, 1});
        put({digits, length});
    }

    void putOffset() {
        const auto offset = static_cast<int>(zone_.secs < 0 ? -zone_.secs : zone_.secs);
        const bool hasSeconds = offset % 60 != 0;
        char text[sizeof "+hh:mm:ss"];
        char* at = text;
        *at++ = zone_.secs < 0 ? '-' : '+';
        at = writePair(at, offset / 3600);
        if (hasSeconds) *at++ = ':';
        at = writePair(at, offset / 60 % 60);
        if (hasSeconds) {
            *at++ = ':';
            at = writePair(at, offset % 60);
        }
        put({text, static_cast<std::size_t>(at - text)});
    }

    static constexpr std::size_t bufferSizeS = 128;

    String& out_;
    const Calendar calendar_;
    const std::int64_t secs_;
    const LocalOffset zone_;
    std::size_t used_ = 0;
    char buffer_[bufferSizeS];
};

// ---------------------------------------------------------------------------------------------
// Reading. Each function takes what it reads from the front of the text.

constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }

constexpr bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

constexpr bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

constexpr char toUpper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

bool skip(std::string_view& text, char c) {
    if (!text.starts_with(c)) return false;
    text.remove_prefix(1);
    return true;
}

void skipBlanks(std::string_view& text) {
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
}

/// White space fits any run of white space, also none; any other byte itself.
bool skipText(std::string_view& text, std::string_view expected) {
    for (const char c : expected) {
        if (isBlank(c))
            skipBlanks(text);
        else if (!skip(text, c))
            return false;
    }
    return true;
}

/// Takes `name` in any case of letters; nothing when the text does not begin with it.
bool skipName(std::string_view& text, std::string_view name) {
    if (text.size() < name.size()) return false;
    for (std::size_t i = 0; i < name.size(); ++i)
        if (toUpper(text[i]) != toUpper(name[i])) return false;
    text.remove_prefix(name.size());
    return true;
}

/// Reads a number of 1 to `most` digits; false when there is none.
template <class Int>
bool readNumber(std::string_view& text, std::size_t most, Int& value) {
    std::size_t length = 0;
    value = 0;
    for (; length < most && length < text.size() && isDigit(text[length]); ++length)
        value = value * 10 + (text[length] - '0');
    text.remove_prefix(length);
    return length > 0;
}

/// Reads two digits that are at most `high`, behind a ":" if `colon`; takes nothing otherwise.
bool readPair(std::string_view& text, bool colon, int high, int& value) {
    std::string_view rest = text;
    if (colon && !skip(rest, ':')) return false;
    if (rest.size() < 2 || !isDigit(rest[0]) || !isDigit(rest[1])) return false;
    const int pair = (rest[0] - '0') * 10 + (rest[1] - '0');
    if (pair > high) return false;
    rest.remove_prefix(2);
    text = rest;
    value = pair;
    return true;
}

/// Reads an offset from UTC in seconds: "Z", "+hh", "+hhmm", "+hh:mm" or "+hh:mm:ss".
bool readOffset(std::string_view& text, std::int64_t& offset) {
    offset = 0;
    if (skip(text, 'Z')) return true;
    const bool negative = skip(text, '-');
    if (!negative && !skip(text, '+')) return false;
    int hours = 0;
    int minutes = 0;
    int seconds = 0;
    if (!readPair(text, false, 23, hours)) return false;
    const bool colon = text.starts_with(':');
    if (readPair(text, colon, 59, minutes) && colon) readPair(text, colon, 59, seconds);
    offset = hours * secsPerHourS + minutes * secsPerMinuteS + seconds;
    if (negative) offset = -offset;
    return true;
}

/// Reads a zone's name: letters, or a sign and digits.
bool readZoneName(std::string_view& text, std::string_view& name) {
    const bool isNumber = text.starts_with('+') || text.starts_with('-');
    std::size_t length = isNumber ? 1 : 0;
    while (length < text.size() && (isNumber ? isDigit(text[length]) : isLetter(text[length])))
        ++length;
    name = text.substr(0, length);
    text.remove_prefix(length);
    return length > 0;
}

bool isUtcName(std::string_view name) { return name == "UTC" || name == "GMT" || name == "Z"; }

/// A set of fields is a word with their bits.
constexpr std::uint32_t maskOf(Field field) {
    return std::uint32_t{1} << static_cast<unsigned>(field);
}

// These alone decide on their part of the date whenever they are given.
constexpr std::uint32_t decisiveS = maskOf(Field::Year) | maskOf(Field::Month) |
                                    maskOf(Field::Day) | maskOf(Field::Hour) |
                                    maskOf(Field::Minute) | maskOf(Field::Second);

/// Reads a text by a pattern, from its start on, and collects what the directives tell.
class Reader {
public:
    explicit Reader(std::string_view text) : text_(text) {}

    /// Takes what fits `pattern`; false when the text does not fit.
    bool read(std::string_view pattern) {
        return forEachPiece(
            pattern, [this](std::string_view piece) { return skipText(text_, piece); },
            [this](const Directive& directive) { return read(directive); });
    }

    bool atEnd() const { return text_.empty(); }

    /// The instant that the directives read so far tell of; invalid when they tell of none.
    DateTime instant() const {
        if (seen_ == 0 && !hasEpochSecs_) return {};
        std::int64_t clock = 0;
        std::int64_t secs = 0;
        if (!(hasEpochSecs_ ? findClock(secs, clock) : findInstant(secs, clock))) return {};
        // What has not led to the instant must agree with it.
        const std::uint32_t unchecked = hasEpochSecs_ ? seen_ : seen_ & ~decisiveS;
        if (unchecked != 0) {
            const Calendar calendar(clock);
            for (unsigned i = 0; i < fieldCountS; ++i)
                if ((unchecked >> i & 1) != 0 &&
                    values_[i] != valueOf(static_cast<Field>(i), calendar))
                    return {};
        }
        return DateTime(secs);
    }

private:
    static constexpr std::size_t fieldCountS = static_cast<std::size_t>(Field::Count);

    bool has(Field field) const { return (seen_ & maskOf(field)) != 0; }
    int get(Field field, int otherwise) const {
        return has(field) ? values_[static_cast<std::size_t>(field)] : otherwise;
    }
    bool set(Field field, int value) {
        if (get(field, value) != value) return false;
        values_[static_cast<std::size_t>(field)] = static_cast<std::int16_t>(value);
        seen_ |= maskOf(field);
        return true;
    }

    bool read(const Directive& directive) {
        switch (directive.kind) {
            case Directive::Number: {
                if (directive.fill == ' ') skipBlanks(text_);
                int value = 0;
                return readNumber(text_, directive.width, value) && value >= directive.low &&
                       value <= directive.high && set(directive.field, value);
            }
            case Directive::Name:
                for (int value = directive.low; value <= directive.high; ++value) {
                    const std::string_view name = directive.names[value - directive.low];
                    if (skipName(text_, name) || skipName(text_, name.substr(0, shortS)))
                        return set(directive.field, value);
                }
                return false;
            case Directive::Pattern:
                return read(directive.pattern);
            case Directive::Text:
                return skipText(text_, directive.pattern);
            case Directive::EpochSecs: {
                const bool negative = skip(text_, '-');
                constexpr std::size_t most = std::numeric_limits<std::int64_t>::digits10;
                hasEpochSecs_ = readNumber(text_, most, epochSecs_);
                if (negative) epochSecs_ = -epochSecs_;
                return hasEpochSecs_;
            }
            case Directive::ZoneOffset:
                return hasOffset_ = readOffset(text_, offset_);
            case Directive::ZoneName:
                return readZoneName(text_, zoneName_);
        }
        return false;
    }

    /// The time of day in seconds.
    int timeOfDay() const {
        const int hour =
            get(Field::Hour, get(Field::Hour12, 12) % 12 + 12 * get(Field::HalfDay, 0));
        return (hour * 60 + get(Field::Minute, 0)) * 60 + get(Field::Second, 0);
    }

    int year() const {
        if (has(Field::Year)) return get(Field::Year, 0);
        if (has(Field::Century)) return get(Field::Century, 0) * 100 + get(Field::YearOfCentury, 0);
        if (has(Field::YearOfCentury)) return yearByPivot(get(Field::YearOfCentury, 0));
        return isoYear(1970);
    }

    int isoYear(int otherwise) const {
        if (has(Field::IsoYear)) return get(Field::IsoYear, 0);
        if (has(Field::IsoYearOfCentury)) return yearByPivot(get(Field::IsoYearOfCentury, 0));
        return otherwise;
    }

    static int yearByPivot(int yearOfCentury) {
        return yearOfCentury + (yearOfCentury < 69 ? 2000 : 1900);
    }

    /// The day, by the first of month and day, day of the year, and the kinds of week that is
    /// given. False for a day that its month does not have; days that their year does not have are
    /// found out by `instant`, as they come back as others.
    bool findDay(std::int64_t& day) const {
        const int mondayWeekday =
            get(Field::MondayWeekday, (get(Field::SundayWeekday, 1) + 6) % daysPerWeekS + 1) - 1;
        const int sundayWeekday =
            get(Field::SundayWeekday, get(Field::MondayWeekday, 0) % daysPerWeekS);
        const std::int64_t yearStart = dayNumberOf(year(), 1, 1);
        if (has(Field::Month) || has(Field::Day)) {
            const auto date = std::chrono::year(year()) / get(Field::Month, 1) / get(Field::Day, 1);
            day = sys_days(date).time_since_epoch().count();
            return date.ok();
        }
        if (has(Field::DayOfYear)) {
            day = yearStart + get(Field::DayOfYear, 1) - 1;
        } else if (has(Field::IsoWeek)) {
            day = isoYearStart(isoYear(year())) + (get(Field::IsoWeek, 1) - 1) * daysPerWeekS +
                  mondayWeekday;
        } else if (has(Field::SundayWeek)) {
            const std::int64_t weekOne =
                yearStart + (daysPerWeekS - weekdayOf(yearStart)) % daysPerWeekS;
            day = weekOne + (get(Field::SundayWeek, 0) - 1) * daysPerWeekS + sundayWeekday;
        } else if (has(Field::MondayWeek)) {
            const std::int64_t weekOne =
                yearStart + (daysPerWeekS + 1 - weekdayOf(yearStart)) % daysPerWeekS;
            day = weekOne + (get(Field::MondayWeek, 0) - 1) * daysPerWeekS + mondayWeekday;
        } else {
            day = yearStart;
        }
        return true;
    }

    /// By %s: the instant, and what the clock of the zone that the text names shows then.
    bool findClock(std::int64_t& secs, std::int64_t& clock) const {
        secs = epochSecs_;
        if (!DateTime(secs).isValid()) return false;
        clock = secs;
        if (hasOffset_) {
            clock += offset_;
        } else if (!zoneName_.empty() && !isUtcName(zoneName_)) {
            const LocalOffset local = localOffsetAt(secs);
            clock += local.secs;
            return local.name == zoneName_;
        }
        return true;
    }

    /// Without %s: the instant at which the clock of the zone that the text names shows the date.
    bool findInstant(std::int64_t& secs, std::int64_t& clock) const {
        std::int64_t day = 0;
        if (!findDay(day)) return false;
        clock = day * secsPerDayS + timeOfDay();
        secs = clock;
        if (hasOffset_) {
            secs -= offset_;
        } else if (!zoneName_.empty() && !isUtcName(zoneName_)) {
            const LocalInstants local = localInstants(clock);
            if (local.beforeIsReal && localOffsetAt(local.before).name == zoneName_)
                secs = local.before;
            else if (local.afterIsReal && localOffsetAt(local.after).name == zoneName_)
                secs = local.after;
            else
                return false;
        }
        return true;
    }

    std::string_view text_;
    std::string_view zoneName_;  // empty when the text has none
    std::int64_t epochSecs_ = 0;
    std::int64_t offset_ = 0;
    bool hasEpochSecs_ = false;
    bool hasOffset_ = false;
    std::uint32_t seen_ = 0;  // by `maskOf`
    std::int16_t values_[fieldCountS] = {};
};

/// Reads as many digits as `count` says from `at`; what is none makes `bad` true.
int digitsAt(const char* at, int count, bool& bad) {
    int value = 0;
    for (int i = 0; i < count; ++i) {
        bad |= !isDigit(at[i]);
        value = value * 10 + (at[i] - '0');
    }
    return value;
}

}  // namespace

DateTime DateTime::parse(std::string_view text) noexcept {
    constexpr std::string_view separated = "YYYY-MM-DD HH:MM:SS";
    constexpr std::size_t separatedDateLength = 10;
    constexpr std::size_t joinedDateLength = 8;
    constexpr std::size_t joinedLength = 14;
    const char* const at = text.data();
    const bool joined = text.size() == joinedDateLength || text.size() == joinedLength;
    const bool dateOnly = text.size() == (joined ? joinedDateLength : separatedDateLength);
    if (!joined && !dateOnly && text.size() < separated.size()) return {};

    bool bad = false;
    const int year = digitsAt(at, 4, bad);
    const int month = digitsAt(at + (joined ? 4 : 5), 2, bad);
    const int day = digitsAt(at + (joined ? 6 : 8), 2, bad);
    if (!joined) bad |= at[4] != '-' || at[7] != '-';
    std::int64_t offset = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    if (!dateOnly) {
        hour = digitsAt(at + (joined ? 8 : 11), 2, bad);
        minute = digitsAt(at + (joined ? 10 : 14), 2, bad);
        second = digitsAt(at + (joined ? 12 : 17), 2, bad);
        if (!joined) {
            bad |= at[13] != ':' || at[16] != ':';
            std::string_view rest = text.substr(separated.size());
            if (at[10] == 'T')
                bad |= !rest.empty() && (!readOffset(rest, offset) || !rest.empty());
            else
                bad |= at[10] != ' ' || !rest.empty();
        }
    }
    const auto date = std::chrono::year(year) / month / day;
    if (bad || year < 1 || !date.ok() || hour > 23 || minute > 59 || second > 59) return {};
    return DateTime(sys_days(date).time_since_epoch().count() * secsPerDayS + hour * secsPerHourS +
                    minute * secsPerMinuteS + second - offset);
}

DateTime DateTime::parse(std::string_view text, std::string_view pattern) noexcept {
    Reader reader(text);
    return reader.read(pattern) && reader.atEnd() ? reader.instant() : DateTime();
}

void DateTime::format(String& out) const {
    if (!isValid()) {
        out.assign(invalidTextS);
        return;
    }
    const Calendar calendar(secs_);
    char text[sizeof "YYYY-MM-DD HH:MM:SS" - 1];
    char* at = writePair(writePair(text, calendar.year / 100), calendar.year % 100);
    *at++ = '-';
    at = writePair(at, calendar.month);
    *at++ = '-';
    at = writePair(at, calendar.day);
    *at++ = ' ';
    at = writePair(at, calendar.hour);
    *at++ = ':';
    at = writePair(at, calendar.minute);
    *at++ = ':';
    writePair(at, calendar.second);
    out.assign(text, sizeof text);
}

void DateTime::format(String& out, std::string_view pattern, Zone zone) const {
    if (!isValid()) {
        out.assign(invalidTextS);
        return;
    }
    out.clear();
    Printer printer(out, secs_, zone == Zone::Utc ? LocalOffset{0, "UTC"} : localOffsetAt(secs_));
    printer.print(pattern);
    printer.flush();
}

}  // namespace FND
