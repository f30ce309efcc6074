#pragma once

#include <cstddef>

#include "fnd/Export.h"
#include "fnd/String.h"

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

/// Whether `pattern` parses. If not, `error` tells why; nothing is printed. Any thread.
KESTREL_API bool checkPattern(const FND::String& pattern, FND::String& error);
/// The same; `place` is then the byte of the pattern, from 0 on, at which it stopped. `options` are
/// those of the engine that is to take the pattern.
KESTREL_API bool checkPattern(const FND::String& pattern, FND::String& error, std::size_t& place,
                              const PatternOptions& options = {});

}  // namespace FSM
