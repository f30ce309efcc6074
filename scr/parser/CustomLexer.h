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

/// Turns script text into the tokens of the grammar, and knows the current line and file. Used
/// under the parse lock.
class CustomLexer final : public SCR_FlexLexer {
public:
    /// Reads `head`, which begins with the mode word, then `text` and then `tail`, all of which
    /// must outlive the lexer. No token crosses from one into another.
    CustomLexer(std::string_view head, std::string_view text, std::string_view tail = {});

    /// The code of the next token, 0 at the end of the input; `text` gets the token's text: the
    /// matched bytes, or for a string literal the text between the quotes with escapes converted.
    int yylex(FND::String* text);
    /// The same without a copy: for a string literal `text` is the text between the quotes with
    /// escapes not converted. Valid as long as the script's text.
    int next(std::string_view& text);

    /// The current line, 1-based.
    int line() const { return line_; }
    /// The name of the current file; empty when none was given.
    const FND::String& fileName() const { return fileName_; }
    /// The number of braces opened and not closed.
    int braceDepth() const { return braceDepth_; }
    /// Whether the scanner itself failed, and its message.
    const FND::String& failure() const { return failure_; }

protected:
    int LexerInput(char* buffer, int maxSize) override;
    void LexerError(const char* message) override;

private:
    int yylex() override;

    // The next token, if it is of a common kind and its end is in the scanner's buffer; 0 leaves it
    // to the rules. Skips the blanks and line ends before it in any case.
    int scanCommon(std::string_view& text);

    // Rule actions. Those for tokens set the token's text to the matched bytes.
    int token(int code);
    int word();
    int openBrace(int code);
    int closeBrace(int code);
    int stringLiteral(int code);
    int endOfInput();
    void skip();
    void newLine();
    // Counts the matched bytes as work of the compile, which can be stopped here.
    void countMatched();
    // Line numbers stop at the largest one.
    void countLines(std::int64_t lines);
    bool lineDirective();

    std::string_view head_;
    std::string_view text_;
    std::string_view tail_;
    std::size_t read_ = 0;      // of the three texts, given to the scanner
    std::size_t position_ = 0;  // bytes matched so far
    std::size_t counted_ = 0;   // of the matched ones, counted as work
    std::string_view tokenText_;
    int line_ = 1;
    int braceDepth_ = 0;
    FND::String fileName_;
    FND::String failure_;
};

/// Whether `text` is a name as scripts write it, even if it is a keyword.
bool isName(std::string_view text);
/// Whether the name `text` is a keyword, so that scripts must write it after "module::".
bool isKeyword(std::string_view text);

/// Appends the text of a string literal to `out`. A backslash is dropped and the next byte stands
/// for itself, except "n" for a line feed, "t" for a tab and "r" for a carriage return.
void convertEscapeChars(std::string_view literal, FND::String& out);

}  // namespace SCR
