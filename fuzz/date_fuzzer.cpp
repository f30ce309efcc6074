#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

#include "Check.h"
#include "fnd/DateTime.h"

namespace {

constexpr std::int64_t dayS = 86'400;

using Fuzz::check;

bool isLeapYear(std::int64_t year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

std::int64_t daysOfMonth(std::int64_t year, std::int64_t month) {
    constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return days[month - 1] + (month == 2 && isLeapYear(year) ? 1 : 0);
}

struct Date {
    std::int64_t year = 1;
    std::int64_t month = 1;
    std::int64_t day = 1;
};

// Days since 1970-01-01, year by year and month by month.
std::int64_t dayNumber(const Date& date) {
    std::int64_t days = -719'162 + date.day - 1;  // from 0001-01-01
    const std::int64_t before = date.year - 1;
    days += 365 * before + before / 4 - before / 100 + before / 400;
    for (std::int64_t month = 1; month < date.month; ++month) days += daysOfMonth(date.year, month);
    return days;
}

Date dateOf(std::int64_t days) {
    Date date;
    date.year = 1 + (days + 719'162) / 366;  // never too late
    while (dayNumber({date.year + 1, 1, 1}) <= days) ++date.year;
    while (date.month < 12 && dayNumber({date.year, date.month + 1, 1}) <= days) ++date.month;
    date.day = 1 + days - dayNumber(date);
    return date;
}

std::string shown(std::int64_t secs) {
    const std::int64_t days = secs >= 0 ? secs / dayS : (secs + 1) / dayS - 1;
    const Date date = dateOf(days);
    const long clock = secs - days * dayS;
    char text[80];
    std::snprintf(text, sizeof text, "%04ld-%02ld-%02ld %02ld:%02ld:%02ld",
                  static_cast<long>(date.year), static_cast<long>(date.month),
                  static_cast<long>(date.day), clock / 3600, clock / 60 % 60, clock % 60);
    return text;
}

// What `text` says if it looks like `form`: a digit for each of Y, M, D, h, m and s, a sign for
// "+", hours and minutes of an offset for z and i, anything else itself.
std::optional<std::int64_t> read(std::string_view text, std::string_view form) {
    if (text.size() != form.size()) return std::nullopt;
    constexpr std::string_view names = "YMDhmszi";
    std::int64_t numbers[names.size()] = {};
    int sign = 1;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const std::size_t name = names.find(form[i]);
        if (name != names.npos) {
            if (text[i] < '0' || text[i] > '9') return std::nullopt;
            numbers[name] = 10 * numbers[name] + text[i] - '0';
        } else if (form[i] == '+' && text[i] == '-') {
            sign = -1;
        } else if (text[i] != form[i]) {
            return std::nullopt;
        }
    }
    const auto& [year, month, day, hour, minute, second, zoneHour, zoneMinute] = numbers;
    if (year < 1 || month < 1 || month > 12 || day < 1 || day > daysOfMonth(year, month)) {
        return std::nullopt;
    }
    if (hour > 23 || minute > 59 || second > 59 || zoneHour > 23 || zoneMinute > 59) {
        return std::nullopt;
    }
    return dayNumber({year, month, day}) * dayS + hour * 3600 + minute * 60 + second -
           sign * (zoneHour * 3600 + zoneMinute * 60);
}

FND::DateTime parsed(std::string_view text) {
    // A fraction is only its sign in the forms.
    std::string plain(text.substr(0, text.find_first_of(".,")));
    if (plain.size() < text.size()) {
        std::string_view rest = text.substr(plain.size() + 1);
        const std::size_t digits = std::min(rest.find_first_not_of("0123456789"), rest.size());
        if (digits == 0) return {};
        plain += '.' + std::string(rest.substr(digits));
    }
    for (const char* form : {"YYYY-MM-DD", "YYYYMMDD", "YYYYMMDDhhmmss", "YYYYMMDDhhmmss."}) {
        if (const auto secs = read(plain, form)) return FND::DateTime(*secs);
    }
    for (const std::string day : {"YYYY-MM-DDT", "YYYY-MM-DD "}) {
        for (const char* clock : {"hh:mm", "hh:mm:ss", "hh:mm:ss."}) {
            for (const char* zone : {"", "Z", "+zz:ii", "+zzii", "+zz"}) {
                if (const auto secs = read(plain, day + clock + zone)) return FND::DateTime(*secs);
            }
        }
    }
    return {};
}

void checkMoves(FND::DateTime date, std::int64_t count) {
    const std::int64_t days = (date.secs() + (dayS << 24)) / dayS - (1 << 24);
    const Date from = dateOf(days);
    const std::int64_t clock = date.secs() - days * dayS;
    const std::int64_t months = from.year * 12 + from.month - 1 + count;
    Date to{months / 12, months % 12 + 1, from.day};
    FND::DateTime moved = date;
    const bool isInRange = months >= 12 && months < 120'000;
    check(moved.addMonths(count) == isInRange);
    if (isInRange) {
        to.day = std::min(to.day, daysOfMonth(to.year, to.month));
        check(moved.secs() == dayNumber(to) * dayS + clock);
    } else {
        check(moved == date);
    }
    FND::DateTime other = date;
    check(other.addDays(count) == FND::DateTime(date.secs() + count * dayS).isValid());
    if (other != date) check(other.secs() == date.secs() + count * dayS);
    moved = other = date;
    check(moved.addYears(count) == other.addMonths(12 * count) && moved == other);
}

// A date read from a text by a pattern is the same after it is written and read by that pattern
// again.
void checkPattern(FND::DateTime date, std::string_view text, std::string_view pattern) {
    FND::String first;
    FND::String again;
    // A zone may move what the text leaves to the default: the day.
    const bool hasZone = pattern.find_first_of("zZ") != pattern.npos;
    for (const FND::DateTime each : {date, FND::DateTime::parse(text, pattern)}) {
        each.format(first, pattern, FND::DateTime::Zone::Utc);
        check(first.size() <= 13 * pattern.size() + 7);
        const FND::DateTime found = FND::DateTime::parse(first, pattern);
        // Blanks in a pattern also match those before a number, which then may have one more digit.
        if (!found.isValid() || pattern.find_first_of("ekl") != pattern.npos) continue;
        found.format(again, pattern, FND::DateTime::Zone::Utc);
        check(again == first);
        if (each != date && !hasZone) check(found == each);
    }
    // The local clock is that of UTC, shifted.
    const FND::DateTime local(date.toLocalSecs());
    if (!local.isValid() || hasZone || pattern.find('s') != pattern.npos) return;
    local.format(first, pattern, FND::DateTime::Zone::Utc);
    date.format(again, pattern, FND::DateTime::Zone::Local);
    check(first == again);
}

void chooseZone(unsigned index) {
    constexpr const char* zones[] = {"UTC0", "CET-1CEST,M3.5.0,M10.5.0/3", "EST5EDT,M3.2.0,M11.1.0",
                                     "<+0545>-5:45"};
    static unsigned actualS = 4;
    if (actualS == index) return;
    actualS = index;
    ::setenv("TZ", zones[index], 1);
    FND::DateTime::rereadLocalZone();
}

}  // namespace

/// Reads a date, the input up to its first "|", without a pattern and by one, the rest, and makes
/// one of the first eight bytes; compares them with a plain calendar.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 8 || size > 300) return 0;
    chooseZone(data[0] % 4);
    std::uint64_t number = 0;
    for (int i = 1; i < 8; ++i) number = number << 8 | data[i];
    const FND::DateTime date(FND::DateTime::min().secs() +
                             static_cast<std::int64_t>(number % 315'537'897'600));
    const std::string_view input(reinterpret_cast<const char*>(data + 8), size - 8);
    const std::size_t cut = input.find('|');
    const std::string_view text = input.substr(0, cut);

    const FND::DateTime found = FND::DateTime::parse(text);
    check(found == parsed(text));
    FND::String written;
    for (const FND::DateTime each : {date, found}) {
        if (!each.isValid()) continue;
        each.format(written);
        check(written == shown(each.secs()) && FND::DateTime::parse(written) == each);
        check(FND::DateTime::fromLocalSecs(each.toLocalSecs()) <= each);
        FND::DateTime moved = each;
        check(moved.addLocalTime(0, 0, 0) && moved == each);
        checkMoves(each, static_cast<std::int64_t>(number % 250'001) - 125'000);
        checkMoves(each, data[7] - 128);
    }
    if (cut != input.npos) checkPattern(date, text, input.substr(cut + 1));
    return 0;
}
