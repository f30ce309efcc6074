#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <map>
#include <span>
#include <vector>

#include "fsm/State.h"
#include "fsm/store/Account.h"

namespace FSM {

/// What a state throws that would pass the room of its thread.
struct NoStateRoom {};

/// While it lives, the states that the calling thread makes may take only so many bytes besides
/// those that it gives back. May be nested; the innermost one counts.
class StateRoom {
public:
    explicit StateRoom(std::size_t bytes);
    StateRoom(const StateRoom&) = delete;
    StateRoom& operator=(const StateRoom&) = delete;
    ~StateRoom();

    /// Bytes of the states made since then and still there.
    std::size_t taken() const;

private:
    const std::int64_t before_;
    const std::int64_t outerLimit_;
};

/// A state of the automaton fragments that patterns are read into. Used by one thread at a time.
class NonDetState final : public State {
public:
    /// All bytes from `first` to `last` lead to `target`.
    struct Transition {
        unsigned char first;
        unsigned char last;
        State* target;  // not owned
    };

    /// -1 takes the next identifier of the process.
    explicit NonDetState(std::int64_t id = -1);
    ~NonDetState() override;

    static void* operator new(std::size_t size);
    static void operator delete(void* memory);
    /// Returns the memory of the state pool to the heap if no state is left.
    static void freeMemoryPool();

    State* succState(unsigned char c) const override;
    /// Sets the transition on `c` to `target`; null removes it.
    void succState(unsigned char c, State* target) { succStates(c, c, target); }
    /// Sets the transitions on all bytes from `first` to `last`; null removes them.
    void succStates(unsigned char first, unsigned char last, State* target);
    /// The explicit transitions, ascending, no byte twice.
    std::span<const Transition> transitions() const {
        if (transitions_.empty()) return {&only_, only_.target != nullptr ? 1U : 0U};
        return transitions_;
    }

    /// The state reached on any byte without a transition, except newline; null for none.
    State* wildCardState() const { return wildCard_; }
    void wildCardState(State* target) { wildCard_ = target; }

    const std::vector<State*>& epsilonSuccStates() const override { return epsilons_; }
    void epsilonSuccState(State* target) override {
        makeRoom(epsilons_, charge_);
        epsilons_.push_back(target);
    }
    State* addEpsilonSuccState() override;
    void epsilonClosure(StateSet& set) const override;
    void print(const std::map<const State*, int>& numbers, std::ostream& out,
               int indent) const override;

    /// A number that algorithms over whole automata give the state for their own use.
    std::uint32_t mark() const { return mark_; }
    void mark(std::uint32_t value) const { mark_ = value; }

private:
    Charge charge_;                        // for the state and what its vectors hold
    Transition only_{};                    // if there is just one, as usual; without a target: none
    std::vector<Transition> transitions_;  // when there are more
    State* wildCard_ = nullptr;            // not owned
    std::vector<State*> epsilons_;         // not owned
    mutable std::uint32_t mark_ = 0;
};

}  // namespace FSM
