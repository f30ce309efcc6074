#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace SCR {

/// Finds the matches of a regular expression that is plain and small: bytes, bracket expressions
/// without classes or escapes in them, ".", \d \s \w \D \S \W, groups, "|", "*", "+" and "?". All
/// other expressions, and those that match the empty text, are left to the library behind
/// `RegExpr`.
///
/// The expression is read into the parts that `FSM` builds automata from, and `FSM` makes it
/// deterministic. The search differs from that of `FSM::Engine`, which tells whether a text matches
/// as a whole: this one starts at each byte that a match may begin with, remembers the longest
/// match, and treats NUL and newline like any other byte. Immutable; any number of threads may
/// search at once.
class SearchAutomaton {
public:
    /// The automaton of a well-formed `pattern`; null when the pattern is not plain and small.
    static std::unique_ptr<SearchAutomaton> make(std::string_view pattern);

    /// The bytes that it takes.
    std::size_t memory() const {
        return sizeof *this + rows_.capacity() * sizeof(Row) + isFinal_.capacity();
    }

    /// How a search ended.
    enum class Outcome {
        None,
        Found,
        Stuck  ///< Too much was read twice; search the rest by other means.
    };
    struct Result {
        Outcome outcome;
        std::size_t begin;  ///< of the match; when stuck, where to go on
        std::size_t end;
    };

    /// The first match in `text` that begins at `start` or after. `isLongest`: the longest of those
    /// that begin there; otherwise its end is not defined. Takes time linear in the text; a script
    /// can be stopped in a long one.
    Result search(std::string_view text, std::size_t start, bool isLongest) const;

private:
    using State = std::uint8_t;
    using Row = std::array<State, 256>;

    static constexpr State deadCM = 0;
    static constexpr State firstCM = 1;
    static constexpr std::size_t maxStatesCM = 64;

    SearchAutomaton() = default;

    // `counts`: the text is so long that each piece of it counts as work.
    template <bool counts>
    Result find(std::string_view text, std::size_t start, bool isLongest) const;

    std::vector<Row> rows_;
    std::vector<char> isFinal_;        // by state
    std::array<bool, 256> isBegin_{};  // the bytes that a match may begin with
};

}  // namespace SCR
