#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fsm/Account.h"
#include "fsm/PatternList.h"

namespace FSM {

/// Rows of as many numbers each, in blocks, so that they stay where they are when there are more.
class RowBlocks {
public:
    RowBlocks() = default;
    explicit RowBlocks(std::size_t rowSize);

    /// Adds a row full of `value`.
    std::uint32_t* add(std::uint32_t value);
    std::uint32_t* row(std::size_t index) {
        return &blocks_[index / rowsInBlock_][index % rowsInBlock_ * rowSize_];
    }
    const std::uint32_t* row(std::size_t index) const {
        return const_cast<RowBlocks*>(this)->row(index);
    }

private:
    std::size_t rowSize_ = 0;
    std::size_t rowsInBlock_ = 1;
    std::size_t count_ = 0;
    Vector<Vector<std::uint32_t>> blocks_;
};

/// A deterministic automaton as it comes out of the subset construction. State 0 is the start.
struct RawAutomaton {
    static constexpr std::uint32_t noStateCM = ~std::uint32_t{0};

    std::array<std::uint8_t, 256> classOf;
    unsigned classCount = 0;
    RowBlocks next;                                // of each state and class, a state or noStateCM
    Vector<std::uint32_t> acceptedLists;           // of each state, the index of its list
    std::vector<std::vector<std::int32_t>> lists;  // path numbers, ascending; the first is empty
    Charge listsCharge;

    // With tails apart; empty otherwise.
    Vector<std::uint32_t> settledLists;       // of each state, the index of its list
    Vector<bool> isAfterNewline;              // whether the last byte was a newline
    std::uint32_t leftByNewline = noStateCM;  // the state of having left the automaton so

    std::size_t stateCount() const { return acceptedLists.size(); }
    bool hasTailsApart() const { return !settledLists.empty(); }
    /// Whether a pattern, its negation left out, matches "".
    bool acceptsEmpty() const { return acceptedLists[0] != 0; }
};

/// What to do with patterns that end in ".*" and so, once they have matched, go on matching to the
/// end of the line. Each such pattern may double the number of states, because a state tells which
/// of them have matched. Apart, it does not: a state then only tells which of them matched just now
/// ("settled"), and whoever walks the automaton has to remember that until the next newline. Not
/// done for negated patterns, or if no pattern ends so.
enum class Tails { Inside, Apart };

/// Builds the deterministic automaton of `count` patterns from `first` on; negation is left to the
/// caller. Subset construction over byte classes, with hashed sets of states; no recursion. False
/// if the automaton would have more than `stateLimit` states, or if its sets of states get out of
/// all proportion to that limit; `raw` is empty then. Throws std::bad_alloc and what
/// the budget throws.
bool determinise(const Pattern* first, std::size_t count, std::size_t stateLimit, RawAutomaton& raw,
                 Tails tails = Tails::Inside);

/// How many of the `count` patterns from `first` on, taken in order, fit into one automaton of at
/// most `stateLimit` states. Found with the fewest trials if it is near `guess`.
std::size_t patternsThatFit(const Pattern* first, std::size_t count, std::size_t stateLimit,
                            std::size_t guess = 1);

}  // namespace FSM
