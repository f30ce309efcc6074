#include <charconv>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <map>
#include <memory>
#include <optional>

#include "fnd/DateTime.h"
#include "modules/Support.h"

namespace Modules::TimeModule {

namespace {

using FND::DateTime;
using std::chrono::days;
using std::chrono::sys_days;
using std::chrono::year_month_day;

constexpr std::int64_t daySecondsS = 86'400;
constexpr std::size_t longestS = 1024;  // of texts and patterns

/// The zones that a function used. Each extension of the module has its own.
class Zones {
public:
    const FND::TimeZone& find(std::string_view name) {
        const auto found = kept_.find(name);
        if (found != kept_.end()) return *found->second;
        constexpr std::size_t most = 256;
        if (name.empty() || name.size() > longestS) refuse("unknown time zone", name);
        std::shared_ptr<const FND::TimeZone> zone = FND::TimeZone::find(name);
        if (!zone) refuse("unknown time zone", name);
        work(4096);
        if (kept_.size() >= most) kept_.clear();
        return *kept_.emplace(name, std::move(zone)).first->second;
    }

private:
    std::map<std::string, std::shared_ptr<const FND::TimeZone>, std::less<>> kept_;
};

std::int64_t floorDiv(std::int64_t a, std::int64_t b) { return a / b - (a % b < 0 ? 1 : 0); }

/// A clock's day, in days since 1970-01-01, and the second of that day.
struct Local {
    std::int64_t day;
    std::int64_t second;
};

Local localOf(const DateTime& date, const FND::TimeZone& zone) {
    const std::int64_t seconds = date.toLocalSecs(zone);
    const std::int64_t day = floorDiv(seconds, daySecondsS);
    return {day, seconds - day * daySecondsS};
}

DateTime dateOf(const Local& local, const FND::TimeZone& zone) {
    constexpr std::int64_t most = 4'000'000;
    if (local.day < -most || local.day > most) return {};
    return DateTime::fromLocalSecs(local.day * daySecondsS + local.second, zone);
}

year_month_day calendarOf(std::int64_t day) {
    return year_month_day(sys_days(days(static_cast<int>(day))));
}
std::int64_t dayOf(const year_month_day& date) { return sys_days(date).time_since_epoch().count(); }

/// 1 is Monday.
int weekdayOf(std::int64_t day) { return static_cast<int>(((day + 3) % 7 + 7) % 7) + 1; }

void checkLength(std::string_view text) {
    if (text.size() > longestS) refuse("text is longer than 1 KiB", static_cast<long>(text.size()));
}

// A text that names its zone is read as it says.
bool namesZone(std::string_view text) {
    const bool isCompact = text.find_first_not_of("0123456789") == std::string_view::npos;
    constexpr std::size_t dayOnly = 10;
    return !isCompact && text.size() > dayOnly &&
           !DateTime::parse(std::string(text) + "Z").isValid();
}

DateTime inZone(const DateTime& read, bool isRead, const FND::TimeZone& zone) {
    return isRead || !read.isValid() ? read : DateTime::fromLocalSecs(read.secs(), zone);
}

struct Zoned {
    Zones zones;
};

struct Write : Zoned {
    FND::String operator()(const DateTime& date, std::string_view zone,
                           std::optional<std::string_view> pattern) {
        FND::String made;
        checkLength(pattern.value_or(""));
        date.format(made, pattern.value_or("%Y-%m-%dT%H:%M:%S%z"), zones.find(zone));
        return made;
    }
};

struct Read : Zoned {
    DateTime operator()(std::string_view text, std::string_view zone,
                        std::optional<std::string_view> pattern) {
        checkLength(text);
        checkLength(pattern.value_or(""));
        const FND::TimeZone& local = zones.find(zone);
        if (!pattern) return inZone(DateTime::parse(text), namesZone(text), local);
        const bool isRead = pattern->find("%z") != std::string_view::npos ||
                            pattern->find("%Z") != std::string_view::npos;
        return inZone(DateTime::parse(text, *pattern, local), isRead, local);
    }
};

// The part of the second, in milliseconds, that a time has in its text.
long fractionOf(std::string_view text) {
    const std::size_t point = text.find_first_of(".,");
    long value = 0;
    for (std::size_t i = 1; i <= 3 && point != std::string_view::npos; ++i) {
        const char byte = point + i < text.size() ? text[point + i] : '0';
        const bool isDigit = byte >= '0' && byte <= '9';
        if (!isDigit) {
            for (; i <= 3; ++i) value *= 10;
            break;
        }
        value = value * 10 + (byte - '0');
    }
    return value;
}

struct Millis : Zoned {
    long operator()(std::string_view text, std::optional<std::string_view> zone) {
        checkLength(text);
        const DateTime date =
            inZone(DateTime::parse(text), namesZone(text), zones.find(zone.value_or("UTC")));
        if (!date.isValid()) refuse("no date", text);
        return date.secs() * 1000 + fractionOf(text);
    }
};

struct MillisText : Zoned {
    FND::String operator()(long millis, std::optional<std::string_view> zone) {
        const FND::TimeZone& local = zones.find(zone.value_or("UTC"));
        const std::int64_t seconds = floorDiv(millis, 1000);
        const DateTime date = DateTime::fromLocalSecs(seconds, FND::TimeZone());
        if (!date.isValid()) refuse("no date has these milliseconds", millis);
        FND::String made;
        date.format(made, "%Y-%m-%dT%H:%M:%S", local);
        char fraction[8];
        std::snprintf(fraction, sizeof fraction, ".%03d",
                      static_cast<int>(millis - seconds * 1000));
        made += fraction;
        FND::String offset;
        date.format(offset, "%z", local);
        return made + offset;
    }
};

void checkDate(const DateTime& date) {
    if (!date.isValid()) throw Refused("the date is invalid");
}

long epoch(const DateTime& date) {
    checkDate(date);
    return date.secs();
}

DateTime fromEpoch(long seconds) { return DateTime::fromLocalSecs(seconds, FND::TimeZone()); }
DateTime fromMillis(long millis) { return fromEpoch(floorDiv(millis, 1000)); }

long nowMillis() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1'000'000;
}

long elapsed(const DateTime& from, const DateTime& to) { return epoch(to) - epoch(from); }

struct Add : Zoned {
    DateTime operator()(const DateTime& date, long months, long dayCount, std::string_view zone) {
        constexpr long most = 4'000'000;
        const FND::TimeZone& local = zones.find(zone);
        if (!date.isValid() || std::max(std::abs(months), std::abs(dayCount)) > most ||
            months == std::numeric_limits<long>::min()) {
            return {};
        }
        if (months == 0 && dayCount == 0) return date;
        Local clock = localOf(date, local);
        const year_month_day start = calendarOf(clock.day);
        year_month_day moved = start + std::chrono::months(static_cast<int>(months));
        if (int(moved.year()) < 1 || int(moved.year()) > 9999) return {};
        if (!moved.ok()) moved = moved.year() / moved.month() / std::chrono::last;
        clock.day = dayOf(moved) + dayCount;
        return dateOf(clock, local);
    }
};

struct StartOf : Zoned {
    DateTime operator()(const DateTime& date, std::string_view unit, std::string_view zone) {
        constexpr std::string_view units[] = {"minute", "hour",    "day", "week",
                                              "month",  "quarter", "year"};
        const FND::TimeZone& local = zones.find(zone);
        if (std::find(std::begin(units), std::end(units), unit) == std::end(units)) {
            refuse("unknown unit", unit);
        }
        if (!date.isValid()) return {};
        Local clock = localOf(date, local);
        const year_month_day calendar = calendarOf(clock.day);
        if (unit == "hour" || unit == "minute") {
            // An hour that occurs twice is told apart.
            const std::int64_t length = unit == "hour" ? 3600 : 60;
            return DateTime::fromLocalSecs(date.secs() - clock.second % length, FND::TimeZone());
        }
        clock.second = 0;
        if (unit == "week") {
            clock.day -= weekdayOf(clock.day) - 1;
        } else if (unit == "month") {
            clock.day = dayOf(calendar.year() / calendar.month() / 1);
        } else if (unit == "quarter") {
            const unsigned month = (unsigned(calendar.month()) - 1) / 3 * 3 + 1;
            clock.day = dayOf(calendar.year() / std::chrono::month(month) / 1);
        } else if (unit == "year") {
            clock.day = dayOf(calendar.year() / 1 / 1);
        }
        return dateOf(clock, local);
    }
};

struct Weekday : Zoned {
    long operator()(const DateTime& date, std::string_view zone) {
        const FND::TimeZone& local = zones.find(zone);
        return date.isValid() ? weekdayOf(localOf(date, local).day) : 0;
    }
};

struct IsoWeek : Zoned {
    FND::String operator()(const DateTime& date, std::string_view zone) {
        FND::String made;
        const FND::TimeZone& local = zones.find(zone);
        if (date.isValid()) date.format(made, "%G-W%V", local);
        return made;
    }
};

struct DaysBetween : Zoned {
    long operator()(const DateTime& from, const DateTime& to, std::string_view zone) {
        const FND::TimeZone& local = zones.find(zone);
        checkDate(from);
        checkDate(to);
        return localOf(to, local).day - localOf(from, local).day;
    }
};

struct Offset : Zoned {
    long operator()(const DateTime& date, std::string_view zone) {
        const FND::TimeZone& local = zones.find(zone);
        return date.isValid() ? local.offsetAt(date.secs()) : 0;
    }
};

bool isZone(std::string_view name) {
    return !name.empty() && name.size() <= longestS && FND::TimeZone::find(name) != nullptr;
}

FND::String duration(long seconds) {
    const auto all = static_cast<unsigned long>(seconds < 0 ? -(seconds + 1) : seconds) +
                     (seconds < 0 ? 1UL : 0UL);
    char made[64];
    const unsigned long day = all / daySecondsS;
    std::snprintf(made, sizeof made, "%s%lu%s%02lu:%02lu:%02lu", seconds < 0 ? "-" : "", day, "d ",
                  all / 3600 % 24, all / 60 % 60, all % 60);
    if (day > 0) return made;
    std::snprintf(made, sizeof made, "%s%02lu:%02lu:%02lu", seconds < 0 ? "-" : "", all / 3600 % 24,
                  all / 60 % 60, all % 60);
    return made;
}

// Reads digits at the start of `text` and removes them; nothing when there are none, or too many.
std::optional<long> cutNumber(std::string_view& text) {
    long number = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isRead = !text.empty() && text[0] != '-' && read.ec == std::errc();
    if (!isRead) return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(read.ptr - text.data()));
    return number;
}

// "2d 03:04:05", "1h30m" or "PT1H30M": numbers with units, from the largest to the least, and at
// the end two or three numbers with colons.
long fromDuration(std::string_view text) {
    checkLength(text);
    const std::string_view whole = text;
    const auto cut = [&](std::string_view start) {
        if (!text.starts_with(start)) return false;
        text.remove_prefix(start.size());
        return true;
    };
    const auto check = [&](bool isGood) {
        if (!isGood) refuse("no duration", whole);
    };
    long sum = 0;
    const auto add = [&](long count, long seconds) {
        long part = 0;
        check(!__builtin_mul_overflow(count, seconds, &part) &&
              !__builtin_add_overflow(sum, part, &sum));
    };
    constexpr struct {
        char name;
        long seconds;
    } units[] = {{'w', 7 * daySecondsS}, {'d', daySecondsS}, {'h', 3600}, {'m', 60}, {'s', 1}};
    const bool isNegative = cut("-");
    const bool isIso = cut("P");
    bool isTime = !isIso;  // after the T, where M means minutes
    const auto* unit = std::begin(units);
    check(!text.empty());
    while (!text.empty()) {
        if (isIso && !isTime && cut("T")) isTime = true;
        const std::optional<long> number = cutNumber(text);
        check(number && !text.empty());
        if (text[0] == ':' && !isIso) {
            // Hours, minutes and perhaps seconds.
            long factor = 3600;
            check(unit <= std::begin(units) + 2);
            add(*number, factor);
            while (factor > 1 && cut(":")) {
                const std::size_t before = text.size();
                const std::optional<long> part = cutNumber(text);
                check(part && *part < 60 && before - text.size() == 2);
                add(*part, factor /= 60);
            }
            check(text.empty());
            break;
        }
        const char name = static_cast<char>(text[0] | 32);
        while (unit != std::end(units) && unit->name != name) ++unit;
        check(unit != std::end(units) &&
              (isTime ? !isIso || unit->seconds < daySecondsS : unit->seconds >= daySecondsS));
        add(*number, unit++->seconds);
        text.remove_prefix(1);
        if (!isIso && text.size() > 1) cut(" ");
    }
    return isNegative ? -sum : sum;
}

/// The days on which nobody works besides weekends, sorted.
List<std::int64_t> holidaysOf(ArrayView<FND::String> holidays) {
    List<std::int64_t> all;
    for (const FND::String& text : holidays) {
        work(128);
        constexpr std::size_t size = 10;
        const DateTime date = text.size() == size ? DateTime::parse(text) : DateTime();
        if (!date.isValid()) refuse("no day such as 2024-12-31:", text);
        all.add(floorDiv(date.secs(), daySecondsS));
    }
    std::sort(all.begin(), all.end());
    return all;
}

bool isWorkday(std::int64_t day, const List<std::int64_t>& holidays) {
    return weekdayOf(day) <= 5 && !std::binary_search(holidays.begin(), holidays.end(), day);
}

struct Workdays : Zoned {
    long operator()(const DateTime& from, const DateTime& to, std::string_view zone,
                    ArrayView<FND::String> holidays) {
        const FND::TimeZone& local = zones.find(zone);
        checkDate(from);
        checkDate(to);
        const List<std::int64_t> free = holidaysOf(holidays);
        const std::int64_t end = localOf(to, local).day;
        long count = 0;
        for (std::int64_t day = localOf(from, local).day; day < end; ++day) {
            work(64);
            count += isWorkday(day, free) ? 1 : 0;
        }
        return count;
    }
};

struct AddWorkdays : Zoned {
    DateTime operator()(const DateTime& date, long count, std::string_view zone,
                        ArrayView<FND::String> holidays) {
        constexpr long most = 1'000'000;
        const FND::TimeZone& local = zones.find(zone);
        if (count < -most || count > most) refuse("more than a million days", count);
        const List<std::int64_t> free = holidaysOf(holidays);
        if (!date.isValid()) return {};
        Local clock = localOf(date, local);
        const int step = count < 0 ? -1 : 1;
        constexpr std::int64_t last = 3'000'000;
        while (count != 0 && clock.day > -last && clock.day < last) {
            work(64);
            clock.day += step;
            if (isWorkday(clock.day, free)) count -= step;
        }
        return dateOf(clock, local);
    }
};

constexpr ModuleFunction functionsS[] = {
    {"String write(Date date, String zone, [String format])", addFunctor<Write>, Effect::None,
     "The date by the clock of a zone, such as \"Europe/Berlin\", \"UTC\" or a rule: in the form "
     "2024-07-01T12:00:00+0200, or by the directives of `dateToStr`, up to 1 KiB. An unknown zone "
     "is an error here and below. An invalid date is INVALID.",
     R"(time::write(time::fromEpoch(0), "Asia/Tokyo") == "1970-01-01T09:00:00+0900")"},
    {"Date read(String text, String zone, [String format])", addFunctor<Read>, Effect::None,
     "The date that a text names, as `strToDate` reads it. A text that says nothing of a zone is "
     "by "
     "the clock of `zone`. Of a time that occurs twice the first one is meant; one that the clock "
     "skips moves on by the gap.",
     R"(time::epoch(time::read("2024-07-01 12:00", "Europe/Berlin")) == 1719828000)"},
    {"Long millis(String text, [String zone])", addFunctor<Millis>, Effect::None,
     "The milliseconds since 1970 of a timestamp with or without a fraction of a second; further "
     "digits are cut off. Without a zone in the text it is by the clock of `zone`, or UTC.",
     R"(time::millis("1970-01-01T00:00:01.25Z") == 1250)"},
    {"String millisText(Long millis, [String zone])", addFunctor<MillisText>, Effect::None,
     "Milliseconds since 1970 as 1970-01-01T00:00:01.250+0000, by the clock of the zone, or UTC.",
     R"(time::millisText(1250) == "1970-01-01T00:00:01.250+0000")"},
    {"Date fromMillis(Long millis)", SCR::addFunction<fromMillis>, Effect::None,
     "The date of so many milliseconds since 1970; their fraction of a second is dropped. "
     "Invalid outside of the years 1 to 9999, as below.",
     R"(time::fromMillis(1999) == time::fromEpoch(1))"},
    {"Long epoch(Date date)", SCR::addFunction<epoch>, Effect::None,
     "The seconds since 1970-01-01 00:00:00 UTC. An invalid date is an error, and the result 0.",
     R"(time::epoch(strToDate("1970-01-02")) == 86400)"},
    {"Date fromEpoch(Long seconds)", SCR::addFunction<fromEpoch>, Effect::None,
     "The date of so many seconds since 1970.",
     R"(time::fromEpoch(86400) == strToDate("1970-01-02"))"},
    {"Long nowMillis()", SCR::addFunction<nowMillis>, Effect::Clock,
     "The milliseconds since 1970, now.", R"(time::nowMillis() > 1600000000000)"},
    {"Long elapsed(Date from, Date to)", SCR::addFunction<elapsed>, Effect::None,
     "The seconds from one date to another; negative when `to` is earlier. An invalid date is an "
     "error, and the result 0.",
     R"(time::elapsed(time::fromEpoch(5), time::fromEpoch(8)) == 3)"},
    {"Date add(Date date, Long months, Long days, String zone)", addFunctor<Add>, Effect::None,
     "Moves the date in the calendar of a zone and keeps the time on its clock, on days of 23 "
     "hours "
     "too. First come the months: the 31st becomes the last day of a shorter month. Invalid for "
     "an invalid date and outside of the years 1 to 9999.",
     R"(Date d = time::read("2024-03-30 12:00", "Europe/Berlin");
time::elapsed(d, time::add(d, 0, 1, "Europe/Berlin")) == 82800)"},
    {"Date startOf(Date date, String unit, String zone)", addFunctor<StartOf>, Effect::None,
     "The start of the `minute`, `hour`, `day`, `week` (Monday), `month`, `quarter` or `year` on "
     "the clock of a zone. Another unit is an error; invalid for an invalid date.",
     R"(time::startOf(time::fromEpoch(90000), "day", "UTC") == time::fromEpoch(86400))"},
    {"Long weekday(Date date, String zone)", addFunctor<Weekday>, Effect::None,
     "1 for Monday to 7 for Sunday; 0 for an invalid date.",
     R"(time::weekday(strToDate("2024-07-01"), "UTC") == 1)"},
    {"String isoWeek(Date date, String zone)", addFunctor<IsoWeek>, Effect::None,
     "The week, as 2024-W27; empty for an invalid date.",
     R"(time::isoWeek(strToDate("2024-12-30"), "UTC") == "2025-W01")"},
    {"Long daysBetween(Date from, Date to, String zone)", addFunctor<DaysBetween>, Effect::None,
     "How many midnights of the zone lie between two dates; negative when `to` is earlier. An "
     "invalid date is an error, and the result 0.",
     R"(time::daysBetween(time::fromEpoch(86399), time::fromEpoch(86400), "UTC") == 1)"},
    {"Long offset(Date date, String zone)", addFunctor<Offset>, Effect::None,
     "How many seconds the zone's clock is ahead of UTC then; 0 for an invalid date.",
     R"(time::offset(strToDate("2024-07-01"), "Europe/Berlin") == 7200)"},
    {"Bool isZone(String name)", SCR::addFunction<isZone>, Effect::None,
     "Whether the system knows this zone.",
     R"(time::isZone("UTC") and time::isZone("?") == false)"},
    {"String duration(Long seconds)", SCR::addFunction<duration>, Effect::None,
     "Seconds as `HH:MM:SS`, after the days if there are any, as in `2d 03:04:05`.",
     R"(time::duration(183845) == "2d 03:04:05" and time::duration(-61) == "-00:01:01")"},
    {"Long fromDuration(String text)", SCR::addFunction<fromDuration>, Effect::None,
     "The seconds of a text such as `2d 03:04:05`, `12:30`, `1h 30m`, `90s` or "
     "`P1DT2H30M`: weeks, days, hours, minutes and seconds, each at most once, the largest first, "
     "after `-` for less than nothing. Any other text, or a fraction, is an error, and the result "
     "0.",
     R"(time::fromDuration("2d 03:04:05") == 183845 and time::fromDuration("PT1H30M") == 5400)"},
    {"Long workdays(Date from, Date to, String zone, String[] holidays)", addFunctor<Workdays>,
     Effect::None,
     "The days from Monday to Friday that are not among `holidays`, such as \"2024-12-25\": from "
     "the day of `from` up to the one before that of `to`; 0 when that is earlier. An invalid date "
     "or a holiday of another form is an error, and the result 0.",
     R"(String h[]; h[0] = "2024-12-25";
time::workdays(strToDate("2024-12-23"), strToDate("2024-12-30"), "UTC", h) == 4)"},
    {"Date addWorkdays(Date date, Long days, String zone, String[] holidays)",
     addFunctor<AddWorkdays>, Effect::None,
     "Moves the date by so many of these days, back by a negative number, and keeps the time on "
     "the "
     "clock. More than a million are an error. Invalid for an invalid date and outside of the "
     "years "
     "1 to 9999.",
     R"(String h[]; time::addWorkdays(strToDate("2024-12-27"), 1, "UTC", h) == strToDate("2024-12-30"))"},
};

constexpr SCR::ModuleTable tableS{
    "time", "Dates by the clocks of named zones, fractions of seconds, calendars and workdays.",
    functionsS};

}  // namespace

}  // namespace Modules::TimeModule

KESTREL_MODULE(time, Modules::TimeModule::tableS);
