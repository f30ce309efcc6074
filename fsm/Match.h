#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>

namespace FSM {

/// A match of a pattern within a text: the bytes from `begin` to before `end`.
struct Match {
    /// `begin` of a match of which only the end is known.
    static constexpr std::size_t unknownCM = ~std::size_t{0};

    std::size_t begin;
    std::size_t end;
    std::int32_t path;

    friend auto operator<=>(const Match&, const Match&) = default;
};

/// Which matches a search gives. Matches are never empty.
enum class Find {
    /// Of all matches those that begin first, of these the longest, and so on after its end. If
    /// several patterns match these bytes, the one with the lowest number.
    LeftmostLongest,
    /// For each place at which a match ends, each pattern with such a match, once, in the order of
    /// the
    /// ends. `begin` is known if all patterns are words without operators.
    AllEnds
};

}  // namespace FSM
