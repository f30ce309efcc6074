#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "fnd/String.h"

namespace FND {

/// From the instant `begin` on, in seconds since 1970-01-01 UTC, the clocks of a zone are ahead of
/// UTC by `offset` seconds, less than two days, and their time is called `name`.
struct ZonePeriod {
    std::int64_t begin = 0;
    std::int32_t offset = 0;
    String name;
};

/// The rule by which a zone sets its clocks every year, in the form of the variable TZ:
/// "CET-1CEST,M3.5.0,M10.5.0/3". Immutable.
class ZoneRule {
public:
    /// The rule that `text` gives; nothing for any other text. Summer time without dates uses the
    /// dates of the United States.
    static std::optional<ZoneRule> parse(std::string_view text);

    /// Standard time; its `begin` has no meaning.
    const ZonePeriod& standard() const { return standard_; }
    /// Whether clocks are changed at all.
    bool hasSummer() const { return hasSummer_; }
    /// Appends the two changes of `year`, the earlier one first.
    void appendChanges(int year, std::vector<ZonePeriod>& periods) const;

private:
    /// A time of day in each year.
    struct Moment {
        enum class Kind { Weekday, DayOfYear, DayOfCommonYear };

        std::int64_t secsIn(int year) const noexcept;

        Kind kind = Kind::Weekday;
        int month = 1;
        int week = 1;  // 5 is the last
        int day = 0;   // 0 is Sunday; or the day of the year, from 0, or from 1 without leap days
        std::int64_t secs = 0;  // of the clock as it is before the change
    };
    class Reader;

    ZonePeriod standard_;
    ZonePeriod summer_;
    bool hasSummer_ = false;
    Moment summerBegin_;
    Moment summerEnd_;
};

}  // namespace FND
