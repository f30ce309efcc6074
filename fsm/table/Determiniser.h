#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fsm/pattern/PatternList.h"
#include "fsm/store/Account.h"

namespace FSM {

/// Rows of the same number of numbers, in blocks, so that rows never move.
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

/// The deterministic automaton as the subset construction makes it. State 0 is the start.
struct RawAutomaton {
    static constexpr std::uint32_t noStateCM = ~std::uint32_t{0};

    std::array<std::uint8_t, 256> classOf;
    unsigned classCount = 0;
    RowBlocks next;                                // for each state and class, a state or noStateCM
    Vector<std::uint32_t> acceptedLists;           // for each state, the index of its list
    std::vector<std::vector<std::int32_t>> lists;  // path numbers, ascending; the first is empty
    Charge listsCharge;

    // With tails apart; empty otherwise.
    Vector<std::uint32_t> settledLists;  // for each state, the index of its list
    Vector<bool> isAfterNewline;         // whether the last byte was a newline
    std::uint32_t leftByNewline =
        noStateCM;  // the state of a text that left the automaton this way

    /// Whether a state may be one from which no pattern's end can be reached.
    bool mayHaveDeadEnds = true;

    std::size_t stateCount() const { return acceptedLists.size(); }
    bool hasTailsApart() const { return !settledLists.empty(); }
    /// Whether a pattern, ignoring its negation, matches "".
    bool acceptsEmpty() const { return acceptedLists[0] != 0; }
};

/// What to do with patterns that end in ".*" and therefore, after a match, go on matching to the
/// end of the line. Each such pattern may double the number of states, because a state tells which
/// of them have matched. With tails apart a state only tells which of them matched just now
/// ("settled"), and the walk over the automaton has to remember that until the next newline. Not
/// done for negated patterns, or if no pattern ends this way; `MustBeApart` passes the limit of
/// states then.
enum class Tails { Inside, Apart, MustBeApart };

/// Builds the deterministic automaton of `count` patterns from `first` on; the caller handles
/// negation. Subset construction over byte classes, with hashed sets of states; no recursion. Gives
/// the limit that the automaton would pass, if any; `raw` is empty then. Sets of states that grow
/// out of proportion pass the limit of states. Throws std::bad_alloc and the exceptions of the
/// budget.
Limit determinise(const Pattern* first, std::size_t count, const BuildLimits& limits,
                  RawAutomaton& raw, Tails tails = Tails::Inside);

/// Where a list of patterns that does not fit into one automaton passes a limit.
struct Guilty {
    std::size_t place;  // of a pattern with which those before it do not fit
    Limit passed;
};

/// Of `count` patterns from `first` on that passed the limit `passed`: the first that is guilty. A
/// later one if finding it would take more work than the limit allows, and an earlier one, where
/// the patterns take a good part of the work, if work is what is limited.
Guilty findGuilty(const Pattern* first, std::size_t count, const BuildLimits& limits, Limit passed);

}  // namespace FSM
