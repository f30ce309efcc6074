#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Author {

/// What became of a text that was to be laid out.
struct Formatted {
    std::string text;    ///< laid out
    std::string fault;   ///< why there is none; empty if there is
    std::size_t at = 0;  ///< where the fault is, in bytes from the begin of the text given
};

/// Gives a script its canonical layout, which depends on its tokens, comments and blank lines only.
///
/// The result is proved: its tokens, comments, include lines and "#line" lines are read again and
/// are the same in the same order, so that the parser, which sees nothing else, makes the same
/// tree; and comments that switch warnings off stand at the same tokens. What cannot be proved is a
/// fault. A text whose brackets do not fit or whose statements do not end is a fault, too. Any
/// bytes and any thread; takes time in proportion to the text.
Formatted format(std::string_view text);

/// The same for a text that may be scrambled: it is laid out in plain and scrambled again.
Formatted formatFile(const std::string& content);

}  // namespace Author
