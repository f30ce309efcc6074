#include <array>
#include <charconv>
#include <cstring>
#include <limits>

#include "fnd/DateTime.h"
#include "fnd/date/Calendar.h"
#include "fnd/date/DateDirectives.h"

namespace FND {
namespace {

constexpr std::string_view invalidTextS = "INVALID";

/// "000102...99"
constexpr auto digitPairsS = [] {
    std::array<char, 200> pairs{};
    for (std::size_t i = 0; i < 100; ++i) {
        pairs[2 * i] = static_cast<char>('0' + i / 10);
        pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return pairs;
}();

/// Writes `value`, of at most two digits, in two.
char* writePair(char* at, int value) {
    std::memcpy(at, &digitPairsS[2 * static_cast<std::size_t>(value)], 2);
    return at + 2;
}

/// Writes `value`, of at most four digits, in four.
char* writeYear(char* at, int value) { return writePair(writePair(at, value / 100), value % 100); }

/// Writes a number of the calendar, at most 10000, in `width` digits, or more if it needs more;
/// `fill` stands before a single digit of two.
char* writeNumber(char* at, int value, int width, char fill) {
    if (width == 2 && value < 100) {
        writePair(at, value);
        if (value < 10) *at = fill;
        return at + 2;
    }
    if (width == 4 && value < 10000) return writeYear(at, value);
    if (width == 3) {
        *at = static_cast<char>('0' + value / 100);
        return writePair(at + 1, value % 100);
    }
    return std::to_chars(at, at + std::numeric_limits<int>::digits10, value).ptr;
}

/// Fills in a pattern. Collects pieces before appending them to the text.
class Printer {
public:
    /// `zone` is null for UTC.
    Printer(String& out, std::int64_t secs, const TimeZone* zone)
        : out_(out),
          secs_(secs),
          zone_(zone),
          offset_(zone != nullptr ? zone->offsetAt(secs) : 0),
          calendar_(secs + offset_) {}

    void print(std::string_view pattern) {
        char* at = buffer_ + used_;  // in a register, while it handles bytes and numbers
        for (std::size_t i = 0; i < pattern.size(); ++i) {
            if (at > buffer_ + sizeof buffer_ - maxPieceCM) {
                used_ = static_cast<std::size_t>(at - buffer_);
                flush();
                at = buffer_;
            }
            const DateDirective* const directive = DateDirectives::directiveAt(pattern, i);
            if (!directive) {
                *at++ = pattern[i];
                continue;
            }
            ++i;
            if (directive->kind == DateDirective::Number) {
                at =
                    writeNumber(at, calendar_[directive->field], directive->width, directive->fill);
                continue;
            }
            used_ = static_cast<std::size_t>(at - buffer_);
            print(*directive);
            at = buffer_ + used_;
        }
        used_ = static_cast<std::size_t>(at - buffer_);
    }

    void flush() {
        out_.append(buffer_, used_);
        used_ = 0;
    }

private:
    void print(const DateDirective& directive) {
        switch (directive.kind) {
            case DateDirective::Number:
                break;  // `print` has done them
            case DateDirective::Name: {
                const auto& name = directive.names[calendar_[directive.field] - directive.low];
                put(directive.width > 0 ? name.substr(0, directive.width) : name);
                break;
            }
            case DateDirective::Pattern:
                print(directive.pattern);
                break;
            case DateDirective::EpochSecs:
                putNumber(secs_);
                break;
            case DateDirective::ZoneOffset:
                putOffset();
                break;
            case DateDirective::ZoneName:
                put(zone_ != nullptr ? zone_->nameAt(secs_) : "UTC");
                break;
        }
    }

    /// Makes room for a piece of up to `maxPieceCM` bytes.
    void makeRoom() {
        if (used_ > sizeof buffer_ - maxPieceCM) flush();
    }

    void put(std::string_view text) {
        makeRoom();
        if (text.size() > maxPieceCM) {
            flush();
            out_.append(text);
            return;
        }
        std::memcpy(buffer_ + used_, text.data(), text.size());
        used_ += text.size();
    }

    void putNumber(std::int64_t value) {
        makeRoom();
        char* const at = buffer_ + used_;
        used_ += static_cast<std::size_t>(std::to_chars(at, at + maxPieceCM, value).ptr - at);
    }

    void putOffset() {
        const auto offset = static_cast<int>(offset_ < 0 ? -offset_ : offset_);
        const bool hasSeconds = offset % 60 != 0;
        char text[sizeof "+hh:mm:ss"];
        char* at = text;
        *at++ = offset_ < 0 ? '-' : '+';
        at = writePair(at, offset / 3600);
        if (hasSeconds) *at++ = ':';
        at = writePair(at, offset / 60 % 60);
        if (hasSeconds) {
            *at++ = ':';
            at = writePair(at, offset % 60);
        }
        put({text, static_cast<std::size_t>(at - text)});
    }

    static constexpr std::size_t maxPieceCM = 32;

    String& out_;
    const std::int64_t secs_;
    const TimeZone* const zone_;
    const std::int64_t offset_;
    const Calendar calendar_;
    std::size_t used_ = 0;
    char buffer_[8 * maxPieceCM];
};

}  // namespace

void DateTime::format(String& out) const {
    if (!isValid()) {
        out.assign(invalidTextS);
        return;
    }
    const Calendar calendar(secs_);
    char text[sizeof "YYYY-MM-DD HH:MM:SS" - 1];
    char* at = writeYear(text, calendar[Field::Year]);
    *at++ = '-';
    at = writePair(at, calendar[Field::Month]);
    *at++ = '-';
    at = writePair(at, calendar[Field::Day]);
    *at++ = ' ';
    at = writePair(at, calendar[Field::Hour]);
    *at++ = ':';
    at = writePair(at, calendar[Field::Minute]);
    *at++ = ':';
    writePair(at, calendar[Field::Second]);
    out.assign(text, sizeof text);
}

void DateTime::format(String& out, std::string_view pattern, Zone zone) const {
    print(out, pattern, zone == Zone::Utc ? nullptr : &localZone());
}

void DateTime::format(String& out, std::string_view pattern, const TimeZone& zone) const {
    print(out, pattern, &zone);
}

void DateTime::print(String& out, std::string_view pattern, const TimeZone* zone) const {
    if (!isValid()) {
        out.assign(invalidTextS);
        return;
    }
    out.clear();
    Printer printer(out, secs_, zone);
    printer.print(pattern);
    printer.flush();
}

}  // namespace FND
