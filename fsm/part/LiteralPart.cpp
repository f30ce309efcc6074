#include "fsm/part/LiteralPart.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "fsm/store/Archive.h"
#include "fsm/table/ByteScan.h"

namespace FSM {

namespace {

// The first 8 bytes as a number that sorts like them.
std::uint64_t keyOf(std::string_view word) {
    std::uint64_t key = 0;
    std::memcpy(&key, word.data(), std::min(word.size(), sizeof key));
    return __builtin_bswap64(key);
}

void sortByWord(Vector<Literal>& literals) {
    struct Entry {
        std::uint64_t key;
        std::uint32_t index;
    };
    Vector<Entry> order;
    order.reserve(literals.size());
    for (std::uint32_t i = 0; i < literals.size(); ++i)
        order.push_back({keyOf(literals[i].word), i});
    countWork(literals.size() * std::bit_width(literals.size()) * 2);
    std::sort(order.begin(), order.end(), [&](const Entry& a, const Entry& b) {
        if (a.key != b.key) return a.key < b.key;
        const Literal& left = literals[a.index];
        const Literal& right = literals[b.index];
        if (const int sign = left.word.compare(right.word)) return sign < 0;
        if (left.isOpen != right.isOpen) return right.isOpen;
        return left.path < right.path;
    });
    Vector<Literal> sorted;
    sorted.reserve(literals.size());
    for (const Entry& entry : order) sorted.push_back(literals[entry.index]);
    literals = std::move(sorted);
}

}  // namespace

LiteralPart::LiteralPart(Vector<Literal>& literals, const PatternOptions& options)
    : takesNul_(options.takesNul ? 1 : 0) {
    sortByWord(literals);
    NumberLists::Maker lists;
    Vector<std::string_view> words;
    Vector<End> ends;
    Vector<std::int32_t> numbers;
    for (std::size_t i = 0; i < literals.size();) {
        words.push_back(literals[i].word);
        ends.emplace_back();
        for (const bool isOpen : {false, true}) {
            numbers.clear();
            for (; i < literals.size() && literals[i].word == words.back() &&
                   literals[i].isOpen == isOpen;
                 ++i) {
                if (numbers.empty() || numbers.back() != literals[i].path) {
                    numbers.push_back(literals[i].path);
                }
            }
            (isOpen ? ends.back().open : ends.back().whole) = lists.add(numbers);
        }
        longest_ = std::max<std::uint64_t>(longest_, words.back().size());
        if (ends.back().open != 0) hasOpen_ = 1;
    }
    linkPrefixes(words, ends);
    trie_ = Trie(words);
    ends_ = Flat<End>(std::move(ends));
    lists_ = NumberLists(lists.take());
}

bool LiteralPart::archive(Archive& archive) {
    archive.all(longest_, hasOpen_, takesNul_, ends_, lists_.values());
    if (!archive.isGood() || !trie_.archive(archive, ends_.size())) return false;
    if (!archive.isReading()) return true;
    for (std::size_t i = 0; i < ends_.size(); ++i) {
        const End& end = ends_[i];
        if (!lists_.isSound(end.whole) || !lists_.isSound(end.open) || end.before > i) return false;
    }
    return longest_ < ~std::uint64_t{0};
}

void LiteralPart::linkPrefixes(const Vector<std::string_view>& words, Vector<End>& ends) const {
    Vector<std::uint32_t> prefixes;  // of the current word, with open ends
    for (std::uint32_t i = 0; i < words.size(); ++i) {
        while (!prefixes.empty() && !words[i].starts_with(words[prefixes.back()])) {
            prefixes.pop_back();
        }
        if (!prefixes.empty() &&
            words[i].find('\n', words[prefixes.back()].size()) == std::string_view::npos) {
            ends[i].before = prefixes.back() + 1;
        }
        if (ends[i].open != 0) prefixes.push_back(i);
    }
}

void LiteralPart::addOpen(std::uint32_t end, Found& found) const {
    for (; end != 0; end = ends_[end - 1].before) lists_.add(ends_[end - 1].open, found);
}

// Goes on from the record of a walk. False where it ends.
template <bool halves>
[[gnu::always_inline]] inline bool LiteralPart::step(Walk& walk) const {
    const Trie::Record* const record = walk.record;
    if ((record->child & Trie::leafCM) != 0) {
        const unsigned char* rest = trie_.rest(*record);
        const unsigned char* const restEnd = rest + (record->child & ~Trie::leafCM);
        while (rest != restEnd && walk.at != walk.end && *rest == *walk.at) {
            if (*walk.at == '\n') walk.open = 0;
            ++rest;
            ++walk.at;
        }
        walk.stop = rest == restEnd ? Stop::Word : Stop::InWord;
        return false;
    }
    if (record->text != 0 && ends_[record->text - 1].open != 0) walk.open = record->text;
    if (isAtEnd(walk)) {
        walk.stop = Stop::Inside;
        return false;
    }
    walk.record = trie_.step<halves>(record, *walk.at);
    if (walk.record == nullptr) {
        walk.stop = Stop::Outside;
        return false;
    }
    if (*walk.at == '\n') walk.open = 0;
    ++walk.at;
    return true;
}

bool LiteralPart::finish(Walk& walk, Found& found) const {
    if (walk.stop == Stop::TooLong) return false;
    const bool isEnd = isAtEnd(walk);
    if (walk.stop == Stop::Word) {
        const End& end = ends_[walk.record->text - 1];
        if (isEnd) lists_.add(end.whole, found);
        if (end.open != 0) walk.open = walk.record->text;
    } else if (walk.stop == Stop::Inside && walk.record->text != 0) {
        lists_.add(ends_[walk.record->text - 1].whole, found);
    }
    // The text goes on where no word does, or ends.
    if (isEnd) {
        addOpen(walk.open, found);
        return true;
    }
    if (walk.open == 0) return false;
    walk.at = lineEnd(walk.at, walk.end, takesNul_ != 0);
    if (walk.at != walk.end && *walk.at == '\n') return false;
    addOpen(walk.open, found);
    return true;
}

template <bool halves>
[[gnu::always_inline]] inline bool LiteralPart::matchOne(std::string_view text,
                                                         Found& found) const {
    Walk walk = begin(text);
    if (walk.stop == Stop::TooLong) return false;
    while (step<halves>(walk)) {
    }
    return finish(walk, found);
}

bool LiteralPart::matchCounting(std::string_view text, Found& found) const {
    return trie_.usesHalves() ? matchOne<true>(text, found) : matchOne<false>(text, found);
}

bool LiteralPart::match(std::string_view text, Found& found) const {
    if (canCountBits()) return matchCounting(text, found);
    return trie_.usesHalves() ? matchOne<true>(text, found) : matchOne<false>(text, found);
}

// The walks take turns, so that each waits for its record while the others go on.
template <bool halves>
[[gnu::always_inline]] inline void LiteralPart::stepAll(std::span<Walk> walks) const {
    std::array<Walk*, togetherCM> open;
    std::size_t count = 0;
    for (Walk& walk : walks) {
        if (walk.stop != Stop::TooLong) open[count++] = &walk;
    }
    while (count > 0) {
        std::size_t left = 0;
        for (std::size_t i = 0; i < count; ++i) {
            Walk& walk = *open[i];
            if (step<halves>(walk)) {
                __builtin_prefetch(walk.record);
                open[left++] = &walk;
            } else if (walk.stop == Stop::Word) {
                __builtin_prefetch(&ends_[walk.record->text - 1]);
            }
        }
        count = left;
    }
}

void LiteralPart::stepAllCounting(std::span<Walk> walks) const {
    trie_.usesHalves() ? stepAll<true>(walks) : stepAll<false>(walks);
}

void LiteralPart::walkTogether(std::span<const std::string_view> texts,
                               std::span<Walk> walks) const {
    for (std::size_t i = 0; i < texts.size(); ++i) walks[i] = begin(texts[i]);
    walks = walks.first(texts.size());
    if (canCountBits()) return stepAllCounting(walks);
    trie_.usesHalves() ? stepAll<true>(walks) : stepAll<false>(walks);
}

}  // namespace FSM
