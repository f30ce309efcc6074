#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fsm/PatternList.h"

namespace FSM {

/// A deterministic automaton as it comes out of the subset construction. State 0 is the start.
struct RawAutomaton {
    static constexpr std::uint32_t noStateCM = ~std::uint32_t{0};

    std::array<std::uint8_t, 256> classOf;
    unsigned classCount = 0;
    std::vector<std::uint32_t> next;               // stateCount * classCount targets or noStateCM
    std::vector<std::uint32_t> acceptedLists;      // of each state, the index of its list
    std::vector<std::vector<std::int32_t>> lists;  // path numbers, ascending; the first is empty

    std::size_t stateCount() const { return acceptedLists.size(); }
    /// Whether a pattern, its negation left out, matches "".
    bool acceptsEmpty() const { return acceptedLists[0] != 0; }
};

/// Builds the deterministic automaton of `count` patterns from `first` on; negation is left to the
/// caller. Subset construction over byte classes, with hashed sets of states; no recursion. False
/// if the automaton would have more than `stateLimit` states, or if its sets of states get out of
/// all proportion to that limit; `raw` is empty then. Throws std::bad_alloc.
bool determinise(const Pattern* first, std::size_t count, std::size_t stateLimit,
                 RawAutomaton& raw);

/// How many of the `count` patterns from `first` on, taken in order, fit into one automaton of at
/// most `stateLimit` states.
std::size_t patternsThatFit(const Pattern* first, std::size_t count, std::size_t stateLimit);

}  // namespace FSM
