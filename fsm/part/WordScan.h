#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "fsm/part/Trie.h"
#include "fsm/store/Flat.h"

namespace FSM {

class Archive;

/// Finds all places of many words in a text. A bitmap over the first bytes of the words passes over
/// nearly all places where none begins; a hash table of these bytes leads into a tree of the
/// words for the rest.
class WordScan {
public:
    WordScan() = default;
    /// `words` is sorted, each once and none empty; a word's number is its place there.
    explicit WordScan(const Vector<std::string_view>& words);

    /// Calls visit(word, begin, end) for each place of a word that begins from `from` to before
    /// `to`, in the order of their beginnings and, of those, of their ends, until it returns false.
    /// Places count from the beginning of `text`.
    template <class Visitor>
    void scan(std::string_view text, std::size_t from, std::size_t to, Visitor visit) const {
        if (canCountBits()) {
            scanCounting(text, from, to, visit);
        } else {
            scanAny(text, from, to, visit);
        }
    }

    /// Writes or reads it. False if it is not sound, for `wordCount` words.
    bool archive(Archive& archive, std::size_t wordCount);

    std::size_t recordCount() const { return trie_.recordCount(); }
    std::size_t longest() const { return longest_; }
    std::size_t bytes() const { return trie_.bytes() + bitmap_.bytes() + slots_.bytes(); }

private:
    struct Slot {
        std::uint64_t key = 0;  // the first bytes, not 0, as words hold no NUL
        Trie::Place place{};
    };
    static constexpr std::size_t mostKeyBytesCM = 6;

    static std::uint64_t hash(std::uint64_t key) { return key * 0x9e3779b97f4a7c15u; }
    const Slot* slotOf(std::uint64_t key) const {
        for (std::size_t i = hash(key) >> slotShift_;; i = (i + 1) & (slots_.size() - 1)) {
            if (slots_[i].key == key) return &slots_[i];
            if (slots_[i].key == 0) return nullptr;
        }
    }

    template <class Visitor>
    __attribute__((target("popcnt"))) void scanCounting(std::string_view text, std::size_t from,
                                                        std::size_t to, Visitor& visit) const {
        scanBytes(text, from, to, visit);
    }
    template <class Visitor>
    void scanAny(std::string_view text, std::size_t from, std::size_t to, Visitor& visit) const {
        scanBytes(text, from, to, visit);
    }

    template <class Visitor>
    [[gnu::always_inline]] void scanBytes(std::string_view text, std::size_t from, std::size_t to,
                                          Visitor& visit) const {
        if (slots_.empty() || from >= to) return;
        const auto* const begin = reinterpret_cast<const unsigned char*>(text.data());
        const auto* const end = begin + text.size();
        const auto* at = begin + from;
        const std::uint64_t* const bitmap = bitmap_.data();
        const std::uint64_t mask = keyMask_;
        const unsigned shift = bitShift_;
        // Words of the processor, which reach beyond the key.
        const auto* const stop = text.size() < 8 ? at : begin + std::min(to, text.size() - 7);
        while (at < stop) {
            std::uint64_t key;
            std::memcpy(&key, at, sizeof key);
            key &= mask;
            const std::uint64_t bit = hash(key) >> shift;
            if ((bitmap[bit >> 6] >> (bit & 63) & 1) != 0) [[unlikely]] {
                if (!visitAt(begin, at, end, key, visit)) return;
            }
            ++at;
        }
        const auto left = static_cast<std::size_t>(end - at);
        if (left >= 8 || left < keyBytes_) return;
        std::uint64_t last = 0;
        if (text.size() >= 8) {
            std::memcpy(&last, end - 8, sizeof last);
            last >>= 64 - 8 * left;
        } else {
            std::memcpy(&last, at, left);
        }
        const std::size_t most = static_cast<std::size_t>(begin + to - at);
        for (std::size_t i = 0; i < most && i + keyBytes_ <= left; ++i, last >>= 8) {
            const std::uint64_t key = last & mask;
            const std::uint64_t bit = hash(key) >> shift;
            if ((bitmap[bit >> 6] >> (bit & 63) & 1) == 0) [[likely]]
                continue;
            if (!visitAt(begin, at + i, end, key, visit)) return;
        }
    }

    template <class Visitor>
    [[gnu::always_inline]] bool visitAt(const unsigned char* begin, const unsigned char* at,
                                        const unsigned char* end, std::uint64_t key,
                                        Visitor& visit) const {
        const Slot* const slot = slotOf(key);
        if (slot == nullptr) return true;
        bool goesOn = true;
        const auto start = static_cast<std::size_t>(at - begin);
        const auto visitWord = [&](std::uint32_t word, const unsigned char* wordEnd) {
            goesOn = goesOn && visit(word, start, static_cast<std::size_t>(wordEnd - begin));
        };
        if (trie_.usesHalves()) {
            trie_.visitFrom<true>(slot->place.record, at + slot->place.depth, end, visitWord);
        } else {
            trie_.visitFrom<false>(slot->place.record, at + slot->place.depth, end, visitWord);
        }
        return goesOn;
    }

    Trie trie_;
    std::uint64_t keyBytes_ = 0;
    std::uint64_t longest_ = 0;
    std::uint64_t keyMask_ = 0;
    unsigned bitShift_ = 0;
    unsigned slotShift_ = 0;
    Flat<std::uint64_t> bitmap_;
    Flat<Slot> slots_;  // a power of two, at most half of them used
};

}  // namespace FSM
