#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <set>
#include <string_view>
#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"

namespace SCR {

/// What a word of the language is for.
enum class Word : unsigned char {
    None,  ///< not a word of the language
    BoolOperator,
    BoolConstant,
    TypeName,
    Use,
    RegExprSwitch,
    Switch,
    Case,
    Default,
    Return,
    Break,
    Do,
    While,
    If,
    Else,
    For,
    Const,
    Function,
};

/// What `text`, which is not empty, is for.
KESTREL_API Word wordOf(std::string_view text);

/// The names of types that a host declares.
using TypeNames = std::set<FND::String, std::less<>>;

/// Those of the interpreter that the calling thread compiles for; null for none.
inline thread_local const TypeNames* hostTypesG = nullptr;

/// The same where the names in `types` are words, too.
inline Word wordOf(std::string_view text, const TypeNames* types) {
    const Word word = wordOf(text);
    if (types == nullptr || word != Word::None) return word;
    return types->contains(text) ? Word::TypeName : Word::None;
}

/// Whether `name` is one of the language's own types for objects of hosts.
KESTREL_API bool isHandleType(std::string_view name);

/// Whether a name can begin with `byte`.
constexpr bool beginsName(char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || byte == '_';
}

/// The bytes that names are made of, after their first one.
inline constexpr std::array<bool, 256> nameBytesS = [] {
    std::array<bool, 256> isOfName{};
    for (std::size_t i = 0; i < isOfName.size(); ++i) {
        const char byte = static_cast<char>(i);
        isOfName[i] = beginsName(byte) || (byte >= '0' && byte <= '9') || byte == '.';
    }
    return isOfName;
}();

inline bool isOfName(char byte) { return nameBytesS[static_cast<unsigned char>(byte)]; }

/// All words of the language.
KESTREL_API std::vector<std::string_view> languageWords();

/// Whether an identifier as the first argument of the host's function `function` is the name of a
/// field.
KESTREL_API bool namesField(std::string_view function);

/// Whether `text` is a name as scripts write it, be it a word of the language or not.
KESTREL_API bool isName(std::string_view text);

}  // namespace SCR
