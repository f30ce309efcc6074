#include "fsm/pattern/Shape.h"

#include <optional>
#include <utility>

#include "fsm/pattern/Characters.h"

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

bool Shape::read(std::string_view pattern, const PatternOptions& options) {
    bytes.clear();
    ends.clear();
    startsWild = endsWild = false;
    std::string_view left = pattern.substr(0, pattern.find('\0'));
    if (options.takesNul && left.size() < pattern.size()) return false;
    if (options.isUtf8 && !isUtf8(left)) return false;
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
                const bool isCode = left[0] == '\\' && left.size() > 1 && isDigit(left[1]);
                const std::optional<char> byte = takeByte(left);
                if (!byte) return false;
                // With UTF-8, the code of a byte is that of a character.
                if (options.isUtf8 && isCode) {
                    appendUtf8(static_cast<unsigned char>(*byte), bytes);
                } else {
                    bytes += *byte;
                }
                endsWild = false;
                break;
            }
        }
        if (!left.empty() && isRepetition(left[0])) return false;
    }
    if (begin < bytes.size() || ends.empty()) ends.push_back(bytes.size());
    if (options.ignoresCase) fold(options);
    if (bytes.empty()) startsWild = false;  // ".*" is the empty word with a tail
    // A newline ends what ".*" may skip, so words that hold one are not independent of it.
    return isLiteral() || bytes.find('\n') == std::string::npos;
}

void Shape::fold(const PatternOptions& options) {
    std::string folded;
    std::string all;
    std::size_t begin = 0;
    for (std::size_t& end : ends) {
        foldCase(std::string_view(bytes).substr(begin, end - begin), options, folded);
        begin = end;
        end = all.append(folded).size();
    }
    bytes = std::move(all);
}

}  // namespace FSM
