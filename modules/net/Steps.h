#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "modules/Support.h"
#include "modules/net/Net.h"

namespace Modules::NetModule {

/// Where a value begins to hold, up to the next one.
template <class Key>
struct Step {
    Key first;
    std::uint32_t value;
};

constexpr std::uint32_t noValueS = UINT32_MAX;

// The place of the first of these steps that begins after `key`.
template <class Key>
std::size_t placeAfter(const List<Step<Key>>& steps, std::size_t begin, std::size_t end, Key key) {
    const Step<Key>* const first = steps.data();
    return static_cast<std::size_t>(
        std::upper_bound(first + begin, first + end, key,
                         [](Key a, const Step<Key>& b) { return a < b.first; }) -
        first);
}

/// Sorted steps of long keys. The upper halves of the keys are looked up in a tree of nodes that
/// fit a line of the cache, most of which stay in the processor's caches. The lower halves matter
/// only where several steps have the same upper one.
class LongSteps {
public:
    explicit LongSteps(const List<Step<Number>>& steps) {
        List<std::uint64_t> uppers;
        uppers.room(steps.size());
        firsts_.room(steps.size());
        values_.room(steps.size());
        for (const Step<Number>& step : steps) {
            work(64);
            uppers.push_back(upperOf(step.first));
            firsts_.push_back(static_cast<std::uint64_t>(step.first));
            values_.push_back(step.value);
        }
        if (uppers.empty()) return;
        levels_.push_back(std::move(uppers));
        while (levels_.back().size() > nodeCM) {
            const List<std::uint64_t>& below = levels_.back();
            List<std::uint64_t> above;
            for (std::size_t end = nodeCM; end < below.size(); end += nodeCM) {
                work(64);
                above.add(below[end - 1]);
            }
            levels_.push_back(std::move(above));
        }
    }

    std::uint32_t find(Number key) const {
        const std::uint64_t upper = upperOf(key);
        const auto lower = static_cast<std::uint64_t>(key);
        // How many keys have a lesser upper half.
        std::size_t place = 0;
        for (std::size_t level = levels_.size(); level-- > 0;) {
            const List<std::uint64_t>& keys = levels_[level];
            const std::size_t begin = place * nodeCM;
            const std::size_t end = std::min(begin + nodeCM, keys.size());
            place = begin;
            for (std::size_t i = begin; i < end; ++i) place += keys[i] < upper ? 1 : 0;
        }
        if (levels_.empty()) return noValueS;
        const List<std::uint64_t>& uppers = levels_[0];
        const auto isBefore = [&](std::size_t at) {
            return at < uppers.size() && uppers[at] == upper && firsts_[at] <= lower;
        };
        if (isBefore(place)) {
            // The steps with the same upper half may be many.
            std::size_t width = 1;
            while (isBefore(place + width)) width *= 2;
            std::size_t end = place + width;
            place += width / 2;
            while (end - place > 1) {
                const std::size_t middle = place + (end - place) / 2;
                (isBefore(middle) ? place : end) = middle;
            }
            ++place;
        }
        return place > 0 ? values_[place - 1] : noValueS;
    }

private:
    static constexpr std::size_t nodeCM = 8;

    static std::uint64_t upperOf(Number key) { return static_cast<std::uint64_t>(key >> 64); }

    // The upper halves; each level after the first has the last key of each node of the one before.
    std::vector<List<std::uint64_t>> levels_;
    List<std::uint64_t> firsts_;  // the lower halves
    List<std::uint32_t> values_;
};

/// Sorted steps of short keys, few enough that most of them fit the processor's caches: the first
/// bits of a key say where to look.
class FewShortSteps {
public:
    explicit FewShortSteps(const List<Step<std::uint32_t>>& steps) {
        constexpr int most = 20;
        constexpr std::size_t usual = 4;
        while (bits_ < most && usual << bits_ < steps.size()) ++bits_;
        const std::size_t heads = std::size_t{1} << bits_;
        guide_.room(heads + 1);
        steps_.room(steps.size());
        for (const auto& step : steps) {
            work(32);
            while (guide_.size() <= headOf(step.first)) guide_.push_back(place());
            steps_.push_back(step);
        }
        while (guide_.size() <= heads) {
            work(8);
            guide_.push_back(place());
        }
    }

    std::uint32_t find(std::uint32_t key) const {
        constexpr std::size_t few = 16;
        const std::size_t head = headOf(key);
        const std::size_t end = guide_[head + 1];
        std::size_t place = guide_[head];
        if (end - place > few) {
            place = placeAfter(steps_, place, end, key);
        } else {
            // Counting them all waits for nothing.
            std::size_t count = 0;
            for (std::size_t i = place; i < end; ++i) count += steps_[i].first <= key ? 1 : 0;
            place += count;
        }
        return place > 0 ? steps_[place - 1].value : noValueS;
    }

private:
    std::size_t headOf(std::uint32_t key) const { return key >> (32 - bits_); }
    std::uint32_t place() const { return static_cast<std::uint32_t>(steps_.size()); }

    int bits_ = 1;
    List<std::uint32_t> guide_;  // the first step of each head
    List<Step<std::uint32_t>> steps_;
};

/// Sorted steps of short keys, as many as there may be. The keys with the same first 16 bits are an
/// area. It is cut in so many equal parts that the steps of each fit a line of the cache: a key is
/// looked up by waiting for the memory once, and not at all where there is no value far and wide.
/// Only where very many steps lie together they are searched.
class ManyShortSteps {
public:
    explicit ManyShortSteps(const List<Step<std::uint32_t>>& steps) {
        areas_.room(areaCountCM);
        std::uint32_t before = noValueS;
        std::size_t at = 0;
        for (std::uint32_t area = 0; area < areaCountCM; ++area) {
            std::size_t end = at;
            while (end < steps.size() && steps[end].first >> areaBitsCM == area) ++end;
            work(64 + 64 * (end - at));
            addArea(before, std::span(steps).subspan(at, end - at));
            if (end > at) before = steps[end - 1].value;
            at = end;
        }
    }

    std::uint32_t find(std::uint32_t key) const {
        const Area& area = areas_[key >> areaBitsCM];
        const std::uint32_t low = lowOf(key);
        if ((area.empty >> (low >> emptyBitsCM) & 1) != 0) return noValueS;
        const Line& line = lines_[area.place / 32 + (low >> area.place % 32)];
        if (line.isLong) [[unlikely]] {
            const std::size_t first = line.values[1];
            const std::size_t place = placeAfter(steps_, first, first + line.values[2], key);
            return place > first ? steps_[place - 1].value : line.values[0];
        }
        std::size_t count = 0;
        for (const std::uint16_t first : line.firsts) count += first <= low ? 1 : 0;
        return line.values[count];
    }

private:
    static constexpr int areaBitsCM = 16;
    static constexpr std::uint32_t areaCountCM = 1U << areaBitsCM;
    static constexpr int emptyBitsCM = 11;  // 32 parts of an area

    using Some = std::span<const Step<std::uint32_t>>;

    // As small as can be: most areas stay in the processor's caches.
    struct Area {
        std::uint32_t place;  // of its first line, by 32, and the shift of a key for the others
        std::uint32_t empty;  // a bit for each part, whether it has no value at all
    };
    // The lower halves of the keys at which its steps begin, and the value before each of them and
    // after the last. The rest are the highest key and the last value. Where the steps do not fit:
    // the value before, and the place and number of the steps.
    struct alignas(64) Line {
        static constexpr std::size_t mostCM = 9;
        bool isLong;
        std::array<std::uint16_t, mostCM> firsts;
        std::array<std::uint32_t, mostCM + 1> values;
    };

    static std::uint32_t lowOf(std::uint32_t key) { return key & (areaCountCM - 1); }

    void addArea(std::uint32_t before, Some steps) {
        // Not more lines than steps.
        int shift = areaBitsCM;
        while (mostInLine(steps, shift) > Line::mostCM &&
               std::size_t{2} << (areaBitsCM - shift) < steps.size()) {
            --shift;
        }
        constexpr std::size_t most = std::size_t{1} << 27;
        if (lines_.size() + areaCountCM > most) refuse("more ranges than", long(most));
        const auto line = static_cast<std::uint32_t>(lines_.size());
        areas_.push_back(
            {line * 32 + static_cast<std::uint32_t>(shift), emptyParts(before, steps)});
        std::size_t at = 0;
        for (std::uint32_t i = 0; i < 1U << (areaBitsCM - shift); ++i) {
            std::size_t end = at;
            while (end < steps.size() && lowOf(steps[end].first) >> shift == i) ++end;
            lines_.add(lineOf(before, steps.subspan(at, end - at)));
            if (end > at) before = steps[end - 1].value;
            at = end;
        }
    }
    static std::size_t mostInLine(Some steps, int shift) {
        std::size_t most = 0;
        for (std::size_t at = 0, end = 0; at < steps.size(); at = end) {
            const std::uint32_t line = steps[at].first >> shift;
            while (end < steps.size() && steps[end].first >> shift == line) ++end;
            most = std::max(most, end - at);
        }
        return most;
    }
    static std::uint32_t emptyParts(std::uint32_t before, Some steps) {
        std::uint32_t empty = 0;
        std::size_t at = 0;
        for (std::uint32_t part = 0; part < 32; ++part) {
            bool isEmpty = before == noValueS;
            for (; at < steps.size() && lowOf(steps[at].first) >> emptyBitsCM == part; ++at) {
                before = steps[at].value;
                // A value that ends where the part begins is none of it.
                const bool isAtBegin = (steps[at].first & ((1U << emptyBitsCM) - 1)) == 0;
                isEmpty = (isEmpty || isAtBegin) && before == noValueS;
            }
            if (isEmpty) empty |= 1U << part;
        }
        return empty;
    }
    Line lineOf(std::uint32_t before, Some steps) {
        Line line{steps.size() > Line::mostCM, {}, {before}};
        if (line.isLong) {
            line.values[1] = static_cast<std::uint32_t>(steps_.size());
            line.values[2] = static_cast<std::uint32_t>(steps.size());
            for (const auto& step : steps) steps_.add(step);
            return line;
        }
        for (std::size_t i = 0; i < Line::mostCM; ++i) {
            const bool isStep = i < steps.size();
            line.firsts[i] = isStep ? static_cast<std::uint16_t>(lowOf(steps[i].first)) : 0xFFFF;
            line.values[i + 1] = isStep ? steps[i].value : line.values[i];
        }
        return line;
    }

    List<Area> areas_;
    List<Line> lines_;
    List<Step<std::uint32_t>> steps_;  // those of lines that have too many
};

/// Sorted steps of short keys.
class ShortSteps {
public:
    explicit ShortSteps(const List<Step<std::uint32_t>>& steps) {
        constexpr std::size_t many = std::size_t{1} << 16;
        if (steps.size() <= many) {
            few_.emplace(steps);
        } else {
            many_.emplace(steps);
        }
    }

    std::uint32_t find(std::uint32_t key) const {
        return few_ ? few_->find(key) : many_->find(key);
    }

private:
    std::optional<FewShortSteps> few_;
    std::optional<ManyShortSteps> many_;
};

/// The steps that ranges make. `ranges` are by their first addresses, those that hold others before
/// these.
template <class Key, class Ranges>
List<Step<Key>> stepsOf(const Ranges& ranges) {
    List<Step<Key>> steps;
    struct Open {
        Key last;
        std::uint32_t value;
    };
    List<Open> open;
    const auto begin = [&](Key first, std::uint32_t value) {
        if (!steps.empty() && steps.back().first == first) steps.pop_back();
        if (value != (steps.empty() ? noValueS : steps.back().value)) steps.add({first, value});
    };
    const auto closeBefore = [&](Key next, bool isAll) {
        while (!open.empty() && (isAll || open.back().last < next)) {
            const Key last = open.back().last;
            open.pop_back();
            const bool isEnd = last == static_cast<Key>(~Key{0});
            if (!isEnd) begin(last + 1, open.empty() ? noValueS : open.back().value);
        }
    };
    for (const auto& range : ranges) {
        work(64);
        closeBefore(static_cast<Key>(range.first), false);
        begin(static_cast<Key>(range.first), range.value);
        open.add({static_cast<Key>(range.last), range.value});
    }
    closeBefore(0, true);
    return steps;
}

}  // namespace Modules::NetModule
