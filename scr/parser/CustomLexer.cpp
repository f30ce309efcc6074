#include "scr/parser/CustomLexer.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstring>
#include <stdexcept>

#include "Grammar.h"

namespace SCR {

CustomLexer::CustomLexer(std::string_view modeWord, std::string_view text)
    : modeWord_(modeWord), text_(text) {}

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

int CustomLexer::next(std::string_view& text) {
    const int code = yylex();
    text = tokenText_;
    return code;
}

int CustomLexer::LexerInput(char* buffer, int maxSize) {
    // The scanner asks for 8192 bytes at most, which may span the end of the mode word.
    std::size_t count = 0;
    const auto room = static_cast<std::size_t>(maxSize);
    for (const std::string_view source : {modeWord_, text_}) {
        const std::size_t start = source.data() == text_.data() ? modeWord_.size() : 0;
        if (count == room || read_ >= start + source.size()) continue;
        const std::size_t offset = read_ - start;
        const std::size_t part = std::min(room - count, source.size() - offset);
        std::memcpy(buffer + count, source.data() + offset, part);
        count += part;
        read_ += part;
    }
    return static_cast<int>(count);
}

void CustomLexer::LexerError(const char* message) {
    // The generated code does not expect a return. The parse entry points catch this.
    throw std::runtime_error(message);
}

int CustomLexer::token(int code) {
    const auto length = static_cast<std::size_t>(yyleng);
    // Only the mode word itself stands before the text.
    tokenText_ = position_ < modeWord_.size() ? modeWord_.substr(position_, length)
                                              : text_.substr(position_ - modeWord_.size(), length);
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

void CustomLexer::skip() { position_ += static_cast<std::size_t>(yyleng); }

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
