#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "fsm/store/Account.h"

namespace re2 {
class RE2;
}

namespace SCR {

class SearchAutomaton;

/// A compiled regular expression in POSIX extended syntax over bytes, for the regular-expression
/// functions. Only this class knows the library behind it; plain expressions do without the
/// library. Time is linear in the text and memory is bounded, whatever the pattern.
///
/// Of the matches that start first, the longest counts. Case matters. "." and "[^...]" match every
/// byte, including line ends and NUL; "^" and "$" match only at the ends of the text. Beyond POSIX
/// there are the classes \d \s \w \D \S \W, the word boundaries \b and \B and the escapes of C (\n,
/// \t, \x41), also inside brackets, where a backslash itself is written "\\". There are no back
/// references and no repetitions of more than 1000 times.
///
/// Immutable; any number of threads may search at once.
class RegExpr {
public:
    /// `share` is the memory, in bytes beyond the least that it needs, in which it may keep the
    /// results of searches. All memory that it may ever take is charged to the budget of the
    /// calling thread.
    explicit RegExpr(std::string_view pattern, std::int64_t share = std::int64_t{1} << 20);
    /// The longest time that compiling `pattern` may take; compiling cannot be interrupted.
    static std::size_t millisecondsToCompile(std::string_view pattern);
    RegExpr(const RegExpr&) = delete;
    RegExpr& operator=(const RegExpr&) = delete;
    ~RegExpr();

    /// Whether the pattern is well-formed and not too large. An invalid one matches nothing.
    bool isValid() const;

    /// Whether the expression does without the library; then it uses nothing of its share.
    bool isPlain() const { return automaton_ != nullptr; }

    /// The largest number of steps that a search takes for each byte of the text. A step takes some
    /// nanoseconds, 60 in the worst known case. Usually a search takes one step a byte, whatever
    /// the size. A search cannot be interrupted.
    std::size_t size() const;

    /// The first match in `text` that starts at byte `start` or after, as a view into `text`. "^"
    /// and word boundaries also look at the text before `start`. Nothing when there is no match or
    /// `start` is beyond the end.
    std::optional<std::string_view> search(std::string_view text, std::size_t start) const;
    /// The beginning of that match, a byte of `text` or its end.
    std::optional<std::size_t> find(std::string_view text, std::size_t start) const;

private:
    std::optional<std::string_view> searchByLibrary(std::string_view text, std::size_t start) const;

    FSM::Charge charge_;
    std::unique_ptr<re2::RE2> expression_;        // null if the pattern is far too large
    std::unique_ptr<SearchAutomaton> automaton_;  // of a plain expression; faster
};

}  // namespace SCR
