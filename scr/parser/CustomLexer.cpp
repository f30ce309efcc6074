#include "scr/parser/CustomLexer.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <functional>
#include <utility>

#include "Grammar.h"
#include "scr/run/CountedWork.h"
#include "scr/value/Words.h"

namespace SCR {

namespace {

std::string_view between(const char* begin, const char* end) {
    return {begin, static_cast<std::size_t>(end - begin)};
}

// What may stand where a byte is met: first what may be no token.
enum class Kind : unsigned char {
    Blank,
    LineEnd,
    Return,  // a line end with the line feed after it
    Slash,   // a comment or a sign
    Hash,    // a "#line" line
    Letter,
    Digit,
    Point,  // a number without digits before its point
    Quote,
    Sign,        // a token of its own
    Comparison,  // or with another sign after it
    Other,
};

constexpr std::array<Kind, 256> kindsS = [] {
    std::array<Kind, 256> kinds;
    kinds.fill(Kind::Other);
    const auto set = [&](std::string_view bytes, Kind kind) {
        for (const char byte : bytes) kinds[static_cast<unsigned char>(byte)] = kind;
    };
    for (std::size_t i = 0; i < kinds.size(); ++i) {
        if (beginsName(static_cast<char>(i))) kinds[i] = Kind::Letter;
    }
    set(" \t", Kind::Blank);
    set("\n", Kind::LineEnd);
    set("\r", Kind::Return);
    set("/", Kind::Slash);
    set("#", Kind::Hash);
    set("0123456789", Kind::Digit);
    set(".", Kind::Point);
    set("\"", Kind::Quote);
    set(",;:{}()[]+-*%", Kind::Sign);
    set("=!<>", Kind::Comparison);
    return kinds;
}();

Kind kindOf(char byte) { return kindsS[static_cast<unsigned char>(byte)]; }
bool isBlank(char byte) { return kindOf(byte) == Kind::Blank; }
bool isDigit(char byte) { return kindOf(byte) == Kind::Digit; }
bool isNoLineEnd(char byte) { return byte != '\n'; }

constexpr std::string_view lineDirectiveS = "#line";

// The most bytes that are read before they are counted.
constexpr std::ptrdiff_t pieceSizeS = 65536;

int codeOfByte(char byte) { return static_cast<unsigned char>(byte); }

int codeOfSign(char sign) {
    switch (sign) {
        case ';':
            return SCR_SEMICOLON;
        case ':':
            return SCR_COLON;
        case '{':
            return SCR_OPEN_BRACE;
        case '}':
            return SCR_CLOSE_BRACE;
        case '(':
            return SCR_OPEN_PARENTHESIS;
        case ')':
            return SCR_CLOSE_PARENTHESIS;
        case '[':
            return SCR_OPEN_BRACKET;
        case ']':
            return SCR_CLOSE_BRACKET;
        case '\0':
            return SCR_SCR_UNDEF;
        default:
            return codeOfByte(sign);
    }
}

int codeOfWord(Word word) {
    switch (word) {
        case Word::None:
            return SCR_IDENTIFIER;
        case Word::BoolOperator:
            return SCR_BOOL_OPERATOR;
        case Word::BoolConstant:
            return SCR_BOOL_CONSTANT;
        case Word::TypeName:
            return SCR_VAR_DECLARATION;
        case Word::Use:
            return SCR_USE;
        case Word::RegExprSwitch:
            return SCR_REGEXPR_SWITCH;
        case Word::Switch:
            return SCR_SWITCH;
        case Word::Case:
            return SCR_CASE;
        case Word::Default:
            return SCR_DEFAULT;
        case Word::Return:
            return SCR_RETURN;
        case Word::Break:
            return SCR_BREAK;
        case Word::Do:
            return SCR_DO;
        case Word::While:
            return SCR_WHILE;
        case Word::If:
            return SCR_IF;
        case Word::Else:
            return SCR_ELSE;
        case Word::For:
            return SCR_FOR;
        case Word::Const:
            return SCR_CONST_CONSTANT;
        case Word::Function:
            return SCR_FCT_DECLARATION;
    }
    return SCR_IDENTIFIER;
}

// The code of what `word` and a colon after it make: a mode word, or 0 for nothing.
int codeOfMode(std::string_view word) {
    if (word == "RESULTS") return SCR_RESULTS;
    if (word == "CONDITIONS") return SCR_CONDITIONS;
    if (word == "QUERY") return SCR_QUERY;
    if (word == "MAPPING") return SCR_MAPPING;
    return 0;
}

}  // namespace

CustomLexer::CustomLexer(std::string_view head, std::string_view text, std::string_view tail)
    : parts_{head, text, tail},
      position_(head.data()),
      end_(head.data() + head.size()),
      counted_(head.data()),
      token_(head.data()) {}

int CustomLexer::yylex(FND::String* text) {
    const int code = next();
    if (code == SCR_STRING) {
        text->clear();
        convertEscapeChars(token().substr(1, token().size() - 2), *text);
    } else if (code != 0) {
        text->assign(token());
    }
    return code;
}

int CustomLexer::next() {
    const bool isFound = findToken();
    token_ = position_;
    return isFound ? scanToken() : 0;
}

inline void CustomLexer::countTo(const char* end) {
    constexpr std::ptrdiff_t interval = 4096;
    // What is made of a byte of text takes far longer than most work on one.
    constexpr std::size_t workAByte = 16;
    if (end - counted_ > interval) [[unlikely]]
        countWork(workAByte * static_cast<std::size_t>(end - std::exchange(counted_, end)));
}

template <class Predicate>
inline const char* CustomLexer::endOfRun(const char* from, Predicate isOfRun) {
    for (;;) {
        const char* const stop = end_ - from > pieceSizeS ? from + pieceSizeS : end_;
        while (from != stop && isOfRun(*from)) ++from;
        if (from != stop || from == end_) return from;
        countTo(from);
    }
}

void CustomLexer::countLines(std::int64_t lines) {
    line_ = static_cast<int>(std::min<std::int64_t>(line_ + lines, INT_MAX));
}

bool CustomLexer::enterNextPart() {
    while (part_ + 1 < parts_.size()) {
        const std::string_view part = parts_[++part_];
        if (part.empty()) continue;
        position_ = counted_ = part.data();
        end_ = part.data() + part.size();
        return true;
    }
    return false;
}

bool CustomLexer::isLineEndNext() const {
    if (position_ != end_) return *position_ == '\n';
    return part_ + 1 < parts_.size() && parts_[part_ + 1].starts_with('\n');
}

inline bool CustomLexer::findToken() {
    // Before most tokens there are blanks and line ends alone.
    const char* const stop = end_ - position_ > pieceSizeS ? position_ + pieceSizeS : end_;
    while (position_ != stop) {
        const Kind kind = kindOf(*position_);
        if (kind > Kind::Hash) {
            countTo(position_);
            return true;
        }
        if (kind > Kind::LineEnd) break;
        if (kind == Kind::LineEnd) countLines(1);
        ++position_;
    }
    return findTokenAfterMore();
}

bool CustomLexer::findTokenAfterMore() {
    for (;;) {
        if (position_ == end_ && !enterNextPart()) return false;
        countTo(position_);
        const Kind kind = kindOf(*position_);
        if (kind > Kind::Hash) return true;
        switch (kind) {
            case Kind::Blank:
                position_ = endOfRun(position_ + 1, isBlank);
                break;
            case Kind::LineEnd:
                ++position_;
                countLines(1);
                break;
            case Kind::Return:
                ++position_;
                if (isLineEndNext()) break;
                --position_;
                return true;
            case Kind::Slash:
                if (end_ - position_ > 1 && position_[1] == '/') {
                    position_ = endOfRun(position_ + 2, isNoLineEnd);
                } else if (end_ - position_ > 1 && position_[1] == '*') {
                    position_ += 2;
                    skipComment();
                } else {
                    return true;
                }
                break;
            case Kind::Hash:
                if (!between(position_, end_).starts_with(lineDirectiveS)) return true;
                badDirective_ = position_;
                if (readLineDirective()) {
                    badDirective_ = nullptr;
                    break;
                }
                position_ = end_;
                part_ = parts_.size();
                return false;
            default:
                return true;
        }
    }
}

void CustomLexer::skipComment() {
    const char* const begin = position_ - 2;
    for (;;) {
        position_ = endOfRun(position_, [](char byte) { return byte != '*' && byte != '\n'; });
        if (position_ == end_) {
            if (!enterNextPart()) {
                openComment_ = begin;
                return;
            }
        } else if (*position_++ == '\n') {
            countLines(1);
            // An include line in a comment is replaced, too; the numbers after it stay right.
            if (position_ != end_ && *position_ == '#') [[unlikely]]
                skipLineDirective();
        } else if (position_ != end_ && *position_ == '/') {
            ++position_;
            return;
        }
        countTo(position_);
    }
}

void CustomLexer::skipLineDirective() {
    if (!between(position_, end_).starts_with(lineDirectiveS)) return;
    const char* const begin = position_ + lineDirectiveS.size();
    const char* const end = endOfRun(begin, isNoLineEnd);
    if (end != end_ && goTo(between(begin, end))) position_ = end + 1;
}

bool CustomLexer::readLineDirective() {
    const char* const begin = position_ + lineDirectiveS.size();
    position_ = endOfRun(begin, isNoLineEnd);
    std::string_view text = between(begin, position_);
    if (isLineEndNext() && (position_ != end_ || enterNextPart())) ++position_;

    return goTo(text);
}

bool CustomLexer::goTo(std::string_view text) {
    const std::size_t open = text.find('"');
    const std::size_t close = text.rfind('"');
    if (open == close) return false;
    const std::string_view file = text.substr(open + 1, close - open - 1);
    text.remove_prefix(std::min(text.find_first_not_of(" \t\r\v\f"), text.size()));
    if (text.starts_with('+')) text.remove_prefix(1);
    int number = 0;
    if (std::from_chars(text.data(), text.data() + text.size(), number).ec != std::errc()) {
        return false;
    }
    if (number == 1 && !file.empty() && file != fileName_)
        includes_.push_back({FND::String(file), fileName_, line_});
    line_ = number;
    fileName_.assign(file);
    return true;
}

int CustomLexer::scanToken() {
    const char first = *position_;
    switch (kindOf(first)) {
        case Kind::Letter:
            return scanWord();
        case Kind::Digit:
        case Kind::Point:
            return scanNumber();
        case Kind::Quote:
            return scanString();
        case Kind::Comparison:
            ++position_;
            if (position_ != end_ && *position_ == '=') {
                ++position_;
                return SCR_COMPARE_OPERATOR;
            }
            if (first == '=' && position_ != end_ && *position_ == '~') {
                ++position_;
                return SCR_PATTERN_COMPARE;
            }
            return first == '<' || first == '>' ? int{SCR_COMPARE_OPERATOR} : codeOfByte(first);
        default:
            ++position_;
            if (first == '{') ++braceDepth_;
            if (first == '}') --braceDepth_;
            return codeOfSign(first);
    }
}

int CustomLexer::scanWord() {
    const char* const begin = position_;
    position_ = endOfRun(begin + 1, isOfName);
    const std::string_view word = between(begin, position_);
    if (position_ != end_ && *position_ == ':') [[unlikely]] {
        if (end_ - position_ > 2 && position_[1] == ':' && beginsName(position_[2])) {
            position_ = endOfRun(position_ + 3, isOfName);
            return SCR_MODULE_IDENTIFIER;
        }
        if (const int mode = codeOfMode(word)) {
            ++position_;
            return mode;
        }
    }
    return codeOfWord(wordOf(word, types_));
}

int CustomLexer::scanNumber() {
    const char* const point = endOfRun(position_, isDigit);
    if (end_ - point > 1 && *point == '.' && isDigit(point[1])) {
        position_ = endOfRun(point + 2, isDigit);
        return SCR_DECIMAL_NUMBER;
    }
    if (point != position_) {
        position_ = point;
        return SCR_LONG_NUMBER;
    }
    ++position_;
    return '.';
}

int CustomLexer::scanString() {
    std::int64_t lines = 0;
    const char* byte = position_ + 1;
    if (std::find(openTexts_.begin(), openTexts_.end(), position_) != openTexts_.end()) {
        position_ = endOfRun(byte, isNoLineEnd);
        return SCR_STRING;
    }
    for (;;) {
        byte = endOfRun(byte, [](char c) { return c != '"' && c != '\\' && c != '\n'; });
        if (byte != end_ && *byte == '"') {
            position_ = byte + 1;
            countLines(lines);
            return SCR_STRING;
        }
        // A backslash takes the byte after it.
        if (byte != end_ && *byte == '\\') ++byte;
        if (byte == end_) {
            ++position_;
            return '"';
        }
        if (*byte++ == '\n') ++lines;
        countTo(byte);
    }
}

bool CustomLexer::goBack(const char* token, const char* place) {
    const std::string_view part = part_ < parts_.size() ? parts_[part_] : std::string_view();
    const std::less<const char*> isBefore;
    if (isBefore(token, part.data()) || isBefore(place, token) || isBefore(position_, place)) {
        return false;
    }
    const std::string_view passed(token, static_cast<std::size_t>(position_ - token));
    if (passed.find(lineDirectiveS) != std::string_view::npos) return false;
    CustomLexer again({}, passed);
    while (again.next() != 0) {
    }
    braceDepth_ -= again.braceDepth();
    countLines(-std::count(place, position_, '\n'));
    position_ = token_ = place;
    counted_ = std::min(counted_, place, isBefore);
    return true;
}

void convertEscapeChars(std::string_view literal, FND::String& out) {
    while (true) {
        const std::size_t run = literal.find('\\');
        out.append(literal.substr(0, run));
        if (run == std::string_view::npos || run + 1 == literal.size()) return;
        const char escaped = literal[run + 1];
        switch (escaped) {
            case 'n':
                out += '\n';
                break;
            case 't':
                out += '\t';
                break;
            case 'r':
                out += '\r';
                break;
            default:
                out += escaped;
        }
        literal.remove_prefix(run + 2);
    }
}

}  // namespace SCR
