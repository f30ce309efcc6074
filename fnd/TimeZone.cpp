#include "fnd/DateTime.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fnd/date/Calendar.h"
#include "fnd/date/ZoneFile.h"
#include "fnd/date/ZoneRule.h"

namespace FND {
namespace {

constexpr const char* databaseS = "/usr/share/zoneinfo";
constexpr const char* localFileS = "/etc/localtime";
constexpr std::string_view utcS = "UTC";

constexpr int cycleYearsS = 400;
constexpr std::int64_t cycleSecsS = 146097 * SecondsPerDay;
// Zones that follow one rule in the end have the same periods, whatever year their files end with.
constexpr int cycleYearS = 2101;
constexpr std::int64_t everS = std::numeric_limits<std::int64_t>::min();
constexpr int stretchShiftS = 22;  // seven weeks: most hold one change at most
constexpr std::size_t mostPeriodsS = 30'000;

std::int64_t startOf(int year) { return dayNumberOf(year, 1, 1) * SecondsPerDay; }

// Whether `name` can be that of a file within the database, judging by the name.
bool isDatabaseName(std::string_view name) {
    if (name.empty() || name.front() == '/') return false;
    if (name.find('\0') != std::string_view::npos) return false;
    for (std::size_t begin = 0; begin <= name.size();) {
        const std::size_t end = std::min(name.find('/', begin), name.size());
        if (name.substr(begin, end - begin) == "..") return false;
        begin = end + 1;
    }
    return true;
}

// The content of the regular file `path`; nothing when it cannot be read, or when a zone's file
// cannot have its size.
std::optional<String> contentOf(const String& path) {
    constexpr std::size_t most = 256 * 1024;
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (file < 0) return std::nullopt;
    struct Closer {
        ~Closer() { ::close(number); }
        int number;
    } const closer{file};
    struct stat status {};
    if (::fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    String content(most, '\0');
    std::size_t size = 0;
    ssize_t got = 0;
    while (size < most && (got = ::read(file, content.data() + size, most - size)) > 0) {
        size += static_cast<std::size_t>(got);
    }
    if (got < 0 || size == most) return std::nullopt;
    content.resize(size);
    return content;
}

}  // namespace

std::shared_ptr<const TimeZone> TimeZone::find(std::string_view name) {
    if (name == utcS) return std::make_shared<TimeZone>();
    if (isDatabaseName(name)) {
        const char* const folder = secure_getenv("TZDIR");
        String path = folder != nullptr ? folder : databaseS;
        path.append("/").append(name);
        if (auto zone = fromFile(path)) return zone;
    }
    const std::optional<ZoneRule> rule = ZoneRule::parse(name);
    return rule ? make({}, &*rule) : nullptr;
}

std::shared_ptr<const TimeZone> TimeZone::fromFile(const String& path) {
    const std::optional<String> content = contentOf(path);
    if (!content) return nullptr;
    std::optional<ZoneFile> file = readZoneFile(*content);
    if (!file) return nullptr;
    const std::optional<ZoneRule> rule = ZoneRule::parse(file->rule);
    if (!rule && !file->rule.empty()) return nullptr;
    // A rule that changes clocks, without periods before it, has always held.
    if (rule && rule->hasSummer() && file->periods.size() == 1) file->periods.clear();
    return make(std::move(file->periods), rule ? &*rule : nullptr);
}

std::shared_ptr<const TimeZone> TimeZone::fromEnvironment() {
    const char* const variable = secure_getenv("TZ");
    if (variable == nullptr) return fromFile(localFileS);
    std::string_view name = variable;
    if (name.starts_with(':')) name.remove_prefix(1);
    return name.starts_with('/') ? fromFile(String(name)) : find(name);
}

std::atomic<const TimeZone*> TimeZone::localCM{nullptr};

const TimeZone& TimeZone::findLocal() {
    const std::shared_ptr<const TimeZone> found = fromEnvironment();
    auto zone = found ? std::make_unique<const TimeZone>(*found) : std::make_unique<TimeZone>();
    // Another thread may have been faster.
    const TimeZone* present = nullptr;
    if (!localCM.compare_exchange_strong(present, zone.get(), std::memory_order_acq_rel)) {
        return *present;
    }
    return *zone.release();
}

void TimeZone::rereadLocal() noexcept { delete localCM.exchange(nullptr); }

std::shared_ptr<const TimeZone> TimeZone::make(std::vector<ZonePeriod> periods,
                                               const ZoneRule* rule) {
    auto zone = std::make_shared<TimeZone>();
    if (rule != nullptr && rule->hasSummer()) {
        const bool isEver = periods.empty();
        const std::int64_t known =
            isEver ? everS : std::clamp(periods.back().begin, startOf(1), startOf(9000));
        const int lastYear = isEver ? cycleYearS : Calendar(known)[Field::Year];
        const int year = std::max(cycleYearS, lastYear + 2);
        zone->cycle_ = startOf(year);
        zone->foldsFrom_ = isEver ? everS : zone->cycle_ + cycleSecsS;
        for (int i = isEver ? year - 2 : lastYear - 1; i < year + cycleYearsS; ++i) {
            std::vector<ZonePeriod> changes;
            rule->appendChanges(i, changes);
            for (ZonePeriod& change : changes) {
                if (change.begin > known) periods.push_back(std::move(change));
            }
        }
        std::erase_if(periods, [&](const ZonePeriod& period) {
            return period.begin >= zone->cycle_ + cycleSecsS;
        });
    } else if (periods.empty() && rule != nullptr) {
        periods.push_back(rule->standard());
    }
    return zone->take(periods) ? zone : nullptr;
}

// Periods that end before the years that count, or that change nothing, are left out.
bool TimeZone::take(const std::vector<ZonePeriod>& periods) {
    const std::int64_t first = foldsFrom_ == everS ? cycle_ : startOf(1) - 2 * SecondsPerDay;
    const std::int64_t last = startOf(10'000) + 2 * SecondsPerDay;
    for (const ZonePeriod& period : periods) {
        if (period.begin > last) break;
        while (!periods_.empty() &&
               (periods_.back().begin >= period.begin || period.begin <= first)) {
            periods_.pop_back();
        }
        const bool isSame = !periods_.empty() && periods_.back().offset == period.offset &&
                            nameOf(periods_.back()) == period.name;
        if (isSame) continue;
        String name = period.name;
        name += '\0';
        std::size_t place = names_.find(name);
        if (place == String::npos) {
            place = names_.size();
            names_ += name;
        }
        if (names_.size() > std::numeric_limits<std::uint16_t>::max()) return false;
        const std::int64_t begin = periods_.empty() ? everS : period.begin;
        periods_.push_back({begin, period.offset, static_cast<std::uint16_t>(place),
                            static_cast<std::uint16_t>(period.name.size())});
    }
    if (periods_.size() > mostPeriodsS) return false;
    if (periods_.size() < 2) {
        const bool isUtc =
            periods_.size() == 1 && periods_[0].offset == 0 && nameOf(periods_[0]) == utcS;
        if (isUtc) periods_.clear();
        return true;
    }
    std::size_t at = 1;
    constexpr std::int64_t stretch = std::int64_t{1} << stretchShiftS;
    for (std::int64_t start = periods_[1].begin; start <= periods_.back().begin; start += stretch) {
        while (at + 1 < periods_.size() && periods_[at + 1].begin <= start) ++at;
        index_.push_back(static_cast<std::uint16_t>(at));
    }
    return true;
}

const TimeZone::Period& TimeZone::periodAt(std::int64_t secs) const noexcept {
    if (secs >= foldsFrom_) {
        const std::int64_t beyond = (secs - cycle_) % cycleSecsS;
        secs = cycle_ + (beyond < 0 ? beyond + cycleSecsS : beyond);
    }
    if (periods_.size() == 1 || secs < periods_[1].begin) return periods_.front();
    const auto stretch = static_cast<std::size_t>((secs - periods_[1].begin) >> stretchShiftS);
    std::size_t at = index_[std::min(stretch, index_.size() - 1)];
    while (at + 1 < periods_.size() && periods_[at + 1].begin <= secs) ++at;
    return periods_[at];
}

std::string_view TimeZone::nameAt(std::int64_t secs) const noexcept {
    if (periods_.empty()) return utcS;
    return nameOf(periodAt(secs));
}

TimeZone::Instants TimeZone::instantsOf(std::int64_t localSecs) const noexcept {
    const std::int64_t offsetBefore = offsetAt(localSecs - SecondsPerDay);
    const std::int64_t offsetAfter = offsetAt(localSecs + SecondsPerDay);
    Instants instants{localSecs - offsetBefore, localSecs - offsetAfter, true, true};
    if (offsetBefore != offsetAfter) {
        instants.beforeIsReal = offsetAt(instants.before) == offsetBefore;
        instants.afterIsReal = offsetAt(instants.after) == offsetAfter;
    }
    return instants;
}

String TimeZone::digest() const {
    // FNV-1a of 64 bits.
    std::uint64_t hash = 0xCBF29CE484222325;
    const auto addByte = [&](unsigned char byte) { hash = (hash ^ byte) * 0x100000001B3; };
    const auto addNumber = [&](std::int64_t number) {
        for (int i = 0; i < 8; ++i) {
            addByte(static_cast<unsigned char>(static_cast<std::uint64_t>(number) >> (8 * i)));
        }
    };
    addNumber(foldsFrom_);
    for (const Period& period : periods_) {
        addNumber(period.begin);
        addNumber(period.offset);
        for (std::size_t i = 0; i <= period.nameSize; ++i) {
            addByte(static_cast<unsigned char>(names_[period.name + i]));
        }
    }
    char text[17];
    std::snprintf(text, sizeof text, "%016" PRIx64, hash);
    return text;
}

}  // namespace FND
