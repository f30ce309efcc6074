#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <span>

#include "fsm/store/Account.h"

namespace FSM {

/// Looks for places in a text at which three bytes may stand that matter, 16 places at a time. What
/// matters is given as a few products of three sets of bytes; some places pass by chance.
class WindowScan {
public:
    /// Bytes that may stand at each of three places in a row.
    using Product = std::array<std::bitset<256>, 3>;
    static constexpr std::size_t productsCM = 8;
    /// A text with fewer bytes is not looked at, nor are places with fewer than a window after
    /// them.
    static constexpr std::ptrdiff_t leastCM = 18;
    static constexpr std::ptrdiff_t widthCM = 3;

    /// Any number of products; those alike share one of `productsCM`.
    explicit WindowScan(const Vector<Product>& products);

    /// About the part of all windows of three of these bytes that pass.
    double density(std::span<const unsigned char> bytes) const;

    /// The first place from `text` on that passes, or that stands two bytes before a NUL, unless
    /// `takesNul`, or two bytes before `end`. Without instructions for it, or with a NUL in the
    /// first two bytes: `text`. At least the last `leastCM` bytes before `end` may be read, and
    /// `widthCM` of them begin at `text`.
    const unsigned char* skip(const unsigned char* text, const unsigned char* end,
                              bool takesNul) const;

private:
    // For each half of a byte at each place, a bit for each product.
    alignas(16) unsigned char low_[3][16] = {};
    alignas(16) unsigned char high_[3][16] = {};
};

}  // namespace FSM
