#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "scr/advice/SourceTokens.h"

namespace Author {

/// A line of a script as it is laid out, if it is short enough: a statement, the head of one with
/// the brace that follows it, or a closing brace with what goes on after it.
struct Line {
    std::size_t first = 0;  ///< in the words of the text
    std::size_t end = 0;
    std::size_t level = 0;  ///< how many steps it is indented
    /// How many of the following lines stand in the same one if all of it is short enough.
    std::size_t joins = 0;
    bool isSimple = false;     ///< a statement that holds no other one
    bool opensBlock = false;   ///< its last word is a brace around statements
    bool closesBlock = false;  ///< its first word is
};

/// A text cut into words and lines. Knows only the frames of statements: brackets, the words that
/// begin statements, and ";".
class Lines {
public:
    /// `text` must outlive this object.
    explicit Lines(std::string_view text);

    std::string_view text() const { return text_; }
    const std::vector<SCR::SourceToken>& tokens() const { return source_.tokens; }
    /// What the parser sees, as places in `tokens()`.
    const std::vector<std::size_t>& words() const { return words_; }
    const SCR::SourceToken& word(std::size_t index) const { return source_.tokens[words_[index]]; }
    std::string_view textOf(std::size_t index) const { return word(index).in(text_); }
    const std::vector<Line>& lines() const { return lines_; }

    /// What keeps the text from being cut, and where; empty if nothing does.
    const std::string& fault() const { return fault_; }
    std::size_t faultAt() const { return faultAt_; }

private:
    static constexpr std::size_t none = SCR::SourceTokens::none;

    bool isSign(std::size_t index, char sign) const;
    SCR::Word wordAt(std::size_t index) const;
    bool isUnseenBefore(std::size_t index) const;
    bool isIncludeBefore(std::size_t index) const;
    bool fail(const std::string& fault, std::size_t index);
    bool failAtOpen(std::size_t index);

    // Each moves `next_` over what it names; false after a fault. Lines begin at `from`.
    bool list(std::size_t level, bool isBlock);
    bool statement(std::size_t level);
    bool conditional(std::size_t level, std::size_t from);
    bool loop(std::size_t level);
    bool doLoop(std::size_t level);
    bool choice(std::size_t level);
    bool oneCase(std::size_t level);
    bool function(std::size_t level);
    bool simple(std::size_t level);
    // The braces and what is in them. The closing one begins the line that is `pending_` then.
    bool block(std::size_t level, std::size_t from);
    // A block, or another statement on a line of its own; nothing is pending after the latter.
    bool body(std::size_t level, std::size_t from);
    bool brackets();
    bool header();
    // Whether an operator stands between any two operands among the words that were moved over
    // since `from`.
    bool operandsFit(std::size_t from);
    bool expect(char sign, const char* fault);

    Line& add(std::size_t from, std::size_t level);
    void flush(std::size_t level);
    // Where a line begins that goes on with the next word: at the closing brace before it, if
    // nothing stands between them.
    std::size_t goOn(std::size_t level);

    std::string_view text_;
    SCR::SourceTokens source_;
    std::vector<std::size_t> words_;
    std::vector<Line> lines_;
    std::size_t next_ = 0;
    std::size_t pending_ = none;
    std::size_t depth_ = 0;
    std::string fault_;
    std::size_t faultAt_ = 0;
};

}  // namespace Author
