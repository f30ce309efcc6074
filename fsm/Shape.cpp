#include "fsm/Shape.h"

#include <optional>

namespace FSM {

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool isRepetition(char c) { return c == '?' || c == '+' || c == '*' || c == '{'; }

// Takes a byte that stands for itself, or an escape, from the beginning of `left`.
std::optional<char> takeByte(std::string_view& left) {
    const char c = left[0];
    if (c != '\\' || left.size() == 1 || left[1] == '\n') {
        left.remove_prefix(1);
        return c;
    }
    if (left.size() > 3 && isDigit(left[1]) && isDigit(left[2]) && isDigit(left[3])) {
        const int code = (left[1] - '0') * 100 + (left[2] - '0') * 10 + (left[3] - '0');
        if (code == 0 || code > 255) return std::nullopt;
        left.remove_prefix(4);
        return static_cast<char>(code);
    }
    const char escaped = left[1];
    left.remove_prefix(2);
    return escaped == 'n' ? '\n' : escaped == 't' ? '\t' : escaped;
}

}  // namespace

bool Shape::read(std::string_view pattern) {
    bytes.clear();
    ends.clear();
    startsWild = endsWild = false;
    std::string_view left = pattern.substr(0, pattern.find('\0'));
    if (!left.empty() && (left[0] == '!' || isRepetition(left[0]))) return false;
    std::size_t begin = 0;  // of the current word
    while (!left.empty()) {
        switch (left[0]) {
            case '.':
                if (left.size() < 2 || left[1] != '*') return false;
                left.remove_prefix(2);
                if (begin < bytes.size()) {
                    ends.push_back(bytes.size());
                    begin = bytes.size();
                } else if (ends.empty()) {
                    startsWild = true;
                }
                endsWild = true;
                break;
            case '(':
            case ')':
            case '[':
            case '|':
                return false;
            default: {
                // A "!" at the beginning of a line is an operator.
                if (left[0] == '\n' && left.size() > 1 && left[1] == '!') return false;
                const std::optional<char> byte = takeByte(left);
                if (!byte) return false;
                bytes += *byte;
                endsWild = false;
                break;
            }
        }
        if (!left.empty() && isRepetition(left[0])) return false;
    }
    if (begin < bytes.size() || ends.empty()) ends.push_back(bytes.size());
    if (bytes.empty()) startsWild = false;  // ".*" is the empty word with a tail
    // A newline ends what ".*" may skip, so words that hold one are not independent of it.
    return isLiteral() || bytes.find('\n') == std::string::npos;
}

}  // namespace FSM
