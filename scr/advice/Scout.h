#pragma once

#include <array>
#include <cstddef>
#include <deque>
#include <string_view>
#include <vector>

#include "fnd/String.h"
#include "scr/Log.h"
#include "scr/parser/CustomLexer.h"
#include "scr/parser/Span.h"

namespace SCR {

/// Reads the tokens of a text again, after an error, to tell what stands where. It goes over the
/// text once, however many errors there are.
class Scout {
public:
    struct Token {
        int code = 0;
        Span span;
        std::size_t indent = 0;  // of the line that it is in
        bool isFirst = false;    // in its line
        std::string_view text() const { return span.text(); }
        bool is(std::string_view word) const { return text() == word; }
    };
    struct Bracket {
        Token token;
        Token before;               // the token before it
        std::size_t statement = 0;  // the number of the statement that it is in
        bool isSwitch = false;      // a brace that begins the cases of a switch
    };
    struct Declaration {
        std::string_view name;
        Span span;
        bool isFunction = false;
    };

    /// `openTexts` are the String literals that end with their lines.
    Scout(std::string_view head, std::string_view body, std::string_view tail,
          const std::vector<const char*>& openTexts = {});

    /// Reads up to and including the token that begins at `begin`.
    void readTo(const char* begin);
    void readToEnd();
    /// The token `back` tokens before the one read last; code 0 when there is none.
    Token token(std::size_t back = 0) const;
    /// The token after the one read last.
    Token next() const;
    /// The tokens in `span`, of a long one the first few hundred.
    std::vector<Token> tokensIn(Span span) const;

    /// The brackets that are open, without the one read last.
    const std::vector<Bracket>& open() const { return open_; }
    /// A statement is given up: its parentheses and brackets are not open any more.
    void dropOpen();
    /// The parentheses and brackets below the innermost brace are not open any more.
    void dropParentheses();
    /// The number of the statement of the token read last.
    std::size_t statement() const { return statement_; }
    /// A brace whose closing one stands further left than its line; null begin for none.
    const Bracket& suspect() const { return suspect_; }
    /// The bracket that was closed last, before the token read last.
    const Bracket& closed() const { return closed_; }
    /// Whether the text is a list of conditions.
    bool isConditionList() const { return parts_[0].starts_with("CONDITIONS"); }
    /// The first text over several lines of the statement being read or the one before.
    const Token& longText() const { return longText_; }
    /// What is declared up to the token read last, and in the rest of the text.
    const std::vector<Declaration>& declarations() const { return declarations_; }
    std::vector<Declaration> laterDeclarations() const;
    const CustomLexer& lexer() const { return lexer_; }

    /// Whether the last sign before `at` is a closing parenthesis.
    bool afterParenthesis(const char* at) const;
    /// Whether `span` lies in the text, and so is not a part of what the parser puts before it.
    bool isInText(Span span) const;
    Diagnostic::Place place(Span span) const;
    /// Whether a comment in the line of `span`, or in the one before, tells to ignore `code`.
    bool isIgnored(Span span, std::string_view code) const;
    /// Whether both lie in the same line.
    bool isSameLine(const char* first, const char* second) const;
    /// Sets the place, and the line of the text with it.
    void locate(Span span, Diagnostic& diagnostic) const;
    /// The first bytes of the text.
    std::string_view textBegin() const { return parts_[1].substr(0, 200); }
    /// The line that `at` is in.
    std::string_view lineAt(const char* at) const { return lineOf(at); }
    /// The number of bytes from `at` to the end of the piece of text that it is in.
    std::size_t rest(const char* at) const;
    /// `span` in one line, cut if it is long: for a message.
    static FND::String shown(Span span);

private:
    struct Mark {
        const char* at;
        int line;
        std::size_t file;
    };

    bool read();
    void measure(Token& token);
    void note(const Token& token);
    std::string_view partOf(const char* at) const;
    std::string_view lineOf(const char* at) const;
    int columnOf(std::string_view line, std::size_t before) const;
    void mark();
    // Notes of the include lines that led to the file of the place.
    void addIncludes(Diagnostic& diagnostic) const;

    std::array<std::string_view, 3> parts_;
    CustomLexer lexer_;
    bool isAtEnd_ = false;
    const char* lineBegin_ = nullptr;  // of the token read last
    std::size_t lineIndent_ = 0;
    std::deque<Token> tokens_;  // the last ones
    std::size_t count_ = 0;
    std::size_t statement_ = 0;
    std::vector<Bracket> open_;
    std::size_t deeper_ = 0;      // brackets in those that are not known
    bool isAfterSwitch_ = false;  // the parenthesis closed last was that of a switch
    Bracket closed_;
    Bracket suspect_;
    Token longText_;
    std::size_t longTextStatement_ = 0;
    std::vector<Declaration> declarations_;
    std::vector<FND::String> files_;
    std::vector<Mark> marks_;
    // The column found last.
    mutable const char* lastLine_ = nullptr;
    mutable std::size_t lastBefore_ = 0;
    mutable int lastColumn_ = 1;
};

/// Whether a comment in line `number` of `text`, 1-based, or in the one before, tells to ignore the
/// warning `code`.
bool isIgnoredInLine(std::string_view text, int number, std::string_view code);

/// `span` up to the end of its last token.
Span trimmed(Span span);

}  // namespace SCR
