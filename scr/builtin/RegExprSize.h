#pragma once

#include <cstddef>
#include <string_view>

namespace SCR {

/// How large a regular expression is with its counted repetitions written out.
struct RegExprSize {
    /// Bytes, sets and groups to match; each takes the library at least one instruction.
    std::size_t items = 0;
    /// About the instructions that they take, at the most.
    std::size_t instructions = 0;
    /// Parts that may be repeated or left out.
    std::size_t loops = 0;
};

/// Of any text; what is not well-formed counts as something. Takes time linear in the text.
RegExprSize sizeOfRegExpr(std::string_view pattern);

}  // namespace SCR
