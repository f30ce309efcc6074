#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <vector>

namespace FSM {

using ByteSet = std::bitset<256>;

/// The coarsest partition of the 256 bytes such that each of a list of sets is a union of classes.
/// The classes are numbered from 0 by their first bytes.
class ByteClasses {
public:
    explicit ByteClasses(const std::vector<ByteSet>& sets);

    unsigned count() const { return count_; }
    unsigned classOf(unsigned char byte) const { return classOf_[byte]; }
    const std::array<std::uint8_t, 256>& map() const { return classOf_; }
    /// The classes that `set`, one of the list, is the union of.
    std::vector<std::uint8_t> classesOf(const ByteSet& set) const;

private:
    std::array<std::uint8_t, 256> classOf_{};
    unsigned count_ = 1;
};

}  // namespace FSM
