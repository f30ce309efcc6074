#pragma once

#include <cstddef>
#include <limits>
#include <vector>

#include "author/Lines.h"

namespace Author {

/// Characters of a line before it is broken.
inline constexpr std::size_t mostColumnsS = 100;
/// Columns of a step of indentation.
inline constexpr std::size_t stepS = 4;

/// The characters of `text`.
std::size_t columnsOf(std::string_view text);

/// Decides where blanks stand in a line, and where one that is too long goes on in the next: at
/// the signs that bind least, with the parts below one another.
class Breaks {
public:
    /// No new line begins before the word.
    static constexpr std::size_t stay = std::numeric_limits<std::size_t>::max();

    explicit Breaks(const Lines& lines) : lines_(lines) {}

    /// Whether a blank stands between the word `index`, which is not the first one of `line`, and
    /// the one before.
    bool hasBlank(const Line& line, std::size_t index) const;
    /// The columns that `line` takes without indentation if it is not broken; of a text over
    /// several lines those of the first one.
    std::size_t width(const Line& line) const;
    /// For each word of `line` the column in which it begins a new line, or `stay`.
    std::vector<std::size_t> place(const Line& line);

private:
    // From the weakest to the strongest.
    enum class Strength {
        Semicolon,
        Comma,
        Assignment,
        Bool,
        Comparison,
        Sum,
        Product,
        Text,
        None
    };

    bool isUnary(std::size_t index) const;
    Strength strengthOf(std::size_t index) const;
    Strength weakest(std::size_t begin, std::size_t end) const;
    std::size_t blankBefore(std::size_t index) const;
    // The columns from the first word to the last one.
    std::size_t columns(std::size_t begin, std::size_t end) const;
    bool fits(std::size_t begin, std::size_t end, std::size_t tail) const;

    void put(std::size_t index, bool isFirst);
    void startLine(std::size_t index, std::size_t column);
    // Places the words; `tail` columns follow them in the same line.
    void range(std::size_t begin, std::size_t end, std::size_t tail, int depth);
    void split(std::size_t begin, std::size_t end, std::size_t tail, Strength strength, int depth);
    void assignment(std::size_t begin, std::size_t sign, std::size_t end, std::size_t tail,
                    int depth);
    void group(std::size_t begin, std::size_t end, std::size_t tail, int depth);

    const Lines& lines_;
    // Of the line being placed, by the number of the word in it.
    Line line_;
    std::vector<std::size_t> starts_;  // the column of each if nothing is broken
    std::vector<std::size_t> widths_;
    std::vector<std::size_t> closing_;  // of a bracket the number of the one that closes it
    std::vector<std::size_t> placed_;
    std::size_t column_ = 0;
};

}  // namespace Author
