#pragma once

#include <bitset>
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

    /// After `part`, with UTF-8: whether all characters of several bytes are members.
    bool holdsAllOfSeveralBytes() const;
    /// The part that matches one byte of members, if all characters of several bytes are members.
    std::unique_ptr<EnginePart> loosePart() const;

private:
    std::unique_ptr<EnginePart> bytesPart() const;
    static std::unique_ptr<EnginePart> partOf(const std::bitset<256>& bytes);
    void normalise();

    PatternOptions options_;
    bool isNegated_ = false;
    std::vector<CharacterRange> ranges_;
};

}  // namespace FSM
