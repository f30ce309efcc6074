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
/// Immutable: any number of threads may use one. An answer takes some nanoseconds, without a lock.
class KESTREL_API TimeZone {
public:
    /// UTC.
    TimeZone() noexcept = default;

    /// The zone `name`: "UTC", one of the system's database, such as "Europe/Berlin", or a rule as
    /// in the variable TZ, such as "CET-1CEST,M3.5.0,M10.5.0/3". Null for any other name. The
    /// database is that of the folder TZDIR, or of /usr/share/zoneinfo. Throws std::bad_alloc.
    static std::shared_ptr<const TimeZone> find(std::string_view name);

    /// The zone of the process: that of TZ, or of /etc/localtime when TZ is not set; UTC when there
    /// is no such zone. It is looked up when it is first asked for and stays that, whatever becomes
    /// of TZ, until `rereadLocal`. Throws std::bad_alloc.
    static const TimeZone& local() {
        const TimeZone* const zone = localCM.load(std::memory_order_acquire);
        return zone != nullptr ? *zone : findLocal();
    }
    /// Forgets the zone of the process, to be looked up anew. No other thread may use it meanwhile.
    static void rereadLocal() noexcept;

    /// What the clock is ahead of UTC at the instant `secs`, in seconds; less than two days.
    std::int64_t offsetAt(std::int64_t secs) const noexcept {
        return periods_.empty() ? 0 : periodAt(secs).offset;
    }
    /// What its time is called then, such as "CET"; holds as long as the zone.
    std::string_view nameAt(std::int64_t secs) const noexcept;

    /// The two instants at which the clock may show one time: by the offset that holds before and
    /// by the one that holds after the change of offset next to it, the same where there is none.
    /// Each is real if the clock does show the time then: both where clocks are set back, neither
    /// where they are set forward.
    struct Instants {
        std::int64_t before;
        std::int64_t after;
        bool beforeIsReal;
        bool afterIsReal;
    };
    /// The instants for a clock of `localSecs`, counted as if it were UTC.
    Instants instantsOf(std::int64_t localSecs) const noexcept;

    /// Tells zones apart by what they answer: 16 hexadecimal digits, which two zones with the same
    /// answers have in common. No seal against forgers.
    String digest() const;

private:
    struct Period {
        std::int64_t begin;
        std::int32_t offset;
        std::uint16_t name;  // in names_
        std::uint16_t nameSize;
    };

    // `periods` are those that are known one by one, the first from ever on; none if `rule` holds
    // from ever on. What follows them goes by `rule`, unless that is null. Null for too many.
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

    std::vector<Period> periods_;  // ascending, the first from ever on; none in UTC
    String names_;
    // For each stretch of time from the second period on the period that it begins in.
    std::vector<std::uint16_t> index_;
    // From the instant `foldsFrom_` on, the answers are those of the 400 years from `cycle_` on,
    // over and over: so long the calendar takes to repeat, weekdays included.
    std::int64_t foldsFrom_ = neverCM;
    std::int64_t cycle_ = 0;
};

}  // namespace FND
