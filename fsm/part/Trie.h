#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "fsm/store/Flat.h"

namespace FSM {

class Archive;

/// Whether the processor counts the bits of a word in one instruction.
bool canCountBits();

/// Distinct texts as a tree of their bytes. A record of 16 bytes says which bytes continue and
/// where the records of the longer texts begin; these lie together, so a step counts bits. Where
/// only one text is left, its rest is kept as it is. With more than 63 different bytes, a byte
/// takes two steps of half a byte.
class Trie {
public:
    struct Record {
        std::uint64_t mask = 0;  // of steps that continue; of a leaf: up to 8 bytes, or their place
        std::uint32_t child = 0;  // the first record below; of a leaf: leafCM and the length left
        std::uint32_t text = 0;   // the number of the text that ends here or in this leaf, plus 1
    };
    static constexpr std::uint32_t leafCM = std::uint32_t{1} << 31;
    static constexpr std::size_t inlineCM = 8;
    static constexpr std::uint8_t noClassCM = 63;

    /// A place in the tree that bytes lead to.
    struct Place {
        std::uint32_t record;
        std::uint32_t depth;  // bytes before it
    };

    Trie() = default;
    /// `texts` is sorted by unsigned bytes; a text's number is its place there.
    explicit Trie(const Vector<std::string_view>& texts);

    const Record* records() const { return records_.data(); }
    bool usesHalves() const { return usesHalves_ != 0; }
    const std::uint8_t* classOf() const { return classOf_.data(); }
    const unsigned char* rest(const Record& leaf) const {
        return (leaf.child & ~leafCM) <= inlineCM
                   ? reinterpret_cast<const unsigned char*>(&leaf.mask)
                   : rests_.data() + leaf.mask;
    }

    /// The place that the first `depth` bytes of `text` lead to, or the leaf before it. One of the
    /// texts begins with these bytes.
    Place find(std::string_view text, std::size_t depth) const;

    /// One step from `record` on `byte`; null if no text continues this way. `record` is no leaf.
    template <bool halves>
    [[gnu::always_inline]] const Record* step(const Record* record, unsigned char byte) const {
        if constexpr (halves) {
            record = stepBit(record, std::uint64_t{1} << (byte >> 4));
            return record == nullptr ? nullptr
                                     : stepBit(record, std::uint64_t{65536} << (byte & 15));
        } else {
            return stepBit(record, std::uint64_t{1} << classOf_[byte]);
        }
    }

    /// Calls visit(text, end) for each text that `[begin, end)` starts with, the shorter ones
    /// first, from `record` on, which the bytes before `begin` led to.
    template <bool halves, class Visitor>
    [[gnu::always_inline]] void visitFrom(std::uint32_t record, const unsigned char* begin,
                                          const unsigned char* end, Visitor visit) const {
        const Record* at = &records_[record];
        for (;;) {
            if ((at->child & leafCM) != 0) {
                const std::size_t length = at->child & ~leafCM;
                if (static_cast<std::size_t>(end - begin) >= length &&
                    std::memcmp(begin, rest(*at), length) == 0) {
                    visit(at->text - 1, begin + length);
                }
                return;
            }
            if (at->text != 0) visit(at->text - 1, begin);
            if (begin == end) return;
            at = step<halves>(at, *begin++);
            if (at == nullptr) return;
        }
    }

    /// Writes or reads the tree. False if it is not sound, with numbers of texts below `textCount`.
    bool archive(Archive& archive, std::size_t textCount);
    /// Whether a place that was read is one from which texts may go on.
    bool isSound(const Place& place) const;

    std::size_t recordCount() const { return records_.size(); }
    std::size_t bytes() const { return records_.bytes() + rests_.bytes(); }

private:
    class Maker;

    [[gnu::always_inline]] const Record* stepBit(const Record* record, std::uint64_t bit) const {
        if ((record->mask & bit) == 0) return nullptr;
        return &records_[record->child +
                         static_cast<unsigned>(__builtin_popcountll(record->mask & (bit - 1)))];
    }

    bool isSound(std::size_t textCount) const;

    std::uint32_t usesHalves_ = 0;
    std::array<std::uint8_t, 256> classOf_{};
    Flat<Record> records_;
    Flat<unsigned char> rests_;
};

}  // namespace FSM
