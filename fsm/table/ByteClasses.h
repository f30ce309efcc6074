#pragma once

#include <array>
#include <bit>
#include <bitset>
#include <cstdint>
#include <functional>
#include <unordered_map>
#include <utility>

#include "fsm/store/Account.h"
#include "fsm/store/Lists.h"

namespace FSM {

using ByteSet = std::bitset<256>;

/// Calls visit(member) for the members of a set, ascending.
template <class Visitor>
void forMembers(const ByteSet& set, Visitor visit) {
    const auto words = std::bit_cast<std::array<std::uint64_t, 4>>(set);
    for (unsigned i = 0; i < words.size(); ++i) {
        for (std::uint64_t bits = words[i]; bits != 0; bits &= bits - 1) {
            visit(i * 64 + static_cast<unsigned>(std::countr_zero(bits)));
        }
    }
}

struct ByteSetHash {
    std::size_t operator()(const ByteSet& bytes) const {
        const auto words = std::bit_cast<std::array<std::uint32_t, 8>>(bytes);
        return hashOf(words.data(), words.data() + words.size());
    }
};

/// Numbers of distinct sets of bytes.
template <class Number>
using ByteSetNumbers = std::unordered_map<ByteSet, Number, ByteSetHash, std::equal_to<>,
                                          CountedAllocator<std::pair<const ByteSet, Number>>>;

/// The coarsest partition of the 256 bytes such that each of a list of sets is a union of classes.
/// The classes are numbered from 0 by their first bytes.
class ByteClasses {
public:
    explicit ByteClasses(const Vector<ByteSet>& sets);

    unsigned count() const { return count_; }
    unsigned classOf(unsigned char byte) const { return classOf_[byte]; }
    const std::array<std::uint8_t, 256>& map() const { return classOf_; }
    /// The classes whose union is `set`, one of the sets in the list.
    Vector<std::uint8_t> classesOf(const ByteSet& set) const;

private:
    std::array<std::uint8_t, 256> classOf_{};
    unsigned count_ = 1;
};

}  // namespace FSM
