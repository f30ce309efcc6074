#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <span>

#include "fsm/store/Account.h"

namespace FSM {

/// Looks for places in a text at which three bytes may stand that matter, many places at a time.
/// What matters is given as a few products of three sets of bytes; some places pass by chance.
class WindowScan {
public:
    /// Bytes that may stand at each of three places in a row.
    using Product = std::array<std::bitset<256>, 3>;
    static constexpr std::size_t productsCM = 8;
    static constexpr std::ptrdiff_t widthCM = 3;

    /// How many places are looked at together: none, 16 or 64.
    enum class Width { None, Narrow, Wide };
    /// The most that this processor has instructions for.
    static Width mostWidth() { return mostWidthS; }
    /// A text with fewer bytes is too short to be looked at.
    static std::ptrdiff_t leastSize(Width width = mostWidthS) {
        return width == Width::Wide ? widthCM : 16 + widthCM - 1;
    }

    /// Any number of products; those alike share one of `productsCM`.
    explicit WindowScan(const Vector<Product>& products);

    /// About the part of all windows of three of these bytes that pass.
    double density(std::span<const unsigned char> bytes) const;

    /// The first place from `text` on that passes, or that stands two bytes before a NUL, unless
    /// `takesNul`, or two bytes before `end`. Without a width, or with a NUL in the first two
    /// bytes: `text`. `widthCM` bytes begin at `text`, and the last `leastSize(width)` ones before
    /// `end` may be read.
    const unsigned char* skip(const unsigned char* text, const unsigned char* end, bool takesNul,
                              Width width = mostWidthS) const;

private:
    static const Width mostWidthS;

    // For each half of a byte at each place, a bit for each product.
    alignas(16) unsigned char low_[3][16] = {};
    alignas(16) unsigned char high_[3][16] = {};
};

}  // namespace FSM
