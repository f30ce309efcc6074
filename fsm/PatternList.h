#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "fnd/String.h"
#include "fsm/EnginePart.h"

namespace FSM {

/// A parsed pattern, with the number under which it is reported.
struct Pattern {
    std::unique_ptr<EnginePart> part;
    std::int32_t path;
    FND::String text;
    Charge textCharge{blockBytes(text.size())};
};

/// `paths` in ascending order, each once.
std::vector<std::int32_t> sortedOnce(std::vector<std::int32_t> paths);

/// The patterns given to an engine or a group, until its automata are built. One thread at a time
/// uses a list; different lists are independent.
class PatternList {
public:
    /// The path number that means the number of patterns inserted before.
    static constexpr unsigned long nextPathCM = ~0UL;

    /// The non-deterministic states that all patterns together may have, for each deterministic
    /// state that their automata may have.
    static constexpr std::size_t statesPerLimitCM = 8;
    /// Deterministic states that all parts of a group together may have, for each one that a single
    /// automaton may; and what their patterns then may have of non-deterministic ones.
    static constexpr std::size_t groupFactorCM = 16;
    static constexpr std::size_t statesPerGroupLimitCM = groupFactorCM * statesPerLimitCM;

    /// Parses `pattern` and appends it. False if it is refused; only `error` changes then. When it
    /// does not parse, two lines on standard output say so. `maxStates` is the number of
    /// non-deterministic states that all patterns together may have. Throws the exceptions of the
    /// budget, with the list unchanged.
    bool insert(const FND::String& pattern, unsigned long pathNumber, std::size_t maxStates);

    const Vector<Pattern>& patterns() const { return patterns_; }
    /// Sorted numbers of all patterns, each once.
    std::vector<std::int32_t> paths() const;
    /// Non-deterministic states of all patterns together.
    std::size_t stateCount() const { return stateCount_; }
    const FND::String& error() const { return error_; }

    /// Sorted numbers of the patterns that are negated, each once.
    static std::vector<std::int32_t> negatedPaths(const Pattern* first, std::size_t count);

    /// The error text for an automaton that passes `stateLimit` at the pattern `guilty`.
    static FND::String limitError(const Pattern& guilty, std::size_t stateLimit);

    /// Moves all patterns out.
    Vector<Pattern> take();
    /// Frees all patterns; the error text stays.
    void clear();

private:
    Vector<Pattern> patterns_;
    std::size_t stateCount_ = 0;
    FND::String error_;
};

}  // namespace FSM
