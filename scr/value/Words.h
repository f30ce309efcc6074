#pragma once

#include <array>
#include <cstddef>
#include <string_view>

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
Word wordOf(std::string_view text);

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

/// Whether `text` is a name as scripts write it, be it a word of the language or not.
bool isName(std::string_view text);

}  // namespace SCR
