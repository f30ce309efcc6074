#pragma once

#include <cstddef>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "fsm/PatternOptions.h"

/// The scanner of patterns: gives the tokens of one pattern, one after the other. The token codes
/// are those of the grammar, 257 to 274. Used by one thread at a time.
class FSM_FlexLexer {
public:
    /// Reads `in` to its end; the pattern ends at the first NUL, if there is one, unless the
    /// options say that NUL is a byte like others. `out` is not used: every byte of a pattern
    /// belongs to a token. Neither is kept.
    explicit FSM_FlexLexer(std::istream* in, std::ostream* out = nullptr);
    explicit FSM_FlexLexer(std::string pattern, const FSM::PatternOptions& options = {});

    const FSM::PatternOptions& options() const { return options_; }
    /// Whether the automaton will only meet texts in UTF-8; false at first.
    bool meetsUtf8Only() const { return meetsUtf8Only_; }
    void meetsUtf8Only(bool is) { meetsUtf8Only_ = is; }
    /// Whether the pattern should be UTF-8 and is not, at the token read last.
    bool isMisencoded() const { return isMisencoded_; }

    /// The code of the next token. Sets `value` to its value: for a token of one byte, the byte as
    /// a signed number, or with UTF-8 the code of its character; for NUMBER, the number, at most
    /// 2147483647. 0, with value 0, at the end.
    int yylex(int& value);

    /// After a token of one byte outside of sets: takes the bytes that follow, too, as long as each
    /// stands for itself and no operator follows it. False if there are none. `text` has all.
    bool takeText();
    const std::string& text() const { return text_; }

    /// The value of the token read last; 0 before the first.
    int lastValue() const { return lastValue_; }

    /// Where the token read last begins, in bytes.
    std::size_t tokenBegin() const { return tokenBegin_; }

    /// Memory for the parser that reads from this scanner; freed with the scanner.
    void* takeMemory(std::size_t bytes);

private:
    enum class Condition { Initial, Set, Count };

    int scan(int& value);
    int takeCharacter();
    int scanEscape(int& value);
    int scanNumber(int& value);
    char look(std::size_t distance) const;

    FSM::PatternOptions options_;
    std::string pattern_;
    std::size_t position_ = 0;
    std::size_t tokenBegin_ = 0;
    Condition condition_ = Condition::Initial;
    bool atLineStart_ = true;
    bool isMisencoded_ = false;
    bool meetsUtf8Only_ = false;
    std::string text_;
    int lastValue_ = 0;
    std::vector<std::unique_ptr<std::byte[]>> memory_;
};
