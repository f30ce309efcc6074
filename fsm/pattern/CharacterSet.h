#pragma once

#include <memory>
#include <vector>

#include "fsm/EnginePart.h"
#include "fsm/PatternOptions.h"
#include "fsm/pattern/Characters.h"

namespace FSM {

/// A set of a pattern: bytes, or characters that become sequences of bytes.
class CharacterSet {
public:
    CharacterSet() = default;
    CharacterSet(const PatternOptions& options, bool isNegated)
        : options_(options), isNegated_(isNegated) {}

    /// Adds those from `first` to `last`, none if `last` is below `first`.
    void add(char32_t first, char32_t last) { ranges_.emplace_back(first, last); }
    /// The part that matches one member. Of a negated set one that is no member.
    std::unique_ptr<EnginePart> part();

private:
    std::unique_ptr<EnginePart> bytesPart() const;
    void normalise();

    PatternOptions options_;
    bool isNegated_ = false;
    std::vector<CharacterRange> ranges_;
};

}  // namespace FSM
