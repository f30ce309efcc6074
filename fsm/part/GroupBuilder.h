#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "fsm/part/GroupParts.h"
#include "fsm/pattern/PatternList.h"

namespace FSM {

/// Sorts patterns into parts and builds these. Words, with or without ".*", need no automaton: they
/// go into trees as soon as there are many. All others make one deterministic automaton as long as
/// that grows in proportion to them. Otherwise they are halved until it does. Patterns that explode
/// by themselves are matched by streams of bits, those that go round in other ways than in single
/// states by moving a bit for each of their places.
class GroupBuilder {
public:
    /// `partLimit` is the number of states that a deterministic automaton may have; 0 leaves it to
    /// the growth.
    GroupBuilder(Vector<Pattern> patterns, const PatternOptions& options, const BuildLimits& limits,
                 std::size_t partLimit);
    ~GroupBuilder();

    /// False if a limit would be passed; `error` and `guiltyPath` tell which and where.
    bool build(GroupParts& result);

    const FND::String& error() const { return error_; }
    std::int32_t guiltyPath() const { return guiltyPath_; }

private:
    struct Automaton;  // of a range of the others
    struct Words;      // what goes into parts of words

    void findEmpty();
    void sortOut();
    // Puts the pattern into a part of words if it is one, and of the kinds asked for.
    bool takeWords(Pattern& pattern, bool takesLiterals, bool takesWords);
    void countBytes(const Pattern& pattern);
    void joinNegated();
    void makeAutomata();
    bool parseOthers();
    bool loosen();
    void takeCounting();
    bool maySuitStreams(const Pattern& pattern) const;
    bool determineWords();
    bool determineWhole();
    void split();
    bool determine(std::size_t first, std::size_t count, std::size_t leastStates,
                   bool mayKeepTails);
    bool determineLarge(std::size_t first, std::size_t count);
    bool makeTables(GroupParts& result);
    bool makeStreams(GroupParts& result);
    bool makeBits(GroupParts& result);
    bool fail(const Pattern& guilty, Limit passed);
    std::size_t trialWork() const { return std::min(limits_.work, BuildLimits::trialWorkCM); }

    Vector<Pattern> patterns_;
    const PatternOptions options_;
    const BuildLimits limits_;
    const std::size_t partLimit_;
    bool acceptsEmpty_ = false;
    bool isLoose_ = false;               // the automata are for texts in UTF-8 alone
    std::vector<std::int32_t> negated_;  // numbers of negated patterns, ascending

    std::unique_ptr<Words> words_;
    Vector<Pattern> streams_;        // those that explode and suit streams
    Vector<Pattern> others_;         // those that need automata
    Vector<bool> mayStart_;          // whether a part may begin with each of them
    Vector<std::size_t> exploding_;  // the first of each unit of others that explodes, ascending
    std::size_t inner_ = 0;          // of the others, words with ".*" before and after
    std::vector<Automaton> automata_;
    std::size_t bytes_ = 0;  // that the parts take

    std::int32_t guiltyPath_ = -1;
    FND::String error_;
};

}  // namespace FSM
