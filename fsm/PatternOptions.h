#pragma once

namespace FSM {

/// How an engine reads patterns and texts. All are off by default.
struct PatternOptions {
    /// A letter stands for its upper and lower case form, in sets too: letters of ASCII, or with
    /// `isUtf8` all that Unicode folds to the same single character.
    bool ignoresCase = false;
    /// Patterns and texts are UTF-8, and "." and sets stand for characters. Patterns that are not
    /// UTF-8 are refused; no pattern that is not negated matches a text that is not.
    bool isUtf8 = false;
    /// A text that leaves the automaton matches the negated patterns and no others, even if a
    /// pattern matches "".
    bool leavesByTextbook = false;
    /// NUL is a byte like others: patterns and texts do not end at it, unless they are given
    /// without a length.
    bool takesNul = false;

    friend bool operator==(const PatternOptions&, const PatternOptions&) = default;
};

}  // namespace FSM
