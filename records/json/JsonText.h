#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

namespace Records {

/// Appends `text`, which is UTF-8, as a JSON string.
void appendQuoted(std::string_view text, std::string& out);

bool isUtf8(std::string_view text);
/// Appends any `text` as a JSON string. If it is not UTF-8, each of its bytes is written as the
/// character with its number.
void appendText(std::string_view text, std::string& out);

namespace JsonText {

inline bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
inline bool isDigit(char c) { return c >= '0' && c <= '9'; }

inline bool endsWord(char c) { return c == ',' || c == ']' || c == '}' || isSpace(c); }

inline bool isWord(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || isDigit(c) || c == '_' || c == '.';
}

/// Whether a script's `name` stands for the member `key`.
inline bool standsFor(std::string_view name, std::string_view key) {
    if (name == key) return true;
    return name.size() == key.size() &&
           std::equal(name.begin(), name.end(), key.begin(),
                      [](char n, char k) { return n == k || (n == '_' && !isWord(k)); });
}

/// The position after the string that begins at `i`, in valid JSON.
inline std::size_t skipString(std::string_view text, std::size_t i) {
    for (++i; text[i] != '"'; ++i) {
        if (text[i] == '\\') ++i;
    }
    return i + 1;
}

/// Whether `text` is a number, however large: -? int frac? exp?
bool isNumber(std::string_view text);

/// Sets `out` to the text between the quotes of a string, without its escapes.
void unescape(std::string_view inner, std::string& out);

/// The size of `text` as a JSON string.
std::size_t quotedSize(std::string_view text);

}  // namespace JsonText
}  // namespace Records
