#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "fsm/PatternOptions.h"

namespace FSM {

class Engine;
class EngineGroup;

/// What is unusual in a list of patterns of which the one with the lowest number wins. It is read
/// from the finished automaton, so it is exact: nothing is missing and nothing is guessed. Texts
/// contain no NUL, as matched texts never do, and are the shortest of their kind.
struct KESTREL_API Analysis {
    /// A pattern that matches texts, but never as the one with the lowest number.
    struct Shadowed {
        std::int32_t path;
        /// The lower number that is reported for all texts of `path`. If there is no single one, or
        /// searching for it would take too long: the lower numbers that together cover the texts,
        /// ascending.
        std::vector<std::int32_t> by;
        /// A text that the pattern matches.
        FND::String text;
    };
    /// Two patterns that both match a text; `first` is the lower number.
    struct Overlap {
        std::int32_t first;
        std::int32_t second;
        FND::String text;
    };

    /// Numbers of the patterns that match no text at all, ascending.
    std::vector<std::int32_t> empty;
    /// Numbers of the patterns that match "" and are therefore reported for each text that leaves
    /// the automaton, ascending. None of them is negated; none at all with textbook leaving.
    std::vector<std::int32_t> leaving;
    /// Ascending by number.
    std::vector<Shadowed> shadowed;
    /// Ascending by numbers.
    std::vector<Overlap> overlaps;
    /// Whether `overlaps` is complete, that is, was not cut off at the number asked for.
    bool hasAllOverlaps = true;
    /// Pairs of patterns that were not examined, as that would have taken too long.
    std::size_t notExamined = 0;
};

/// Analyses the patterns of a finished engine, with up to `maxOverlaps` overlaps. Nothing before
/// `finalSetup`, without patterns, or when memory runs out. Takes time in proportion to the states
/// and the path numbers that they list; may run in any number of threads.
KESTREL_API std::optional<Analysis> analyse(const Engine& engine, std::size_t maxOverlaps = 10000);

/// The same for a finished group. Also nothing if the group was split: its automata do not show how
/// patterns of different parts relate.
KESTREL_API std::optional<Analysis> analyse(const EngineGroup& group,
                                            std::size_t maxOverlaps = 10000);

/// The same for a list of any size, numbered from 0. It is examined pair by pair: words are looked
/// up, and other pairs make an automaton each, as far as that takes some seconds; what is found is
/// exact. A pattern that only several others together cover is not found; negated patterns are not
/// examined in pairs. Nothing if a pattern does not parse or memory runs out.
KESTREL_API std::optional<Analysis> analyse(std::span<const FND::String> patterns,
                                            std::size_t maxOverlaps = 10000,
                                            const PatternOptions& options = {});

/// For each pattern that can never be the one with the lowest number, in ascending order, a
/// sentence for the author of a list of cases of which the first match is taken: "the case in line
/// 12 is never reached: line 9 matches all its texts". `lines` holds the line of each pattern, by
/// number; patterns without a line are left out.
KESTREL_API std::vector<FND::String> unreachedCases(const Analysis& analysis,
                                                    std::span<const std::int32_t> lines);

}  // namespace FSM
