#include "records/json/JsonText.h"

#include <simdjson.h>

namespace Records {
namespace JsonText {
namespace {

unsigned hexOf(std::string_view digits) {
    unsigned code = 0;
    for (const char c : digits) {
        code = code * 16 + static_cast<unsigned>(isDigit(c) ? c - '0' : (c | 0x20) - 'a' + 10);
    }
    return code;
}

void appendUtf8(unsigned code, std::string& out) {
    const auto add = [&](unsigned byte) { out += static_cast<char>(byte); };
    if (code < 0x80) {
        add(code);
        return;
    }
    if (code < 0x800) {
        add(0xC0 | code >> 6);
    } else {
        if (code < 0x10000) {
            add(0xE0 | code >> 12);
        } else {
            add(0xF0 | code >> 18);
            add(0x80 | (code >> 12 & 0x3F));
        }
        add(0x80 | (code >> 6 & 0x3F));
    }
    add(0x80 | (code & 0x3F));
}

}  // namespace

bool isNumber(std::string_view text) {
    std::size_t i = 0;
    const auto digits = [&] {
        const std::size_t from = i;
        while (i < text.size() && isDigit(text[i])) ++i;
        return i != from;
    };
    if (i < text.size() && text[i] == '-') ++i;
    const bool isZero = i < text.size() && text[i] == '0';
    const std::size_t from = i;
    if (!digits() || (isZero && i != from + 1)) return false;
    if (i < text.size() && text[i] == '.' && (++i, !digits())) return false;
    if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
        ++i;
        if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
        if (!digits()) return false;
    }
    return i == text.size();
}

void unescape(std::string_view inner, std::string& out) {
    out.clear();
    for (std::size_t i = 0; i < inner.size(); ++i) {
        if (inner[i] != '\\') {
            out += inner[i];
            continue;
        }
        const char c = inner[++i];
        constexpr std::string_view letters = "bfnrt";
        if (c == 'u') {
            unsigned code = hexOf(inner.substr(i + 1, 4));
            i += 4;
            if (code >= 0xD800 && code < 0xDC00 && inner.substr(i + 1, 2) == "\\u") {
                code = 0x10000 + ((code - 0xD800) << 10) + (hexOf(inner.substr(i + 3, 4)) - 0xDC00);
                i += 6;
            }
            appendUtf8(code, out);
        } else if (const std::size_t letter = letters.find(c); letter != std::string_view::npos) {
            out += "\b\f\n\r\t"[letter];
        } else {
            out += c;
        }
    }
}

std::size_t quotedSize(std::string_view text) {
    std::size_t size = text.size() + 2;
    for (const char c : text) {
        if (c == '"' || c == '\\' || c == '\n' || c == '\r' || c == '\t') {
            size += 1;
        } else if (static_cast<unsigned char>(c) < ' ') {
            size += 5;
        }
    }
    return size;
}

}  // namespace JsonText

void appendQuoted(std::string_view text, std::string& out) {
    out += '"';
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (c == '\t') {
            out += "\\t";
        } else if (byte < ' ') {
            constexpr char digits[] = "0123456789abcdef";
            out += "\\u00";
            out += digits[byte >> 4];
            out += digits[byte & 15];
        } else {
            out += c;
        }
    }
    out += '"';
}

bool isUtf8(std::string_view text) { return simdjson::validate_utf8(text.data(), text.size()); }

void appendText(std::string_view text, std::string& out) {
    if (isUtf8(text)) return appendQuoted(text, out);
    std::string characters;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x80) characters += static_cast<char>(0xC0 | byte >> 6);
        characters += byte >= 0x80 ? static_cast<char>(0x80 | (byte & 0x3F)) : c;
    }
    appendQuoted(characters, out);
}

}  // namespace Records
