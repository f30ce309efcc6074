#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "fsm/Account.h"

namespace re2 {
class RE2;
}

namespace SCR {

class SearchAutomaton;

/// A compiled regular expression in POSIX extended syntax over bytes, for the regular-expression
/// functions; the only place that knows the library behind it, which plain expressions do without.
/// Time is linear in the text and memory bounded, whatever the pattern.
///
/// Of the matches that start first, the longest counts. Case matters. "." and "[^...]" match every
/// byte, line ends and NUL included; "^" and "$" match at the ends of the text only. Beyond POSIX,
/// the classes \d \s \w \D \S \W, the word boundaries \b and \B and the escapes of C (\n, \t, \x41)
/// are known, inside brackets too, where a backslash itself is written "\\". Back references and
/// repetitions of more than 1000 times are not.
///
/// Immutable; any number of threads may search at once.
class RegExpr {
public:
    /// `share` is what it may keep of what searches find out, in bytes beyond those that it needs.
    /// All that it may come to take is charged to the budget of the calling thread.
    explicit RegExpr(std::string_view pattern, std::int64_t share = std::int64_t{1} << 20);
    /// How long it may take at the worst to make one of `pattern`, which is not interrupted.
    static std::size_t millisecondsToCompile(std::string_view pattern);
    RegExpr(const RegExpr&) = delete;
    RegExpr& operator=(const RegExpr&) = delete;
    ~RegExpr();

    /// Whether the pattern is well-formed and not too large. An invalid one matches nothing.
    bool isValid() const;

    /// Whether the expression does without the library; then it takes nothing of its share.
    bool isPlain() const { return automaton_ != nullptr; }

    /// The steps that a search takes for each byte of the text, at the worst: some nanoseconds
    /// each, in the worst case known 60. Mostly a search takes one step a byte, whatever the size.
    /// It is not interrupted.
    std::size_t size() const;

    /// The first match in `text` that starts at byte `start` or after, as a view into `text`. What
    /// lies before `start` counts for "^" and for word boundaries. Nothing when there is no match
    /// or `start` is beyond the end.
    std::optional<std::string_view> search(std::string_view text, std::size_t start) const;
    /// Where that match begins, a byte of `text` or its end.
    std::optional<std::size_t> find(std::string_view text, std::size_t start) const;

private:
    std::optional<std::string_view> searchByLibrary(std::string_view text, std::size_t start) const;

    FSM::Charge charge_;
    std::unique_ptr<re2::RE2> expression_;        // null if the pattern is far too large
    std::unique_ptr<SearchAutomaton> automaton_;  // of a plain expression; faster
};

}  // namespace SCR
