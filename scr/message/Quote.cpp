#include "scr/message/Quote.h"

#include <cstddef>
#include <string>

namespace SCR {

namespace {

bool isControl(char byte) { return static_cast<unsigned char>(byte) < ' ' || byte == 0x7F; }

// A byte that continues a character of several bytes.
bool isContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

}  // namespace

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
