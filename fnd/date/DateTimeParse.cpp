#include <algorithm>
#include <cstddef>
#include <limits>
#include <optional>

#include "fnd/DateTime.h"
#include "fnd/date/Bytes.h"
#include "fnd/date/Calendar.h"
#include "fnd/date/DateDirectives.h"

namespace FND {
namespace {

// The functions that skip and read take matching bytes from the front of the text.

constexpr bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

constexpr char toUpper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

bool skip(std::string_view& text, char c) {
    if (!text.starts_with(c)) return false;
    text.remove_prefix(1);
    return true;
}

/// The number of bytes between two reports of progress.
constexpr std::size_t pieceSizeS = 64 * 1024;

/// There may be any number of them.
void skipBlanks(std::string_view& text, DateTime::Progress progress) {
    std::size_t length = 0;
    while (length < text.size() && isBlank(text[length])) {
        if (++length % pieceSizeS == 0 && progress != nullptr) progress(pieceSizeS);
    }
    text.remove_prefix(length);
}

/// White space fits any run of white space, also none; any other byte fits itself.
bool skipLike(std::string_view& text, char c, DateTime::Progress progress) {
    if (!isBlank(c)) return skip(text, c);
    skipBlanks(text, progress);
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
    const std::size_t longest = std::min(most, text.size());
    std::size_t length = 0;
    value = 0;
    for (; length + 1 < longest && isDigit(text[length]) && isDigit(text[length + 1]); length += 2)
        value = value * 100 + (text[length] - '0') * 10 + (text[length + 1] - '0');
    if (length < longest && isDigit(text[length])) value = value * 10 + (text[length++] - '0');
    text.remove_prefix(length);
    return length > 0;
}

/// Reads two digits that are at most `high`, after a ":" if `colon`; otherwise takes nothing.
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
    offset = hours * SecondsPerHour + minutes * SecondsPerMinute + seconds;
    if (negative) offset = -offset;
    return true;
}

/// Reads a zone's name: letters, or a sign and digits. No zone has a name of thousands of them.
bool readZoneName(std::string_view& text, std::string_view& name) {
    constexpr std::size_t longest = 4096;
    const bool isNumber = text.starts_with('+') || text.starts_with('-');
    std::size_t length = isNumber ? 1 : 0;
    const std::size_t end = std::min(text.size(), longest);
    while (length < end && (isNumber ? isDigit(text[length]) : isLetter(text[length]))) ++length;
    name = text.substr(0, length);
    text.remove_prefix(length);
    return length > 0;
}

bool isUtcName(std::string_view name) { return name == "UTC" || name == "GMT" || name == "Z"; }

/// A set of fields is a word with their bits.
constexpr std::uint32_t maskOf(Field field) {
    return std::uint32_t{1} << static_cast<unsigned>(field);
}

// These decide on their part of the date whenever they are given.
constexpr std::uint32_t decidingS = maskOf(Field::Year) | maskOf(Field::Month) |
                                    maskOf(Field::Day) | maskOf(Field::Hour) |
                                    maskOf(Field::Minute) | maskOf(Field::Second);

/// Reads a text by a pattern, from its start on, and collects the values of the directives.
class Reader {
public:
    Reader(std::string_view text, const TimeZone& local, DateTime::Progress progress)
        : text_(text), local_(local), progress_(progress) {}

    /// Takes what fits `pattern`; false when the text does not fit.
    bool read(std::string_view pattern) {
        std::string_view text = text_;  // in registers, while it handles bytes and numbers
        for (std::size_t i = 0; i < pattern.size(); ++i) {
            const DateDirective* const directive = DateDirectives::directiveAt(pattern, i);
            if (!directive) {
                if (!skipLike(text, pattern[i], progress_)) return false;
                continue;
            }
            ++i;
            if (directive->kind == DateDirective::Number) {
                if (!readField(text, *directive)) return false;
                continue;
            }
            text_ = text;
            if (!read(*directive)) return false;
            text = text_;
        }
        text_ = text;
        return true;
    }

    bool atEnd() const { return text_.empty(); }

    /// The instant that the directives read so far determine; invalid when they determine none.
    DateTime instant() const {
        if (seen_ == 0 && !epochSecs_) return {};
        std::int64_t clock = 0;
        std::int64_t secs = 0;
        if (!(epochSecs_ ? findClock(secs, clock) : findInstant(secs, clock))) return {};
        // Values that were not used for the instant must agree with it.
        std::uint32_t unchecked = epochSecs_ ? seen_ : seen_ & ~decidingS;
        if (unchecked != 0) unchecked |= seen_ & maskOf(Field::Year);  // weeks may extend beyond it
        if (unchecked != 0) {
            const Calendar calendar(clock);
            for (unsigned i = 0; i < FieldCount; ++i)
                if ((unchecked >> i & 1) != 0 && values_[i] != calendar[static_cast<Field>(i)])
                    return {};
        }
        return DateTime(secs);
    }

private:
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

    /// False when an earlier value differs.
    template <class Value>
    static bool set(std::optional<Value>& known, Value value) {
        if (known.value_or(value) != value) return false;
        known = value;
        return true;
    }

    /// Takes a number from the front of `text`.
    bool readField(std::string_view& text, const DateDirective& directive) {
        if (directive.fill == ' ') skipBlanks(text, progress_);
        int value = 0;
        return readNumber(text, directive.width, value) && value >= directive.low &&
               value <= directive.high && set(directive.field, value);
    }

    bool read(const DateDirective& directive) {
        switch (directive.kind) {
            case DateDirective::Number:
                return readField(text_, directive);
            case DateDirective::Name:
                for (int value = directive.low; value <= directive.high; ++value) {
                    const std::string_view name = directive.names[value - directive.low];
                    if (skipName(text_, name) ||
                        skipName(text_, name.substr(0, DateDirectives::Short)))
                        return set(directive.field, value);
                }
                return false;
            case DateDirective::Pattern:
                return read(directive.pattern);
            case DateDirective::EpochSecs: {
                const bool negative = skip(text_, '-');
                constexpr std::size_t most = std::numeric_limits<std::int64_t>::digits10;
                std::int64_t secs = 0;
                return readNumber(text_, most, secs) && set(epochSecs_, negative ? -secs : secs);
            }
            case DateDirective::ZoneOffset: {
                std::int64_t offset = 0;
                return readOffset(text_, offset) && set(offset_, offset);
            }
            case DateDirective::ZoneName: {
                std::string_view name;
                return readZoneName(text_, name) && set(zoneName_, name);
            }
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

    /// The day, by the first of these that is given: month and day, day of the year, the kinds of
    /// week. False for a day that its month does not have. Days that their year does not have come
    /// back as others, so `instant` notices them.
    bool findDay(std::int64_t& day) const {
        if (has(Field::Month) || has(Field::Day)) {
            const int month = get(Field::Month, 1);
            day = dayNumberOf(year(), month, get(Field::Day, 1));
            return dateExists(year(), month, get(Field::Day, 1));
        }
        const std::int64_t yearStart = dayNumberOf(year(), 1, 1);
        const int mondayWeekday =
            get(Field::MondayWeekday, (get(Field::SundayWeekday, 1) + 6) % DaysPerWeek + 1) - 1;
        const int sundayWeekday =
            get(Field::SundayWeekday, get(Field::MondayWeekday, 0) % DaysPerWeek);
        if (has(Field::DayOfYear)) {
            day = yearStart + get(Field::DayOfYear, 1) - 1;
        } else if (has(Field::IsoWeek)) {
            day = isoYearStart(isoYear(year())) + (get(Field::IsoWeek, 1) - 1) * DaysPerWeek +
                  mondayWeekday;
        } else if (has(Field::SundayWeek)) {
            const std::int64_t weekOne =
                yearStart + (DaysPerWeek - weekdayOf(yearStart)) % DaysPerWeek;
            day = weekOne + (get(Field::SundayWeek, 0) - 1) * DaysPerWeek + sundayWeekday;
        } else if (has(Field::MondayWeek)) {
            const std::int64_t weekOne =
                yearStart + (DaysPerWeek + 1 - weekdayOf(yearStart)) % DaysPerWeek;
            day = weekOne + (get(Field::MondayWeek, 0) - 1) * DaysPerWeek + mondayWeekday;
        } else {
            day = yearStart;
        }
        return true;
    }

    /// By %s: the instant, and what the clock of the text's zone shows then.
    bool findClock(std::int64_t& secs, std::int64_t& clock) const {
        secs = epochSecs_.value_or(0);
        if (!DateTime(secs).isValid()) return false;
        clock = secs;
        if (offset_) {
            clock += *offset_;
        } else if (zoneName_ && !isUtcName(*zoneName_)) {
            clock += local_.offsetAt(secs);
            return local_.nameAt(secs) == zoneName_;
        }
        return true;
    }

    /// Without %s: the instant at which the clock of the text's zone shows the date.
    bool findInstant(std::int64_t& secs, std::int64_t& clock) const {
        std::int64_t day = 0;
        if (!findDay(day)) return false;
        clock = day * SecondsPerDay + timeOfDay();
        secs = clock;
        if (offset_) {
            secs -= *offset_;
        } else if (zoneName_ && !isUtcName(*zoneName_)) {
            const TimeZone::Instants instants = local_.instantsOf(clock);
            if (instants.beforeIsReal && local_.nameAt(instants.before) == zoneName_)
                secs = instants.before;
            else if (instants.afterIsReal && local_.nameAt(instants.after) == zoneName_)
                secs = instants.after;
            else
                return false;
        }
        return true;
    }

    std::string_view text_;
    const TimeZone& local_;
    const DateTime::Progress progress_;
    std::optional<std::string_view> zoneName_;
    std::optional<std::int64_t> epochSecs_;
    std::optional<std::int64_t> offset_;
    std::uint32_t seen_ = 0;  // by `maskOf`
    std::int16_t values_[FieldCount] = {};
};

/// Reads `count` digits from `at`; sets `bad` for anything else.
int digitsAt(const char* at, int count, bool& bad) {
    int value = 0;
    for (int i = 0; i < count; ++i) {
        bad |= !isDigit(at[i]);
        value = value * 10 + (at[i] - '0');
    }
    return value;
}

/// Skips a fraction of a second, if there is one; false when its sign has no digit after it.
bool skipFraction(std::string_view& text) {
    if (!text.starts_with('.') && !text.starts_with(',')) return true;
    std::size_t length = 1;
    while (length < text.size() && isDigit(text[length])) ++length;
    text.remove_prefix(length);
    return length > 1;
}

/// Reads the clock of a timestamp, in seconds: "HH:MM:SS", or "HH:MM" if there are no seconds, or
/// "HHMMSS" when `joined`; seconds may have a fraction.
bool readClock(std::string_view& text, bool joined, std::int64_t& secs) {
    int hour = 0;
    int minute = 0;
    int second = 0;
    if (!readPair(text, false, 23, hour) || !readPair(text, !joined, 59, minute)) return false;
    const bool hasSeconds = readPair(text, !joined, 59, second);
    secs = hour * SecondsPerHour + minute * SecondsPerMinute + second;
    return hasSeconds ? skipFraction(text) : !joined;
}

}  // namespace

DateTime DateTime::parse(std::string_view text) noexcept {
    constexpr std::size_t separatedDateLength = 10;
    constexpr std::size_t joinedDateLength = 8;
    const bool joined = text.size() >= joinedDateLength && isDigit(text[4]);
    const std::size_t dateLength = joined ? joinedDateLength : separatedDateLength;
    if (text.size() < dateLength) return {};

    const char* const at = text.data();
    bool bad = false;
    const int year = digitsAt(at, 4, bad);
    const int month = digitsAt(at + (joined ? 4 : 5), 2, bad);
    const int day = digitsAt(at + (joined ? 6 : 8), 2, bad);
    if (!joined) bad |= at[4] != '-' || at[7] != '-';
    if (bad || year < 1 || !dateExists(year, month, day)) return {};

    std::string_view rest = text.substr(dateLength);
    std::int64_t secs = 0;
    std::int64_t offset = 0;
    if (!rest.empty()) {
        if (!joined && !skip(rest, 'T') && !skip(rest, ' ')) return {};
        if (!readClock(rest, joined, secs)) return {};
        if (!rest.empty() && (joined || rest.size() > std::string_view("+hh:mm").size() ||
                              !readOffset(rest, offset) || !rest.empty()))
            return {};
    }
    return DateTime(dayNumberOf(year, month, day) * SecondsPerDay + secs - offset);
}

DateTime DateTime::parse(std::string_view text, std::string_view pattern) noexcept {
    return parse(text, pattern, localZone());
}

DateTime DateTime::parse(std::string_view text, std::string_view pattern,
                         const TimeZone& local) noexcept {
    return parse(text, pattern, local, nullptr);
}

DateTime DateTime::parse(std::string_view text, std::string_view pattern, const TimeZone& local,
                         Progress progress) {
    Reader reader(text, local, progress);
    while (pattern.size() > pieceSizeS) {
        const std::string_view front = patternFront(pattern, pieceSizeS);
        if (!reader.read(front)) return {};
        if (progress != nullptr) progress(front.size());
        pattern.remove_prefix(front.size());
    }
    return reader.read(pattern) && reader.atEnd() ? reader.instant() : DateTime();
}

std::string_view DateTime::patternFront(std::string_view pattern, std::size_t size) noexcept {
    if (size >= pattern.size()) return pattern;
    std::string_view front = pattern.substr(0, size);
    // Two percent signs are a directive; the last of an odd number of them begins one.
    const std::size_t signs = size - (front.find_last_not_of('%') + 1);
    if (signs % 2 != 0) front.remove_suffix(1);
    return front;
}

}  // namespace FND
