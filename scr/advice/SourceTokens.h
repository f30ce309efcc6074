#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/value/Words.h"

namespace SCR {

/// What a piece of a script's text is to those who show it or lay it out. The first four are what
/// the parser does not see.
enum class SourceKind : unsigned char {
    LineComment,   ///< to the end of the line
    BlockComment,  ///< with both of its signs; an open one goes to the end of the text
    IncludeLine,   ///< an include line, without the blanks around it
    LineMark,      ///< a "#line" line
    Name,
    ModuleName,  ///< "module::name"
    Keyword,     ///< a word of the language; `word` says which
    Long,
    Decimal,
    String,  ///< with its quotes
    Sign,    ///< one byte, such as "("; also "="
    Comparison,
    Strange,  ///< what can be no token
};

/// A piece of a text.
struct SourceToken {
    SourceKind kind = SourceKind::Strange;
    Word word = Word::None;
    std::size_t begin = 0;  ///< bytes from the begin of the text
    std::size_t end = 0;

    bool isSeen() const { return kind > SourceKind::LineMark; }
    std::string_view in(std::string_view text) const { return text.substr(begin, end - begin); }
};

/// The tokens of a text, as the parser's lexer gives them, and what lies between them. A name that
/// another one follows where a declaration may begin is taken for a type of a host.
struct SourceTokens {
    static constexpr std::size_t none = std::string_view::npos;

    std::vector<SourceToken> tokens;  ///< in the order of the text; only blanks are left out
    std::size_t openComment = none;   ///< where a comment begins that is not closed
    std::size_t badLineMark = none;   ///< a "#line" line that ends the text, as it says no place
};

/// Reads a text that is not scrambled. Include lines are not replaced. Any bytes and any thread;
/// time is in proportion to the text. Throws `std::bad_alloc` only.
KESTREL_API SourceTokens sourceTokens(std::string_view text);

/// The text that a string literal stands for, quotes included in `literal`.
KESTREL_API FND::String literalText(std::string_view literal);

/// The name in an include line.
KESTREL_API std::string_view includeName(std::string_view line);

}  // namespace SCR
