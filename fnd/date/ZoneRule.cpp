#include "fnd/date/ZoneRule.h"

#include "fnd/date/Bytes.h"
#include "fnd/date/Calendar.h"

namespace FND {

/// Reads the parts of a rule from the front of its text; each function gives false when the part is
/// missing.
class ZoneRule::Reader {
public:
    explicit Reader(std::string_view text) : text_(text) {}

    bool atEnd() const { return text_.empty(); }
    bool startsWith(char c) const { return text_.starts_with(c); }

    bool skip(char c) {
        if (!startsWith(c)) return false;
        text_.remove_prefix(1);
        return true;
    }

    /// Letters, or letters, digits and signs between angle brackets; at least three.
    bool readName(String& name) {
        constexpr std::size_t shortest = 3;
        constexpr std::size_t longest = 30;
        const bool isQuoted = skip('<');
        std::size_t length = 0;
        while (length < text_.size() && (isLetter(text_[length]) || (isQuoted && isMark(length)))) {
            ++length;
        }
        if (length < shortest || length > longest) return false;
        name = text_.substr(0, length);
        text_.remove_prefix(length);
        return !isQuoted || skip('>');
    }

    bool readNumber(int least, int most, int& number) {
        int value = 0;
        std::size_t length = 0;
        for (; length < text_.size() && isDigit(text_[length]) && value <= most; ++length) {
            value = value * 10 + (text_[length] - '0');
        }
        text_.remove_prefix(length);
        number = value;
        return length > 0 && value >= least && value <= most;
    }

    /// "h", "h:mm" or "h:mm:ss" with or without a sign, up to `mostHours`, in seconds.
    bool readTime(int mostHours, std::int64_t& secs) {
        const bool isNegative = skip('-');
        if (!isNegative) skip('+');
        int hours = 0;
        int minutes = 0;
        int seconds = 0;
        if (!readNumber(0, mostHours, hours)) return false;
        if (skip(':')) {
            if (!readNumber(0, 59, minutes)) return false;
            if (skip(':') && !readNumber(0, 59, seconds)) return false;
        }
        secs = hours * SecondsPerHour + minutes * SecondsPerMinute + seconds;
        if (isNegative) secs = -secs;
        return true;
    }

    /// An offset, written as the amount to add to the clock's time to get UTC.
    bool readOffset(std::int32_t& offset) {
        constexpr int mostHours = 24;
        std::int64_t secs = 0;
        if (!readTime(mostHours, secs)) return false;
        offset = static_cast<std::int32_t>(-secs);
        return true;
    }

    bool readMoment(Moment& moment) {
        constexpr int mostHours = 167;
        if (skip('M')) {
            moment.kind = Moment::Kind::Weekday;
            if (!readNumber(1, 12, moment.month) || !skip('.') || !readNumber(1, 5, moment.week) ||
                !skip('.') || !readNumber(0, 6, moment.day)) {
                return false;
            }
        } else if (skip('J')) {
            moment.kind = Moment::Kind::DayOfCommonYear;
            if (!readNumber(1, 365, moment.day)) return false;
        } else {
            moment.kind = Moment::Kind::DayOfYear;
            if (!readNumber(0, 365, moment.day)) return false;
        }
        moment.secs = 2 * SecondsPerHour;
        return !skip('/') || readTime(mostHours, moment.secs);
    }

private:
    bool isMark(std::size_t at) const {
        return isDigit(text_[at]) || text_[at] == '+' || text_[at] == '-';
    }

    std::string_view text_;
};

std::int64_t ZoneRule::Moment::secsIn(int year) const noexcept {
    std::int64_t number = dayNumberOf(year, 1, 1) + day;
    if (kind == Kind::DayOfCommonYear) {
        constexpr int lastOfFebruary = 59;
        if (day <= lastOfFebruary || !dateExists(year, 2, 29)) --number;
    } else if (kind == Kind::Weekday) {
        const std::int64_t first = dayNumberOf(year, month, 1);
        int date =
            1 + (day - weekdayOf(first) + DaysPerWeek) % DaysPerWeek + (week - 1) * DaysPerWeek;
        if (!dateExists(year, month, date)) date -= DaysPerWeek;
        number = first + date - 1;
    }
    return number * SecondsPerDay + secs;
}

std::optional<ZoneRule> ZoneRule::parse(std::string_view text) {
    ZoneRule rule;
    Reader reader(text);
    if (!reader.readName(rule.standard_.name) || !reader.readOffset(rule.standard_.offset)) {
        return std::nullopt;
    }
    if (reader.atEnd()) return rule;
    rule.hasSummer_ = true;
    if (!reader.readName(rule.summer_.name)) return std::nullopt;
    rule.summer_.offset = rule.standard_.offset + static_cast<std::int32_t>(SecondsPerHour);
    if (!reader.atEnd() && !reader.startsWith(',') && !reader.readOffset(rule.summer_.offset)) {
        return std::nullopt;
    }
    if (reader.atEnd()) reader = Reader(",M3.2.0,M11.1.0");
    if (!reader.skip(',') || !reader.readMoment(rule.summerBegin_) || !reader.skip(',') ||
        !reader.readMoment(rule.summerEnd_) || !reader.atEnd()) {
        return std::nullopt;
    }
    return rule;
}

void ZoneRule::appendChanges(int year, std::vector<ZonePeriod>& periods) const {
    ZonePeriod summer = summer_;
    summer.begin = summerBegin_.secsIn(year) - standard_.offset;
    ZonePeriod standard = standard_;
    standard.begin = summerEnd_.secsIn(year) - summer_.offset;
    if (summer.begin > standard.begin) std::swap(summer, standard);
    periods.push_back(std::move(summer));
    periods.push_back(std::move(standard));
}

}  // namespace FND
