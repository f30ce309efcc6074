#include "modules/text/StraightPattern.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>
#include <utility>

#include "modules/Support.h"

namespace Modules::TextModule {

namespace {

constexpr std::size_t endlessS = std::numeric_limits<std::size_t>::max();
constexpr std::string_view signsS = "\\.[](){}*+?^$|";

bool isDigit(unsigned char byte) { return byte >= '0' && byte <= '9'; }
bool isWord(unsigned char byte) {
    const unsigned char lower = byte | 32;
    return isDigit(byte) || (lower >= 'a' && lower <= 'z') || byte == '_';
}
bool isBlank(unsigned char byte) { return byte != 0 && std::strchr("\t\n\f\r ", byte) != nullptr; }

std::size_t indexOf(char byte) { return static_cast<unsigned char>(byte); }

// The first place from `at` on whose byte does not satisfy `holds`, or `end`. Can be stopped.
template <class Holds>
const char* passed(const char* at, const char* end, const Holds& holds) {
    constexpr std::ptrdiff_t piece = 64 * 1024;
    for (;;) {
        const char* const stop = at + std::min(end - at, piece);
        while (at < stop && holds(*at)) ++at;
        if (at < stop || at == end) return at;
        work(piece);
    }
}

}  // namespace

/// Reads a pattern from left to right; gives up where it goes beyond what is matched straight on.
class StraightPattern::Reader {
public:
    Reader(std::string_view pattern, StraightPattern& made) : rest_(pattern), made_(made) {}

    bool read() {
        if (take('^')) made_.isAtStart_ = true;
        while (!rest_.empty() && rest_ != "$") {
            if (made_.items_.size() > mostItemsCM || !readPart()) return false;
        }
        made_.isAtEnd_ = !rest_.empty();
        made_.items_.push_back({{}, 0, 0, std::move(marks_)});
        return open_.empty();
    }

private:
    static constexpr std::size_t mostItemsCM = 64;

    bool take(char byte) {
        if (rest_.empty() || rest_[0] != byte) return false;
        rest_.remove_prefix(1);
        return true;
    }

    bool readPart() {
        if (take('(')) return readOpening();
        if (take(')')) return readClosing();
        Item item;
        if (!readClass(item.fits) || !readCount(item)) return false;
        item.before = std::move(marks_);
        marks_.clear();
        made_.items_.push_back(std::move(item));
        return true;
    }

    bool readOpening() {
        if (++groups_ == mostGroupsCM || rest_.starts_with('?')) return false;
        open_.push_back(groups_);
        marks_.push_back(mark(groups_, false));
        return true;
    }
    bool readClosing() {
        if (open_.empty()) return false;
        marks_.push_back(mark(open_.back(), true));
        open_.pop_back();
        // Groups that are repeated would have to begin anew.
        return rest_.empty() || std::strchr("*+?{", rest_[0]) == nullptr;
    }

    bool readClass(Class& fits) {
        if (take('[')) return readSet(fits);
        if (take('\\')) return readEscape(fits, true);
        const char byte = rest_[0];
        rest_.remove_prefix(1);
        if (byte == '.') {
            fits[indexOf('\n')] = Fits::Yes;
            negate(fits);
            return true;
        }
        if (indexOf(byte) > 127 || signsS.find(byte) != std::string_view::npos) return false;
        fits[indexOf(byte)] = Fits::Yes;
        return true;
    }

    // What follows a backslash; the classes by a capital only where `takesNegated`.
    bool readEscape(Class& fits, bool takesNegated) {
        if (rest_.empty()) return false;
        const char byte = rest_[0];
        rest_.remove_prefix(1);
        const char lower = static_cast<char>(byte | 32);
        if (lower == 'd' || lower == 'w' || lower == 's') {
            for (std::size_t i = 0; i < 128; ++i) {
                const auto other = static_cast<unsigned char>(i);
                const bool isIn = lower == 'd'   ? isDigit(other)
                                  : lower == 'w' ? isWord(other)
                                                 : isBlank(other);
                if (isIn) fits[i] = Fits::Yes;
            }
            if (byte != lower) negate(fits);
            return byte == lower || takesNegated;
        }
        const bool isPlain =
            indexOf(byte) > 32 && indexOf(byte) < 127 && !isWord(static_cast<unsigned char>(byte));
        if (byte == 't') {
            fits[indexOf('\t')] = Fits::Yes;
        } else if (byte == 'n') {
            fits[indexOf('\n')] = Fits::Yes;
        } else if (isPlain) {
            fits[indexOf(byte)] = Fits::Yes;
        }
        return isPlain || byte == 't' || byte == 'n';
    }

    bool readSet(Class& fits) {
        const bool isNegated = take('^');
        if (rest_.starts_with(']')) return false;
        while (!take(']')) {
            if (rest_.empty() || rest_[0] == '[') return false;
            if (take('\\')) {
                if (!readEscape(fits, false) || rest_.starts_with('-')) return false;
                continue;
            }
            const std::size_t first = indexOf(rest_[0]);
            rest_.remove_prefix(1);
            std::size_t last = first;
            if (rest_.size() > 1 && rest_[0] == '-' && rest_[1] != ']') {
                last = indexOf(rest_[1]);
                if (std::strchr("\\[", rest_[1]) != nullptr) return false;
                rest_.remove_prefix(2);
            }
            if (first > last || last > 127) return false;
            std::fill(&fits[first], &fits[last] + 1, Fits::Yes);
        }
        if (isNegated) negate(fits);
        return true;
    }

    // Whether a byte above 127 is a part of a character, and so fits, is not looked at here.
    static void negate(Class& fits) {
        for (std::size_t i = 0; i < fits.size(); ++i) {
            fits[i] = i > 127 ? Fits::Unknown : fits[i] == Fits::Yes ? Fits::No : Fits::Yes;
        }
    }

    bool readCount(Item& item) {
        if (take('*')) {
            item.least = 0;
            item.most = endlessS;
        } else if (take('+')) {
            item.most = endlessS;
        } else if (take('?')) {
            item.least = 0;
        } else if (take('{')) {
            if (!readNumber(item.least)) return false;
            item.most = item.least;
            if (take(',')) {
                item.most = endlessS;
                if (!rest_.starts_with('}') && !readNumber(item.most)) return false;
            }
            if (!take('}') || item.most < item.least) return false;
        }
        return rest_.empty() || std::strchr("*+?{", rest_[0]) == nullptr;
    }
    bool readNumber(std::size_t& number) {
        constexpr std::size_t most = 1000;  // the library's
        const auto read = std::from_chars(rest_.data(), rest_.data() + rest_.size(), number);
        rest_.remove_prefix(static_cast<std::size_t>(read.ptr - rest_.data()));
        return read.ec == std::errc() && number <= most;
    }

    std::string_view rest_;
    StraightPattern& made_;
    std::size_t groups_ = 0;
    std::vector<std::size_t> open_;
    std::vector<std::uint8_t> marks_;
};

std::optional<StraightPattern> StraightPattern::read(std::string_view pattern) {
    StraightPattern made;
    if (!Reader(pattern, made).read() || !made.needsNoChoice()) return std::nullopt;
    made.findStart();
    return made;
}

// Whether no item of a varying number of bytes can take a byte that what follows could begin with.
bool StraightPattern::needsNoChoice() const {
    for (std::size_t i = 0; i < items_.size(); ++i) {
        const Item& item = items_[i];
        if (item.least == item.most) continue;
        for (std::size_t k = i + 1; k < items_.size(); ++k) {
            for (std::size_t byte = 0; byte < 256; ++byte) {
                const bool isInBoth =
                    item.fits[byte] != Fits::No && items_[k].fits[byte] != Fits::No;
                if (isInBoth) return false;
            }
            if (items_[k].least > 0) break;
        }
    }
    return true;
}

void StraightPattern::findStart() {
    for (const Item& item : items_) {
        const bool isLast = &item == &items_.back();
        for (std::size_t byte = 0; byte < 256; ++byte) {
            if (isLast || item.fits[byte] != Fits::No) starts_[byte] = Fits::Yes;
        }
        if (item.least > 0) break;
    }
    auto item = items_.begin();
    for (;; ++item) {
        const auto only = std::find(item->fits.begin(), item->fits.end(), Fits::Yes);
        const bool isByte = item->least == 1 && item->most == 1 &&
                            std::count(item->fits.begin(), item->fits.end(), Fits::No) == 255;
        if (!isByte) break;
        for (const std::uint8_t mark : item->before) prefixMarks_.push_back({prefix_.size(), mark});
        prefix_ += static_cast<char>(only - item->fits.begin());
    }
    items_.erase(items_.begin(), item);
}

// The first place from `from` on where a match may begin; at most the end of the text.
std::size_t StraightPattern::nextStart(std::string_view text, std::size_t from) const {
    constexpr std::size_t piece = 64 * 1024;
    while (!prefix_.empty() && from < text.size()) {
        const std::size_t place = text.substr(from, piece + prefix_.size() - 1).find(prefix_);
        if (place != std::string_view::npos) return from + place;
        if (text.size() - from <= piece) return text.size();
        from += piece;
        work(piece);
    }
    const char* const end = text.data() + text.size();
    const auto isNone = [&](char byte) { return starts_[indexOf(byte)] == Fits::No; };
    return static_cast<std::size_t>(passed(text.data() + from, end, isNone) - text.data());
}

StraightPattern::Outcome StraightPattern::matchAt(std::string_view text, std::size_t start,
                                                  Groups& groups, std::size_t& end,
                                                  std::size_t& run) const {
    for (const PrefixMark& mark : prefixMarks_) {
        setMark(groups, mark.mark, text.data() + start + mark.offset);
    }
    const char* at = text.data() + start + prefix_.size();
    const char* const last = text.data() + text.size();
    run = end = start;
    for (const Item& item : items_) {
        for (const std::uint8_t mark : item.before) setMark(groups, mark, at);
        const char* const begin = at;
        const char* const most =
            item.most < static_cast<std::size_t>(last - at) ? at + item.most : last;
        at = passed(at, most, [&](char byte) { return item.fits[indexOf(byte)] == Fits::Yes; });
        end = static_cast<std::size_t>(at - text.data());
        if (&item == items_.data()) run = end;
        if (at < most && item.fits[indexOf(*at)] == Fits::Unknown) return Outcome::Unknown;
        if (static_cast<std::size_t>(at - begin) < item.least) return Outcome::None;
    }
    if (isAtEnd_ && at != last) return Outcome::None;
    groups[0] = text.substr(start, end - start);
    return Outcome::Found;
}

StraightPattern::Outcome StraightPattern::find(std::string_view text, std::size_t from,
                                               Groups& groups, std::size_t& weight) const {
    constexpr std::size_t many = 4096;
    if (isAtStart_ && (from > 0 || !text.starts_with(prefix_))) return Outcome::None;
    const bool isFirstEndless =
        prefix_.empty() && items_.front().most == endlessS && items_.front().least <= 1;
    const std::size_t most = 4 * (text.size() - from) + 64;
    std::size_t looked = 0;
    for (std::size_t start = from;; ++start) {
        std::size_t end = start;
        if (!isAtStart_) start = nextStart(text, start);
        // Where every match begins with a byte, none begins at the end.
        const bool needsByte = !prefix_.empty() || starts_[0] == Fits::No;
        if (start == text.size() && needsByte) return Outcome::None;
        std::size_t run = start;
        const std::size_t before = end;
        const Outcome outcome = matchAt(text, start, groups, end, run);
        weight += end - before + 16;
        if (weight > many) work(std::exchange(weight, 0));
        if (outcome != Outcome::None) return outcome;
        if (isAtStart_ || start == text.size()) return Outcome::None;
        looked += end - start;
        if (looked > most) return Outcome::Unknown;
        // From within the same run, the rest would fail in the same place.
        if (isFirstEndless && run > start) start = run - 1;
    }
}

}  // namespace Modules::TextModule
