#include "scr/message/Quote.h"

#include <cstddef>
#include <string>

namespace SCR {

namespace {

bool isControl(char byte) { return static_cast<unsigned char>(byte) < ' ' || byte == 0x7F; }

// A byte that continues a character of several bytes.
bool isContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

}  // namespace

std::size_t characterSize(std::string_view text) {
    if (text.empty()) return 0;
    const auto first = static_cast<unsigned char>(text[0]);
    const std::size_t size = first < 0x80                   ? 1
                             : first < 0xC2 || first > 0xF4 ? 0
                             : first < 0xE0                 ? 2
                             : first < 0xF0                 ? 3
                                                            : 4;
    if (size == 0 || size > text.size()) return 0;
    for (std::size_t i = 1; i < size; ++i) {
        if (!isContinuation(text[i])) return 0;
    }
    if (size < 3) return size;
    const auto second = static_cast<unsigned char>(text[1]);
    const bool isLong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool isBeyond = (first == 0xED && second > 0x9F) || (first == 0xF4 && second > 0x8F);
    return isLong || isBeyond ? 0 : size;
}

void appendPrintable(FND::String& target, std::string_view text) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    for (const char byte : text) {
        if (!isControl(byte)) [[likely]] {
            target += byte;
            continue;
        }
        target += '\\';
        if (byte == '\n' || byte == '\r' || byte == '\t') {
            target += byte == '\n' ? 'n' : byte == '\r' ? 'r' : 't';
            continue;
        }
        target += 'x';
        target += digits[static_cast<unsigned char>(byte) >> 4];
        target += digits[static_cast<unsigned char>(byte) & 15];
    }
}

FND::String quotedValue(std::string_view value) {
    constexpr std::size_t most = 200;
    std::size_t shown = value.size();
    if (shown > most) {
        shown = most;
        // Does not cut a character of several bytes.
        while (shown > most - 3 && isContinuation(value[shown])) --shown;
    }
    FND::String text = "'";
    appendPrintable(text, value.substr(0, shown));
    text += '\'';
    if (shown < value.size()) text += "... (" + std::to_string(value.size()) + " bytes)";
    return text;
}

}  // namespace SCR
