#pragma once

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

#include "fsm/PatternOptions.h"
#include "fsm/part/Part.h"

namespace FSM {

class LiteralPart;
class Table;

/// The parts of a group, each for the patterns that suit it. Any number of threads may match at
/// once.
struct GroupParts {
    std::vector<std::unique_ptr<Part>> parts;
    PatternOptions options;
    /// Whether a pattern, ignoring its negation, matches "" and is reported for texts that have
    /// left all parts: then it matters which do.
    bool acceptsEmpty = false;
    /// Whether all parts are made for texts in UTF-8 alone, as those of words always are if
    /// `options` say so. No other text matches then.
    bool needsUtf8 = false;

    /// Adds the numbers of the patterns that match the text. False if it has left all parts.
    bool match(std::string_view text, Found& found) const;
    /// The table that tells all by itself, or null.
    const Table* onlyTable() const;
    /// The only table, if it has tails apart; otherwise null.
    const Table* onlyTailed() const;
    /// The part of words, null unless it is the only one and takes texts as they are.
    const LiteralPart* onlyLiterals() const;
    /// Writes the parts, or reads them. False if they are not sound.
    bool archive(Archive& archive);

    std::size_t automatonCount() const;
    std::size_t stateCount() const;
    std::size_t memory() const;

private:
    bool matchOtherwise(std::string_view text, Found& found) const;
};

}  // namespace FSM
