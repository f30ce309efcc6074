#pragma once

#include <atomic>
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

}  // namespace FND
