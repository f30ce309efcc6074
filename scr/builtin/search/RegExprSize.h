#pragma once

#include <cstddef>
#include <string_view>

namespace SCR {

/// The size of a regular expression with its counted repetitions written out.
struct RegExprSize {
    /// Bytes, sets and groups to match; each takes the library at least one instruction.
    std::size_t items = 0;
    /// An upper estimate of the instructions that they take.
    std::size_t instructions = 0;
    /// Parts that may be repeated or left out.
    std::size_t loops = 0;
};

/// The size of any text; a text that is not well-formed counts too. Takes time linear in the text.
RegExprSize sizeOfRegExpr(std::string_view pattern);

}  // namespace SCR
