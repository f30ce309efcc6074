#include "fsm/part/LiteralPart.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "fsm/ByteScan.h"
#include "fsm/part/Archive.h"

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

template <bool halves>
[[gnu::always_inline]] inline bool LiteralPart::walk(std::string_view text, Found& found) const {
    const auto* at = reinterpret_cast<const unsigned char*>(text.data());
    const auto* const end = at + text.size();
    // A text that is too long for all words has left the automaton, unless a NUL ends it before.
    if (hasOpen_ == 0 && text.size() > longest_ &&
        (takesNul_ != 0 || std::memchr(at, 0, longest_ + 1) == nullptr)) {
        return false;
    }
    const Trie::Record* record = trie_.records();
    std::uint32_t open = 0;  // the last word with an open end, plus 1
    const auto isTextEnd = [&] { return at == end || (*at == 0 && takesNul_ == 0); };
    for (;;) {
        if ((record->child & Trie::leafCM) != 0) {
            const unsigned char* rest = trie_.rest(*record);
            const unsigned char* const restEnd = rest + (record->child & ~Trie::leafCM);
            while (rest != restEnd && at != end && *rest == *at) {
                if (*at == '\n') open = 0;
                ++rest;
                ++at;
            }
            const bool isAtEnd = isTextEnd();
            if (rest == restEnd) {
                if (isAtEnd) lists_.add(ends_[record->text - 1].whole, found);
                if (ends_[record->text - 1].open != 0) open = record->text;
            } else if (isAtEnd) {
                addOpen(open, found);
                return true;
            }
            break;
        }
        if (record->text != 0 && ends_[record->text - 1].open != 0) open = record->text;
        if (isTextEnd()) {
            if (record->text != 0) lists_.add(ends_[record->text - 1].whole, found);
            addOpen(open, found);
            return true;
        }
        record = trie_.step<halves>(record, *at);
        if (record == nullptr) break;
        if (*at == '\n') open = 0;
        ++at;
    }
    // The text goes on where no word does, or ends with a word.
    if (isTextEnd()) {
        addOpen(open, found);
        return true;
    }
    if (open == 0) return false;
    at = lineEnd(at, end, takesNul_ != 0);
    if (at != end && *at == '\n') return false;
    addOpen(open, found);
    return true;
}

bool LiteralPart::walkCounting(std::string_view text, Found& found) const {
    return trie_.usesHalves() ? walk<true>(text, found) : walk<false>(text, found);
}

bool LiteralPart::match(std::string_view text, Found& found) const {
    if (canCountBits()) return walkCounting(text, found);
    return trie_.usesHalves() ? walk<true>(text, found) : walk<false>(text, found);
}

}  // namespace FSM
