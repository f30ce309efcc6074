#include "fsm/pattern/CharacterSet.h"

#include <algorithm>
#include <map>

namespace FSM {

namespace {

using Ranges = std::vector<CharacterRange>;

// What lies in `ranges`, from `first` to `last`, less `offset`.
Ranges within(const Ranges& ranges, char32_t first, char32_t last, char32_t offset) {
    Ranges cut;
    for (const auto& [begin, end] : ranges) {
        if (end < first || begin > last) continue;
        cut.emplace_back(std::max(begin, first) - offset, std::min(end, last) - offset);
    }
    return cut;
}

/// Makes the moves for the bytes of characters. Characters that continue alike share states.
class SequenceMaker {
public:
    explicit SequenceMaker(EnginePart& part) : part_(part) { part.checkEndState(); }

    void run(const Ranges& ranges) {
        struct Form {
            char32_t first;
            char32_t last;
            unsigned more;  // bytes after the first one
            unsigned lead;
        };
        constexpr Form forms[] = {{0, 0x7f, 0, 0},
                                  {0x80, 0x7ff, 1, 0xc0},
                                  {0x800, 0xffff, 2, 0xe0},
                                  {0x10000, 0x10ffff, 3, 0xf0}};
        for (const Form& form : forms) {
            lead(*part_.start(), within(ranges, form.first, form.last, 0), form.more, form.lead);
        }
    }

private:
    // Moves from `state` on the first byte of the numbers in `ranges`, which `more` bytes of 6 bits
    // follow; `base` is the byte for 0.
    void lead(NonDetState& state, const Ranges& ranges, unsigned more, unsigned base) {
        if (ranges.empty()) return;
        const unsigned shift = 6 * more;
        for (char32_t block = ranges.front().first >> shift; block <= ranges.back().second >> shift;
             ++block) {
            countWork(8 + ranges.size());
            const char32_t first = block << shift;
            const Ranges rest = within(ranges, first, first + (char32_t{1} << shift) - 1, first);
            if (rest.empty()) continue;
            const auto byte = static_cast<unsigned char>(base + block);
            state.succStates(byte, byte, target(rest, more));
        }
    }

    NonDetState* target(const Ranges& ranges, unsigned bytes) {
        if (bytes == 0) return part_.end();
        NonDetState*& known = states_[{bytes, ranges}];
        if (known == nullptr) {
            known = part_.insertState();
            NonDetState& state = *known;  // the map may change below, but not its elements
            lead(state, ranges, bytes - 1, 0x80);
        }
        return known;
    }

    EnginePart& part_;
    std::map<std::pair<unsigned, Ranges>, NonDetState*> states_;
};

}  // namespace

std::unique_ptr<EnginePart> CharacterSet::part() {
    if (options_.ignoresCase) addOtherCases(ranges_, options_.isUtf8);
    if (!options_.isUtf8) {
        return bytesPart();
    }
    normalise();
    auto part = std::make_unique<EnginePart>(false);
    SequenceMaker(*part).run(ranges_);
    return part;
}

bool CharacterSet::holdsAllOfSeveralBytes() const {
    const auto holds = [&](char32_t first, char32_t last) {
        return std::any_of(ranges_.begin(), ranges_.end(), [&](const CharacterRange& range) {
            return range.first <= first && range.second >= last;
        });
    };
    return options_.isUtf8 && holds(0x80, 0xd7ff) && holds(0xe000, 0x10ffff);
}

std::unique_ptr<EnginePart> CharacterSet::loosePart() const {
    std::bitset<256> bytes;
    for (unsigned byte = 0x80; byte < bytes.size(); ++byte) bytes.set(byte);
    for (const auto& [first, last] : within(ranges_, 0, 0x7f, 0)) {
        for (char32_t byte = first; byte <= last; ++byte) bytes.set(byte);
    }
    return partOf(bytes);
}

std::unique_ptr<EnginePart> CharacterSet::bytesPart() const {
    std::bitset<256> bytes;
    for (const auto& [first, last] : ranges_) {
        for (char32_t byte = first; byte <= last; ++byte) bytes.set(byte);
    }
    if (isNegated_) bytes.flip();
    return partOf(bytes);
}

// Each run of members once, however often the set names them.
std::unique_ptr<EnginePart> CharacterSet::partOf(const std::bitset<256>& bytes) {
    auto part = std::make_unique<EnginePart>(false);
    part->checkEndState();
    for (unsigned first = 0; first < bytes.size(); ++first) {
        if (!bytes[first]) continue;
        unsigned last = first;
        while (last + 1 < bytes.size() && bytes[last + 1]) ++last;
        part->addCharacters(static_cast<unsigned char>(first), static_cast<unsigned char>(last));
        first = last;
    }
    return part;
}

// Brings the ranges into order, each character once and characters only, and negates them.
void CharacterSet::normalise() {
    std::erase_if(ranges_, [](const CharacterRange& range) { return range.second < range.first; });
    std::sort(ranges_.begin(), ranges_.end());
    Ranges joined;
    for (const CharacterRange& range : ranges_) {
        if (!joined.empty() && range.first <= joined.back().second + 1) {
            joined.back().second = std::max(joined.back().second, range.second);
        } else {
            joined.push_back(range);
        }
    }
    if (isNegated_) {
        Ranges others;
        char32_t next = 0;
        for (const CharacterRange& range : joined) {
            if (range.first > next) others.emplace_back(next, range.first - 1);
            next = range.second + 1;
        }
        if (next <= 0x10ffff) others.emplace_back(next, 0x10ffff);
        joined = std::move(others);
    }
    ranges_ = within(joined, 0, 0xd7ff, 0);
    const Ranges above = within(joined, 0xe000, 0x10ffff, 0);
    ranges_.insert(ranges_.end(), above.begin(), above.end());
}

}  // namespace FSM
