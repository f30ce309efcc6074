#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "fsm/pattern/PatternList.h"
#include "fsm/store/Lists.h"
#include "fsm/table/ByteClasses.h"

namespace FSM {

/// The non-deterministic automaton of some patterns, in flat form: states are numbers, and the
/// bytes of a transition are one of a list of distinct sets.
///
/// A transition leads to a target. A target is a state, which may go on to others by epsilon moves;
/// in a reduced automaton it is the number of a list of all the states reached this way that
/// matter.
class FlatNfa {
public:
    struct Edge {
        std::uint32_t set;
        std::uint32_t target;

        friend auto operator<=>(const Edge&, const Edge&) = default;
    };

    /// The automaton of `count` patterns from `first` on.
    FlatNfa(const Pattern* first, std::size_t count);

    /// Removes the epsilon moves and merges states that are reached by the same texts, such as the
    /// first states of patterns that begin alike. Does nothing if patterns have so many optional
    /// parts that the lists would grow out of proportion.
    void reduce();
    bool isReduced() const { return isReduced_; }

    std::size_t stateCount() const { return edgeEnds_.size(); }
    std::size_t targetCount() const { return isReduced_ ? targets_.count() : stateCount(); }
    /// The targets at which a text begins.
    const Vector<std::uint32_t>& starts() const { return starts_; }
    const Vector<ByteSet>& sets() const { return sets_; }
    const Edge* edgesBegin(std::uint32_t state) const {
        return edges_.data() + (state == 0 ? 0 : edgeEnds_[state - 1]);
    }
    const Edge* edgesEnd(std::uint32_t state) const { return edges_.data() + edgeEnds_[state]; }
    /// For each state, the patterns that end in it, by their places in the list.
    const Lists& patterns() const { return patterns_; }
    /// Whether a state is neither an end nor left on any byte; such a state does not matter for
    /// matching.
    bool isTransit(std::uint32_t state) const {
        return edgesBegin(state) == edgesEnd(state) && patterns_.isEmpty(state);
    }
    /// Whether there may be states, or moves to none, from which no end can be reached. False is
    /// certain.
    bool mayHaveDeadEnds() const;
    /// For a reduced automaton: the states that each target stands for, ascending.
    const Lists& targets() const { return targets_; }
    /// For one that is not reduced: the states that each state goes on to without a byte.
    const Lists& epsilons() const { return epsilons_; }

private:
    friend class NfaReducer;

    void flatten(const NonDetState& state);
    void flattenSets(const NonDetState& state);
    std::uint32_t setIndex(const ByteSet& bytes);

    bool isReduced_ = false;
    Vector<std::uint32_t> starts_;
    Vector<Edge> edges_;
    Vector<std::size_t> edgeEnds_;
    Lists patterns_;
    Lists epsilons_;
    Lists targets_;
    Vector<ByteSet> sets_;
    ByteSetNumbers<std::uint32_t> setIndex_;
    std::array<std::uint32_t, 256> singles_;  // of each byte, the set that holds it alone
};

}  // namespace FSM
