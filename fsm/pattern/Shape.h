#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "fsm/PatternOptions.h"

namespace FSM {

/// A pattern that is only words and ".*", taken apart: words that follow each other at any
/// distance in one line. Such patterns need no automaton of their own.
struct Shape {
    /// The words, one after the other, without escapes, in one case if that is ignored. Only a
    /// single one may be empty.
    std::string bytes;
    std::vector<std::size_t> ends;  // of each word in `bytes`
    bool startsWild = false;        // anything may come before the first word
    bool endsWild = false;          // anything may come after the last word

    /// Reads a pattern. False if it is more than that, or wrong.
    bool read(std::string_view pattern, const PatternOptions& options);

    std::size_t wordCount() const { return ends.size(); }
    std::string_view word(std::size_t index) const {
        const std::size_t begin = index == 0 ? 0 : ends[index - 1];
        return std::string_view(bytes).substr(begin, ends[index] - begin);
    }
    bool isWild() const { return startsWild || endsWild || wordCount() > 1; }
    /// One word at the beginning of the text, with or without ".*" after it.
    bool isLiteral() const { return wordCount() == 1 && !startsWild; }

private:
    void fold(const PatternOptions& options);
};

}  // namespace FSM
