#include "scr/parser/CustomLexer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "Grammar.h"
#include "scr/run/Work.h"

namespace SCR {

namespace {

// The possible tokens that begin with a byte.
enum class Kind : unsigned char {
    Blank,
    LineEnd,
    Return,
    Letter,
    Digit,
    Quote,
    Sign,        // a token of its own
    Comparison,  // or together with an "=" after it
    Other,
};

constexpr std::array<Kind, 256> kindsS = [] {
    std::array<Kind, 256> kinds;
    kinds.fill(Kind::Other);
    const auto set = [&](std::string_view bytes, Kind kind) {
        for (const char byte : bytes) kinds[static_cast<unsigned char>(byte)] = kind;
    };
    set(" \t", Kind::Blank);
    set("\n", Kind::LineEnd);
    set("\r", Kind::Return);
    set("\"", Kind::Quote);
    set("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_", Kind::Letter);
    set("0123456789", Kind::Digit);
    set(",;:{}()[]+-*%", Kind::Sign);
    set("=!<>", Kind::Comparison);
    return kinds;
}();

Kind kindOf(char byte) { return kindsS[static_cast<unsigned char>(byte)]; }

// The bytes that may follow the first one in names and keywords.
constexpr std::array<bool, 256> wordBytesS = [] {
    std::array<bool, 256> isOfWord{};
    for (std::size_t i = 0; i < isOfWord.size(); ++i) {
        isOfWord[i] = kindsS[i] == Kind::Letter || kindsS[i] == Kind::Digit || i == '.';
    }
    return isOfWord;
}();

bool isOfWord(char byte) { return wordBytesS[static_cast<unsigned char>(byte)]; }

int signCode(char sign) {
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
        default:
            return static_cast<unsigned char>(sign);
    }
}

struct Keyword {
    std::string_view text;
    int code = SCR_IDENTIFIER;
};

constexpr Keyword keywordListS[] = {
    {"and", SCR_BOOL_OPERATOR},
    {"AND", SCR_BOOL_OPERATOR},
    {"or", SCR_BOOL_OPERATOR},
    {"OR", SCR_BOOL_OPERATOR},
    {"use", SCR_USE},
    {"regExprSwitch", SCR_REGEXPR_SWITCH},
    {"switch", SCR_SWITCH},
    {"case", SCR_CASE},
    {"default", SCR_DEFAULT},
    {"return", SCR_RETURN},
    {"break", SCR_BREAK},
    {"do", SCR_DO},
    {"while", SCR_WHILE},
    {"if", SCR_IF},
    {"else", SCR_ELSE},
    {"for", SCR_FOR},
    {"const", SCR_CONST_CONSTANT},
    {"function", SCR_FCT_DECLARATION},
    {"Bool", SCR_VAR_DECLARATION},
    {"Date", SCR_VAR_DECLARATION},
    {"Decimal", SCR_VAR_DECLARATION},
    {"Ebuf", SCR_VAR_DECLARATION},
    {"File", SCR_VAR_DECLARATION},
    {"Flist", SCR_VAR_DECLARATION},
    {"Iterator", SCR_VAR_DECLARATION},
    {"Long", SCR_VAR_DECLARATION},
    {"Nexid", SCR_VAR_DECLARATION},
    {"Nxid", SCR_VAR_DECLARATION},
    {"String", SCR_VAR_DECLARATION},
    {"true", SCR_BOOL_CONSTANT},
    {"false", SCR_BOOL_CONSTANT},
};

// The keywords, in slots given by their lengths and ends or in the next free ones. At most half of
// the slots are taken.
constexpr std::size_t numKeywordSlotsS = 128;

constexpr std::size_t keywordSlot(std::string_view word) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(word[i]); };
    return (word.size() + 5U * byte(0) + 19U * byte(word.size() - 1)) % numKeywordSlotsS;
}

constexpr std::array<Keyword, numKeywordSlotsS> keywordsS = [] {
    std::array<Keyword, numKeywordSlotsS> slots{};
    for (const Keyword& keyword : keywordListS) {
        std::size_t slot = keywordSlot(keyword.text);
        while (!slots[slot].text.empty()) slot = (slot + 1) % numKeywordSlotsS;
        slots[slot] = keyword;
    }
    return slots;
}();

// The code of a keyword, or that of an identifier.
int wordCode(std::string_view word) {
    std::size_t slot = keywordSlot(word);
    while (!keywordsS[slot].text.empty()) {
        if (keywordsS[slot].text == word) return keywordsS[slot].code;
        slot = (slot + 1) % numKeywordSlotsS;
    }
    return SCR_IDENTIFIER;
}

}  // namespace

CustomLexer::CustomLexer(std::string_view head, std::string_view text, std::string_view tail)
    : head_(head), text_(text), tail_(tail) {}

int CustomLexer::yylex(FND::String* text) {
    std::string_view view;
    const int code = next(view);
    if (code == SCR_STRING) {
        text->clear();
        convertEscapeChars(view, *text);
    } else if (code != 0) {
        text->assign(view);
    }
    return code;
}

inline void CustomLexer::countMatched() {
    constexpr std::size_t interval = 4096;
    // Processing a byte of text takes far longer than most work on one.
    constexpr std::size_t workAByte = 16;
    if (position_ - counted_ > interval) [[unlikely]]
        countWork(workAByte * (position_ - std::exchange(counted_, position_)));
}

int CustomLexer::next(std::string_view& text) {
    countMatched();
    if (const int code = scanCommon(text)) return code;
    const int code = yylex();
    text = tokenText_;
    return code;
}

int CustomLexer::LexerInput(char* buffer, int maxSize) {
    // Processing a byte takes longer than other work on one.
    constexpr std::size_t workOfByte = 8;
    countWork(workOfByte * static_cast<std::size_t>(maxSize));
    std::size_t count = 0;
    const auto room = static_cast<std::size_t>(maxSize);
    std::size_t start = 0;
    for (const std::string_view source : {head_, text_, tail_}) {
        const std::size_t end = start + source.size();
        if (count < room && read_ < end) {
            const std::size_t part = std::min(room - count, end - read_);
            std::memcpy(buffer + count, source.data() + (read_ - start), part);
            count += part;
            read_ += part;
        }
        start = end;
    }
    return static_cast<int>(count);
}

void CustomLexer::LexerError(const char* message) {
    // The generated code does not expect a return. The parse entry points catch this.
    throw std::runtime_error(message);
}

int CustomLexer::scanCommon(std::string_view& text) {
    // At first the scanner has no buffer. The parts around the text are left to the rules.
    if (yy_init == 0 || position_ - head_.size() >= text_.size()) return 0;
    const char* const begin = yy_c_buf_p;
    *yy_c_buf_p = yy_hold_char;
    const char* start = begin;
    Kind kind{};
    for (;; ++start) {
        while (*start == ' ') ++start;
        kind = kindOf(*start);
        if (kind > Kind::Return) break;
        if (kind == Kind::LineEnd) {
            countLines(1);
        } else if (kind == Kind::Return && start[1] != '\n') {
            break;
        }
    }

    // The buffer ends in a NUL, which belongs to no token of these kinds. When a NUL follows a
    // token, the rules read on.
    const char* end = start + 1;
    int code = 0;
    switch (kind) {
        case Kind::Letter:
            while (isOfWord(*end)) ++end;
            // A colon may follow a mode word, or be the first half of "::".
            if (*end != ':' && *end != '\0') {
                code = wordCode({start, static_cast<std::size_t>(end - start)});
            }
            break;
        case Kind::Digit:
            while (kindOf(*end) == Kind::Digit) ++end;
            if (*end != '.') {
                code = SCR_LONG_NUMBER;
            } else if (kindOf(end[1]) == Kind::Digit) {
                code = SCR_DECIMAL_NUMBER;
                do ++end;
                while (kindOf(*end) == Kind::Digit);
            }
            if (*end == '\0') code = 0;
            break;
        case Kind::Quote:
            while (*end != '"' && *end != '\\' && *end != '\n' && *end != '\0') ++end;
            if (*end == '"') {
                code = SCR_STRING;
                ++end;
            }
            break;
        case Kind::Sign:
            code = signCode(*start);
            if (code == SCR_OPEN_BRACE) ++braceDepth_;
            if (code == SCR_CLOSE_BRACE) --braceDepth_;
            break;
        case Kind::Comparison:
            if (*end == '=') {
                code = SCR_COMPARE_OPERATOR;
                ++end;
            } else if (*end != '~' && *end != '\0' && *start != '!') {
                code = *start == '=' ? int{'='} : int{SCR_COMPARE_OPERATOR};
            }
            break;
        default:
            break;
    }

    const auto skipped = static_cast<std::size_t>(start - begin);
    const std::size_t length = code != 0 ? static_cast<std::size_t>(end - start) : 0;
    // The quotes around a string are not part of its text.
    const std::size_t quote = code == SCR_STRING ? 1 : 0;
    const char* const matched = text_.data() + (position_ - head_.size()) + skipped;
    text = {matched + quote, length - 2 * quote};
    position_ += skipped + length;
    yy_c_buf_p += skipped + length;
    yy_hold_char = *yy_c_buf_p;
    return code;
}

int CustomLexer::word() { return token(wordCode({yytext, static_cast<std::size_t>(yyleng)})); }

int CustomLexer::token(int code) {
    const auto length = static_cast<std::size_t>(yyleng);
    // Hardly any token except the mode word lies outside the text.
    std::size_t start = position_;
    std::string_view source = head_;
    for (const std::string_view next : {text_, tail_}) {
        if (start < source.size()) break;
        start -= source.size();
        source = next;
    }
    tokenText_ = source.substr(start, length);
    position_ += length;
    return code;
}

int CustomLexer::openBrace(int code) {
    ++braceDepth_;
    return token(code);
}

int CustomLexer::closeBrace(int code) {
    --braceDepth_;
    return token(code);
}

int CustomLexer::stringLiteral(int code) {
    token(code);
    countLines(std::count(tokenText_.begin(), tokenText_.end(), '\n'));
    tokenText_.remove_prefix(1);
    tokenText_.remove_suffix(1);
    return code;
}

int CustomLexer::endOfInput() {
    tokenText_ = {};
    return 0;
}

void CustomLexer::skip() {
    position_ += static_cast<std::size_t>(yyleng);
    countMatched();
}

void CustomLexer::newLine() {
    skip();
    countLines(1);
}

void CustomLexer::countLines(std::int64_t lines) {
    line_ = static_cast<int>(std::min<std::int64_t>(line_ + lines, INT_MAX));
}

bool CustomLexer::lineDirective() {
    skip();
    std::string_view text(yytext, static_cast<std::size_t>(yyleng));
    const std::size_t open = text.find('"');
    const std::size_t close = text.rfind('"');
    text.remove_prefix(std::strlen("#line"));
    text.remove_prefix(std::min(text.find_first_not_of(" \t\r\v\f"), text.size()));
    if (text.starts_with('+')) text.remove_prefix(1);
    int number = 0;
    if (std::from_chars(text.data(), text.data() + text.size(), number).ec != std::errc()) {
        return false;
    }
    if (open == std::string_view::npos || open == close) return false;
    line_ = number;
    fileName_.assign(yytext + open + 1, close - open - 1);
    return true;
}

bool isName(std::string_view text) {
    return !text.empty() && kindOf(text.front()) == Kind::Letter &&
           std::all_of(text.begin(), text.end(), isOfWord);
}

bool isKeyword(std::string_view text) { return wordCode(text) != SCR_IDENTIFIER; }

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
