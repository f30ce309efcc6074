#include "scr/builtin/search/RegExpr.h"

#include <re2/re2.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "scr/builtin/search/RegExprSize.h"
#include "scr/builtin/search/SearchAutomaton.h"

namespace SCR {

namespace {

// Bytes that the library may use for one expression.
constexpr std::int64_t mostMemoryS = std::int64_t{8} << 20;
// The library refuses an expression with more items, but first takes all the memory that it needs
// to find out.
constexpr std::size_t mostItemsS = std::size_t{1} << 20;
// Compiling cannot be interrupted. Optional parts make it take time in proportion to their number
// and to the size of the whole. An expression that may take more than these nanoseconds is not
// tried.
constexpr std::uint64_t mostNanosecondsS = 5'000'000'000;

// Usually it is compiled once or twice.
std::uint64_t nanosecondsToCompile(const RegExprSize& size) {
    return std::uint64_t{2} * size.instructions * (300 + size.loops);
}

re2::RE2::Options options(std::int64_t memory) {
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
    options.set_max_mem(memory);
    return options;
}

std::unique_ptr<re2::RE2> compile(std::string_view pattern, std::int64_t memory) {
    return std::make_unique<re2::RE2>(re2::StringPiece(pattern.data(), pattern.size()),
                                      options(memory));
}

// Whether alternatives may begin with a common byte above 127. The library factors out such a
// beginning, looks for it in UTF-8, and finds nothing.
bool mayShareHighByte(std::string_view pattern) {
    if (pattern.find('|') == std::string_view::npos) return false;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (static_cast<unsigned char>(pattern[i]) > 127) return true;
        // The byte may be written as an escape.
        constexpr std::string_view numbers("x01234567");
        if (pattern[i] == '\\' && i + 1 < pattern.size() &&
            numbers.find(pattern[i + 1]) != std::string_view::npos)
            return true;
    }
    return false;
}

// An equal expression without a common beginning that the library could factor out: the second
// alternative, which never matches, has none.
std::string withoutBeginning(std::string_view pattern) {
    return "(" + std::string(pattern) + ")|[^\\x00-\\xff]";
}

}  // namespace

RegExpr::RegExpr(std::string_view pattern, std::int64_t share) {
    // The states that searches find need more memory the larger the expression is. They are not
    // counted one by one, so the largest amount is charged at the start.
    constexpr std::size_t bytesAnInstruction = 1024;
    constexpr std::size_t bytesAByte = 72;  // of the tree that the library reads the pattern into
    constexpr std::size_t bytesToCompile = 288;
    constexpr std::int64_t fallbackShare = 16 << 10;  // of the part that is hardly ever used
    const RegExprSize size = sizeOfRegExpr(pattern);
    if (size.items > mostItemsS || nanosecondsToCompile(size) > mostNanosecondsS) return;
    automaton_ = SearchAutomaton::make(pattern);
    if (automaton_) charge_.take(automaton_->memory());
    const auto wanted = static_cast<std::int64_t>(size.instructions * bytesAnInstruction);
    std::int64_t memory = std::min(wanted + (automaton_ ? fallbackShare : share), mostMemoryS);
    charge_.take(static_cast<std::size_t>(memory) + bytesAByte * pattern.size());
    const FSM::Charge whileCompiling(bytesToCompile * size.instructions);
    const auto compileIn = [&](std::string_view text) {
        expression_ = compile(text, memory);
        if (expression_->error_code() != re2::RE2::ErrorPatternTooLarge || memory == mostMemoryS)
            return;
        charge_.take(static_cast<std::size_t>(mostMemoryS - memory));
        memory = mostMemoryS;
        expression_ = compile(text, memory);
    };
    compileIn(pattern);
    if (!expression_->ok()) {
        automaton_.reset();
    } else if (mayShareHighByte(pattern)) {
        compileIn(withoutBeginning(pattern));
    }
}

RegExpr::~RegExpr() = default;

std::size_t RegExpr::millisecondsToCompile(std::string_view pattern) {
    return nanosecondsToCompile(sizeOfRegExpr(pattern)) / 1'000'000;
}

bool RegExpr::isValid() const { return expression_ && expression_->ok(); }

std::size_t RegExpr::size() const {
    return isValid() ? static_cast<std::size_t>(std::max(expression_->ProgramSize(), 1)) : 1;
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
