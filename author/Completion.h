#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "author/Functions.h"
#include "author/SymbolIndex.h"

namespace Author {

/// What may be written at a place of a script.
struct Suggested {
    enum class Kind { Function, Field, Variable, Module, Keyword, Constant, Type };
    std::string label;
    Kind kind = Kind::Variable;
    std::string detail;  ///< the signature, or empty
    std::string manual;  ///< in Markdown
};

/// What may be written where the word at `offset` of the script ends, in no order of its own; words
/// that do not begin like that one are among it. `fields` gives the names of a record's fields.
std::vector<Suggested> suggest(const SymbolIndex& index, std::size_t offset,
                               const Functions& functions,
                               const std::function<std::vector<std::string>()>& fields);

/// A call that a place is in.
struct Call {
    std::string name;
    std::size_t argument = 0;
};
std::optional<Call> callAt(const SourceText& text, std::size_t offset);

/// A declaration as a script writes it.
std::string signatureOf(const SymbolIndex& index, const Symbol& symbol);

}  // namespace Author
