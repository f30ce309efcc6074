#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "fnd/String.h"
#include "scr/value/Words.h"

namespace SCR {

/// Turns script text into the tokens of the grammar, and knows the line and the file that it has
/// reached. Used under the parse lock. Counts what it reads as work of the compile, which can be
/// stopped within a token of any length.
class CustomLexer final {
public:
    /// Reads `head`, which begins with the mode word and ends after a blank or a line end, then
    /// `text`, and then `tail`, which is empty or a line end. All must outlive the lexer.
    CustomLexer(std::string_view head, std::string_view text, std::string_view tail = {});

    /// The next token's code, 0 at the end of the input, with the token's text in `text`: the
    /// matched bytes, or for a string literal what stands between the quotes with escapes
    /// converted.
    int yylex(FND::String* text);
    /// The same without the text, which `token` gives.
    int next();
    /// The token that was read last, as it stands in the text and valid as long as that is. At the
    /// end of the input, the empty stretch there.
    std::string_view token() const {
        return {token_, static_cast<std::size_t>(position_ - token_)};
    }
    /// What it reads.
    const std::array<std::string_view, 3>& parts() const { return parts_; }
    /// Where a comment begins that is not closed; null when there is none.
    const char* openComment() const { return openComment_; }
    /// A "#line" line that ended the input, as it does not say a line and a file; null for none.
    const char* badDirective() const { return badDirective_; }

    /// A file that the text was expanded with, and where.
    struct Include {
        FND::String file;
        FND::String from;
        int line;
    };
    /// The String literal that begins at `text` ends with its line from now on: its closing quote
    /// is missing.
    void endTextWithLine(const char* text) { openTexts_.push_back(text); }
    /// The literals for which that was called.
    const std::vector<const char*>& openTexts() const { return openTexts_; }
    /// Goes back to `place`, from `token`, a token read before, or further on, on to the last one.
    /// All of it is in the same piece of text and has no "#line" line. False when that is not so.
    bool goBack(const char* token, const char* place);

    /// Those met so far, in their order.
    const std::vector<Include>& includes() const { return includes_; }

    /// The line that the scanner has reached, 1-based.
    int line() const { return line_; }
    /// The name of the file of that line; empty when none was given.
    const FND::String& fileName() const { return fileName_; }
    /// The number of braces opened and not closed.
    int braceDepth() const { return braceDepth_; }

private:
    // Moves on to the next part of the input that is not empty. False, at the end of the last one,
    // when there is none.
    bool enterNextPart();
    bool isLineEndNext() const;

    // Moves to the next token, over what stands before it. False at the end of the input.
    bool findToken();
    // The same over comments and lines about lines, too.
    bool findTokenAfterMore();
    void skipComment();
    // Moves over a "#line" line. False when it does not say a line and a file.
    bool readLineDirective();
    // The same within a comment, where other lines are left alone.
    void skipLineDirective();
    // Goes on in the line and file that `text`, the rest of a "#line" line, says.
    bool goTo(std::string_view text);
    // Moves over a token and gives its code. One that cannot begin there is a token of one byte.
    int scanToken();
    int scanWord();
    int scanNumber();
    int scanString();

    // The end of the run that begins at `from` of bytes for which `isOfRun` is true.
    template <class Predicate>
    const char* endOfRun(const char* from, Predicate isOfRun);
    // Counts what lies before `end`, every few thousand bytes.
    void countTo(const char* end);
    // Line numbers end at the largest one.
    void countLines(std::int64_t lines);

    std::array<std::string_view, 3> parts_;
    std::size_t part_ = 0;
    const char* position_;
    const char* end_;      // of the part
    const char* counted_;  // what lies before was counted
    const char* token_;
    const char* openComment_ = nullptr;
    const char* badDirective_ = nullptr;
    int line_ = 1;
    int braceDepth_ = 0;
    FND::String fileName_;
    const TypeNames* types_ = hostTypesG;
    std::vector<Include> includes_;
    std::vector<const char*> openTexts_;
};

/// The text of a string literal: a backslash is dropped and the next byte taken for itself, but
/// "n" for a line feed, "t" for a tab and "r" for a carriage return. Appended to `out`.
void convertEscapeChars(std::string_view literal, FND::String& out);

}  // namespace SCR
