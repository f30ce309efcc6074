#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "fsm/table/Determiniser.h"

namespace FSM {

/// A word, without NUL and newline and not empty, that may stand anywhere in a line.
struct InnerWord {
    std::string word;
    std::int32_t path;
};

/// What `determinise` makes, with tails apart, of the patterns ".*word.*", in time in proportion to
/// the words: a state for each beginning of a word, and one for texts that a newline ends.
void determine(std::span<const InnerWord> words, RawAutomaton& raw);

}  // namespace FSM
