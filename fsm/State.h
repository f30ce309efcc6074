#pragma once

#include <cstdint>
#include <iosfwd>
#include <map>
#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"

namespace FSM {

class Engine;
class StateSet;

/// A state of an automaton: of the non-deterministic one that patterns are read into, or of the
/// deterministic one that texts are matched with. A deterministic state is owned by its engine and
/// lives until the engine is cleared or destroyed. Reading is safe from any number of threads.
class KESTREL_API State {
public:
    virtual ~State();
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    /// The path numbers of the patterns that match a text which ends in this state, ascending and
    /// each once. Empty if there are none.
    const std::vector<std::int32_t>& pathNumbers() const { return *paths_; }

    /// Sets the bits of this state's path numbers and clears all others. `bits` grows if it is too
    /// short for the highest number and keeps its size otherwise; negative numbers have no bit.
    void pathNumbers(std::vector<bool>& bits) const;

    /// The path numbers in decimal, separated by one blank each; "" if there are none.
    FND::String pathString() const;

    /// The states reached without a byte; none for a deterministic state.
    virtual const std::vector<State*>& epsilonSuccStates() const;
    /// Adds a move to `target` (not owned) that takes no byte. Does nothing in a deterministic
    /// state.
    virtual void epsilonSuccState(State* target);
    /// Makes a non-deterministic state reached from this one without a byte and returns it; the
    /// caller owns it. Null in a deterministic state.
    virtual State* addEpsilonSuccState();
    /// Adds to `set` this state and all that are reached without a byte. Does nothing in a
    /// deterministic state. `set` must refuse duplicates.
    virtual void epsilonClosure(StateSet& set) const;

    /// Links the engine for the next word of a word sequence (not owned). Only deterministic states
    /// keep it.
    virtual void setNextWordFSM(Engine* engine);
    /// The linked engine, or null.
    virtual Engine* getNextWordFSM() const;

    /// Writes the state for diagnosis: a line for the state and one for each range of bytes, with
    /// `indent` blanks before each. States are named by `numbers`, or "?" if they are not in there.
    virtual void print(const std::map<const State*, int>& numbers, std::ostream& out,
                       int indent) const;

    /// The state reached on byte `c`: the explicit transition on `c`, otherwise the wild-card
    /// successor unless `c` is newline, otherwise null.
    virtual State* succState(unsigned char c) const = 0;

    /// The identifier: unique in the process and ascending for non-deterministic states, -1 for
    /// deterministic ones.
    std::int64_t id() const { return id_; }

protected:
    explicit State(std::int64_t id) : id_(id) {}

    static void printNumber(const std::map<const State*, int>& numbers, std::ostream& out,
                            const State* state);

    static const std::vector<std::int32_t> noPathsCM;

    const std::vector<std::int32_t>* paths_ = &noPathsCM;  // not owned
    std::int64_t id_;
};

}  // namespace FSM
