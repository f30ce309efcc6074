#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "scr/advice/SourceTokens.h"

namespace Author {

/// A place as editors count it: both from 0, the column in UTF-16 units.
struct Position {
    std::size_t line = 0;
    std::size_t column = 0;
    bool operator==(const Position&) const = default;
};

/// The begins of a text's lines. Lines end in "\n", "\r\n" or "\r".
class LineTable {
public:
    explicit LineTable(std::string_view text) { update(text); }
    /// For the text that it has become.
    void update(std::string_view text);

    std::size_t count() const { return begins_.size(); }
    /// The line that the byte `offset` is in, from 0.
    std::size_t lineOf(std::size_t offset) const;
    std::size_t begin(std::size_t line) const { return begins_[line]; }

    /// A byte in the middle of a character counts as its end; a place after the text as its end.
    Position position(std::string_view text, std::size_t offset) const;
    /// A place after the end of a line is that end; one after the last line the end of the text.
    /// The second half of a character is its begin.
    std::size_t offset(std::string_view text, Position position) const;

private:
    static constexpr std::size_t blockCM = 512;

    std::vector<std::size_t> begins_;
    std::vector<std::size_t> columns_;  // of every 512th byte, and of the end
};

/// Counts the columns of one place after the other.
class PositionWalk {
public:
    /// Both must live as long.
    PositionWalk(std::string_view text, const LineTable& lines) : text_(text), lines_(lines) {}
    /// The same as `LineTable::position`, for an `offset` in the text that is not before the one
    /// asked for last.
    Position to(std::size_t offset);

private:
    const std::string_view text_;
    const LineTable& lines_;
    std::size_t at_ = 0;
    Position position_;
};

/// A text that does not change, with its tokens and lines.
class SourceText {
public:
    /// `path` is that of the file; empty for none.
    SourceText(std::string path, std::string text);
    SourceText(const SourceText&) = delete;
    SourceText& operator=(const SourceText&) = delete;

    const std::string& path() const { return path_; }
    const std::string& text() const { return text_; }
    const std::vector<SCR::SourceToken>& tokens() const { return source_.tokens; }
    std::string_view textOf(const SCR::SourceToken& token) const { return token.in(text_); }
    const LineTable& lines() const { return lines_; }
    Position position(std::size_t offset) const { return lines_.position(text_, offset); }
    std::size_t offset(Position position) const { return lines_.offset(text_, position); }

    /// The number of the first token that ends at `offset` or later; that of all tokens for none.
    std::size_t tokenAt(std::size_t offset) const;
    /// The comment in lines of its own right before the line of `offset`, without its signs.
    std::string commentBefore(std::size_t offset) const;

private:
    std::string path_;
    std::string text_;
    SCR::SourceTokens source_;
    LineTable lines_;
};

}  // namespace Author
