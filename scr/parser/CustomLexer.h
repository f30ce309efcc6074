#pragma once

#include <cstdint>
#include <string_view>

// The generated base class; its header may be read only once under the prefix.
#ifndef yyFlexLexerOnce
#undef yyFlexLexer
#define yyFlexLexer SCR_FlexLexer
#include <FlexLexer.h>
#endif

#include "fnd/String.h"

namespace SCR {

/// Turns script text into the tokens of the grammar, and knows the line and the file that it has
/// reached. Used under the parse lock.
class CustomLexer final : public SCR_FlexLexer {
public:
    /// Reads `head`, which begins with the mode word, then `text` and then `tail`, all of which
    /// must outlive the lexer. Every token lies in one of them.
    CustomLexer(std::string_view head, std::string_view text, std::string_view tail = {});

    /// The next token's code, 0 at the end of the input, with the token's text in `text`: the
    /// matched bytes, or for a string literal what stands between the quotes with escapes
    /// converted.
    int yylex(FND::String* text);
    /// The same without a copy: the text of a string literal is what stands between the quotes,
    /// escapes not converted. Valid as long as the script's text.
    int next(std::string_view& text);

    /// The line that the scanner has reached, 1-based.
    int line() const { return line_; }
    /// The name of the file of that line; empty when none was given.
    const FND::String& fileName() const { return fileName_; }
    /// The number of braces opened and not closed.
    int braceDepth() const { return braceDepth_; }
    /// Whether the scanner itself failed, and with what message.
    const FND::String& failure() const { return failure_; }

protected:
    int LexerInput(char* buffer, int maxSize) override;
    void LexerError(const char* message) override;

private:
    int yylex() override;

    // The next token, if it is of a common kind and its end is in the scanner's buffer; 0 leaves it
    // to the rules. Moves over the blanks and line ends in front of it in any case.
    int scanCommon(std::string_view& text);

    // Rule actions. Those that give a token set its text to the bytes matched.
    int token(int code);
    int word();
    int openBrace(int code);
    int closeBrace(int code);
    int stringLiteral(int code);
    int endOfInput();
    void skip();
    void newLine();
    // Counts what was matched as work of the compile, which can be stopped in it.
    void countMatched();
    // Line numbers end at the largest one.
    void countLines(std::int64_t lines);
    bool lineDirective();

    std::string_view head_;
    std::string_view text_;
    std::string_view tail_;
    std::size_t read_ = 0;      // bytes of the three given to the scanner
    std::size_t position_ = 0;  // bytes matched so far
    std::size_t counted_ = 0;   // of these, those counted as work
    std::string_view tokenText_;
    int line_ = 1;
    int braceDepth_ = 0;
    FND::String fileName_;
    FND::String failure_;
};

/// Whether `text` is a name as scripts write it, be it a keyword or not.
bool isName(std::string_view text);
/// Whether the name `text` is a keyword, so that scripts can write it only after "module::".
bool isKeyword(std::string_view text);

/// The text of a string literal: a backslash is dropped and the next byte taken for itself, but
/// "n" for a line feed, "t" for a tab and "r" for a carriage return. Appended to `out`.
void convertEscapeChars(std::string_view literal, FND::String& out);

}  // namespace SCR
