#pragma once

#include <atomic>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"

namespace FND {

struct ZonePeriod;
class ZoneRule;

/// A time zone: how far its clocks are ahead of UTC at any instant, and what their time is called.
/// Instants are seconds since 1970-01-01 UTC in the years 0001 to 9999 and some days around them.
/// Immutable: any number of threads may use one. A query takes some nanoseconds, without a lock.
class KESTREL_API TimeZone {
public:
    /// UTC.
    TimeZone() noexcept = default;

    /// The zone `name`: "UTC", a zone of the system's database, such as "Europe/Berlin", or a rule
    /// like those of the variable TZ, such as "CET-1CEST,M3.5.0,M10.5.0/3". Null for any other
    /// name. The database is the folder TZDIR, or /usr/share/zoneinfo. Throws std::bad_alloc.
    static std::shared_ptr<const TimeZone> find(std::string_view name);

    /// The zone of the process: that of TZ, or of /etc/localtime when TZ is not set; UTC when there
    /// is no such zone. It is looked up when it is first needed and then stays, even if TZ changes,
    /// until `rereadLocal`. Throws std::bad_alloc.
    static const TimeZone& local() {
        const TimeZone* const zone = localCM.load(std::memory_order_acquire);
        return zone != nullptr ? *zone : findLocal();
    }
    /// Forgets the zone of the process, so that it is looked up again. No other thread may use it
    /// meanwhile.
    static void rereadLocal() noexcept;

    /// The offset of the clock from UTC at the instant `secs`, in seconds; less than two days.
    std::int64_t offsetAt(std::int64_t secs) const noexcept {
        return periods_.empty() ? 0 : periodAt(secs).offset;
    }
    /// The name of the time at this instant, such as "CET"; valid as long as the zone.
    std::string_view nameAt(std::int64_t secs) const noexcept;

    /// The two instants at which the clock may show a given time: one by the offset before the
    /// nearest change of offset, one by the offset after it; the same if there is no change. An
    /// instant is real if the clock does show the time then: both are where clocks are set back,
    /// neither is where they are set forward.
    struct Instants {
        std::int64_t before;
        std::int64_t after;
        bool beforeIsReal;
        bool afterIsReal;
    };
    /// The instants for a clock of `localSecs`, counted as if it were UTC.
    Instants instantsOf(std::int64_t localSecs) const noexcept;

    /// Distinguishes zones by their answers: 16 hexadecimal digits, which two zones share when all
    /// their answers are equal. No protection against forgery.
    String digest() const;

private:
    struct Period {
        std::int64_t begin;
        std::int32_t offset;
        std::uint16_t name;  // in names_
        std::uint16_t nameSize;
    };

    // `periods` lists the periods known one by one, the first without a beginning; none if `rule`
    // always holds. After them `rule` holds, unless it is null. Null when there are too many.
    static std::shared_ptr<const TimeZone> make(std::vector<ZonePeriod> periods,
                                                const ZoneRule* rule);
    static const TimeZone& findLocal();
    static std::shared_ptr<const TimeZone> fromFile(const String& path);
    static std::shared_ptr<const TimeZone> fromEnvironment();
    bool take(const std::vector<ZonePeriod>& periods);
    const Period& periodAt(std::int64_t secs) const noexcept;
    std::string_view nameOf(const Period& period) const noexcept {
        return std::string_view(names_).substr(period.name, period.nameSize);
    }

    static constexpr std::int64_t neverCM = INT64_MAX;
    // The zone of the process, once it is known. It is not freed at the end: threads may use it as
    // long as they run.
    static std::atomic<const TimeZone*> localCM;

    std::vector<Period> periods_;  // ascending, the first one without a beginning; none in UTC
    String names_;
    // For each stretch of time, beginning with the second period, the period in which it begins.
    std::vector<std::uint16_t> index_;
    // From the instant `foldsFrom_` on, the answers of the 400 years from `cycle_` on repeat: that
    // is the cycle of the calendar, including weekdays.
    std::int64_t foldsFrom_ = neverCM;
    std::int64_t cycle_ = 0;
};

/// An instant: whole seconds since 1970-01-01 00:00:00 UTC (leap seconds are not counted), in the
/// years 0001 to 9999 of the proleptic Gregorian calendar, or the one invalid value. Eight bytes,
/// trivially copyable; allocates nothing except to let a text grow. Any argument is safe: one that
/// does not fit gives the invalid value or false.
///
/// Directives of the patterns of `parse` and `format`. Names are English whatever the locale is;
/// numbers have leading zeros to the width in parentheses.
///
///     %Y year (4)         %C century (2)        %y year of the century (2)
///     %m month (2)        %B %b %h its name, in full or three letters
///     %d day (2)          %e the same with a leading blank     %j day of the year (3)
///     %A %a weekday's name  %u weekday, Monday is 1  %w weekday, Sunday is 0
///     %G %V year (4) and week (2) by ISO 8601   %g the ISO year of the century (2)
///     %U %W week of the year, from its first Sunday or Monday (2)
///     %H hour (2)         %I hour of the half day, 01 to 12    %p %P "AM" or "PM", "am" or "pm"
///     %k %l as %H and %I with a leading blank   %M minute (2)  %S second (2)
///     %s seconds since 1970-01-01 UTC
///     %z offset from UTC, "+hhmm" ("+hh:mm:ss" if it has seconds)  %Z the zone's name
///     %F %Y-%m-%d         %T %H:%M:%S           %R %H:%M       %D %m/%d/%y   %x as %D
///     %r %I:%M:%S %p      %c %a %b %e %H:%M:%S %Y              %X as %T
///     %n line end         %t tabulator          %% percent sign
///
/// Any other character after a "%", and a "%" at the end, stands for itself, together with the "%".
///
/// The local zone is the one that is passed, which stays the caller's, or else that of the process:
/// TZ is read when it is first needed, and not again before `rereadLocalZone`. All functions may be
/// called from any thread on values that no other thread writes.
class KESTREL_API DateTime {
public:
    /// The value of `secs` for the invalid value: above every valid one, and small enough that its
    /// difference from any other fits.
    static constexpr std::int64_t invalidSecsCM = std::int64_t{1} << 62;

    /// The zone whose clock a text shows.
    enum class Zone { Utc, Local };

    /// The invalid value.
    constexpr DateTime() noexcept = default;
    /// The instant `secs` seconds after 1970-01-01 00:00:00 UTC (before it when negative); the
    /// invalid value when that is outside the years 0001 to 9999.
    explicit constexpr DateTime(std::int64_t secs) noexcept
        : secs_(secs >= minSecsCM && secs <= maxSecsCM ? secs : invalidSecsCM) {}

    /// 0001-01-01 00:00:00 UTC.
    static constexpr DateTime min() noexcept { return DateTime(minSecsCM); }
    /// 9999-12-31 23:59:59 UTC.
    static constexpr DateTime max() noexcept { return DateTime(maxSecsCM); }
    /// The current instant, truncated to whole seconds.
    static DateTime now() noexcept;

    /// Seconds since 1970-01-01 00:00:00 UTC; `invalidSecsCM` for the invalid value.
    constexpr std::int64_t secs() const noexcept { return secs_; }
    constexpr bool isValid() const noexcept { return secs_ < invalidSecsCM; }

    /// Orders by instant. The invalid value equals itself and comes after every other.
    friend constexpr auto operator<=>(const DateTime&, const DateTime&) noexcept = default;

    /// Move the date by `years`, `months` or `days` of the UTC calendar and keep the time of day.
    /// If the month reached has no such day, its last day is used: 31 January plus one month is the
    /// last of February. False, with nothing changed, for the invalid value and when the result
    /// would be outside the years 0001 to 9999.
    bool addYears(std::int64_t years) noexcept;
    bool addMonths(std::int64_t months) noexcept;
    bool addDays(std::int64_t days) noexcept;

    /// Moves the clock of the local zone by the given amounts, like `fromLocalSecs` of
    /// `toLocalSecs` plus the sum. When that local time occurs twice, takes the one with the
    /// present offset from UTC, so that moving by nothing changes nothing. False, with nothing
    /// changed, for the invalid value and when the result would be outside the years 0001 to 9999.
    bool addLocalTime(std::int64_t hours, std::int64_t minutes, std::int64_t seconds,
                      const TimeZone& local) noexcept;
    bool addLocalTime(std::int64_t hours, std::int64_t minutes, std::int64_t seconds) noexcept;

    /// The clock of the local zone as if it were UTC: `secs` plus the zone's offset at this instant
    /// (up to a day outside the range of `secs`). `invalidSecsCM` for the invalid value.
    std::int64_t toLocalSecs(const TimeZone& local) const noexcept;
    std::int64_t toLocalSecs() const noexcept;
    /// The instant at which the clock of the local zone shows `localSecs`, counted as by
    /// `toLocalSecs`. Of a time that occurs twice, when clocks are set back, the first one is
    /// taken. A time that is skipped, when clocks are set forward, is moved on by the length of the
    /// gap (02:30 becomes 03:30). The invalid value when the instant is out of range.
    static DateTime fromLocalSecs(std::int64_t localSecs, const TimeZone& local) noexcept;
    static DateTime fromLocalSecs(std::int64_t localSecs) noexcept;
    /// Follows a change of TZ, and calls `tzset`. No other thread may use dates meanwhile.
    static void rereadLocalZone() noexcept;

    /// The instant that `text` names: a day as "YYYY-MM-DD", followed by nothing for its beginning
    /// or by "T" or a blank and a time; or "YYYYMMDD" or "YYYYMMDDHHMMSS". A time is "HH:MM:SS" or
    /// "HH:MM", and after it "Z" for UTC or an offset from UTC: "+hh:mm", "+hhmm" or "+hh", or the
    /// same with "-"; without them it is in UTC. Seconds may have a fraction after a point or a
    /// comma, which is cut off. The invalid value for any other text, even if it differs by a
    /// single blank, and for dates and times that do not exist.
    static DateTime parse(std::string_view text) noexcept;

    /// The instant that `text` names by the directives in `pattern` (see the class); the inverse of
    /// `format` with the same pattern if that holds enough to determine the instant.
    ///
    /// White space in `pattern` fits any run of white space, also none. Numbers may have fewer
    /// digits than their width. Names may be in full or short, in any case of letters. %z also
    /// takes "Z", "+hh:mm" and "+hh". %Z takes "UTC", "GMT", "Z" and the names of the local zone;
    /// without a %z or %Z the text is in UTC. Parts of the date that are not in `pattern` are those
    /// of 1970-01-01 00:00:00; a %y is of 1969 to 2068 if there is no %C.
    ///
    /// The invalid value when `text` as a whole does not fit, when the date does not exist or is
    /// out of range, when parts contradict each other (a wrong weekday), and when `pattern` has no
    /// directive that says anything about the date.
    static DateTime parse(std::string_view text, std::string_view pattern,
                          const TimeZone& local) noexcept;
    static DateTime parse(std::string_view text, std::string_view pattern) noexcept;

    /// Called now and then with the number of further bytes read. May throw to give up.
    using Progress = void (*)(std::size_t bytes);
    /// The same for texts of any length. `progress` is called after every 65,536 bytes of `pattern`
    /// and of white space; its exceptions pass through.
    static DateTime parse(std::string_view text, std::string_view pattern, const TimeZone& local,
                          Progress progress);

    /// Replaces `out` by "YYYY-MM-DD HH:MM:SS" in UTC; by "INVALID" for the invalid value.
    /// Allocates only when the capacity of `out` is too small.
    void format(String& out) const;

    /// Replaces `out` by `pattern` with its directives (see the class) filled in by the clock of
    /// `zone`; by "INVALID" for the invalid value. `out` must not be the text that `pattern` views.
    /// At most 13 bytes for each byte of `pattern`, besides names of zones; allocates only when the
    /// capacity of `out` is too small.
    void format(String& out, std::string_view pattern, const TimeZone& zone) const;
    void format(String& out, std::string_view pattern, Zone zone) const;

    /// The first `size` bytes of `pattern`, at least two, or one less so that no directive is cut
    /// in two: the text for a long pattern is that for its front followed by that for the rest.
    static std::string_view patternFront(std::string_view pattern, std::size_t size) noexcept;

private:
    // The zone of the process; UTC when there is no memory to look it up.
    static const TimeZone& localZone() noexcept;
    // `format` by the clock of `zone`, or of UTC when that is null.
    void print(String& out, std::string_view pattern, const TimeZone* zone) const;

    static constexpr std::int64_t minSecsCM = -62135596800;
    static constexpr std::int64_t maxSecsCM = 253402300799;

    std::int64_t secs_ = invalidSecsCM;
};

/// The invalid date.
inline constexpr DateTime INVALID_DATETIME;

}  // namespace FND

/// The invalid value of the Date type.
inline constexpr FND::DateTime FND_INVALID_DATETIME;
