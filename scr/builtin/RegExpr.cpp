#include "scr/builtin/RegExpr.h"

#include <re2/re2.h>

#include <algorithm>

#include "scr/builtin/SearchAutomaton.h"

namespace SCR {

namespace {

/// Bytes that one expression may take, with the states that it keeps from search to search.
constexpr std::int64_t memoryLimitS = std::int64_t{8} << 20;

re2::RE2::Options options() {
    re2::RE2::Options options;
    options.set_posix_syntax(true);
    options.set_perl_classes(true);
    options.set_word_boundary(true);
    options.set_one_line(true);
    options.set_dot_nl(true);
    options.set_longest_match(true);
    options.set_never_capture(true);
    options.set_encoding(re2::RE2::Options::EncodingLatin1);
    options.set_log_errors(false);
    options.set_max_mem(memoryLimitS);
    return options;
}

}  // namespace

RegExpr::RegExpr(std::string_view pattern)
    : expression_(
          std::make_unique<re2::RE2>(re2::StringPiece(pattern.data(), pattern.size()), options())) {
    if (expression_->ok()) automaton_ = SearchAutomaton::make(pattern);
}

RegExpr::~RegExpr() = default;

bool RegExpr::isValid() const { return expression_->ok(); }

std::size_t RegExpr::size() const {
    return static_cast<std::size_t>(std::max(expression_->ProgramSize(), 1));
}

std::optional<std::string_view> RegExpr::search(std::string_view text, std::size_t start) const {
    if (start > text.size()) return std::nullopt;
    if (automaton_) {
        const SearchAutomaton::Result result = automaton_->search(text, start, true);
        if (result.outcome == SearchAutomaton::Outcome::None) return std::nullopt;
        if (result.outcome == SearchAutomaton::Outcome::Found) {
            return text.substr(result.begin, result.end - result.begin);
        }
        start = result.begin;
    }
    return searchByLibrary(text, start);
}

std::optional<std::size_t> RegExpr::find(std::string_view text, std::size_t start) const {
    if (start > text.size()) return std::nullopt;
    if (automaton_) {
        const SearchAutomaton::Result result = automaton_->search(text, start, false);
        if (result.outcome == SearchAutomaton::Outcome::None) return std::nullopt;
        if (result.outcome == SearchAutomaton::Outcome::Found) return result.begin;
        start = result.begin;
    }
    const std::optional<std::string_view> match = searchByLibrary(text, start);
    if (!match) return std::nullopt;
    return static_cast<std::size_t>(match->data() - text.data());
}

std::optional<std::string_view> RegExpr::searchByLibrary(std::string_view text,
                                                         std::size_t start) const {
    if (!isValid()) return std::nullopt;
    re2::StringPiece match;
    if (!expression_->Match(re2::StringPiece(text.data(), text.size()), start, text.size(),
                            re2::RE2::UNANCHORED, &match, 1)) {
        return std::nullopt;
    }
    return std::string_view(match.data(), match.size());
}

}  // namespace SCR
