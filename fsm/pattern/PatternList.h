#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "fnd/String.h"
#include "fsm/EnginePart.h"
#include "fsm/PatternOptions.h"
#include "fsm/pattern/Shape.h"

namespace FSM {

/// A pattern, with the number under which it is reported.
struct Pattern {
    std::unique_ptr<EnginePart> part;  // null if it is only words and ".*" and not parsed yet
    std::int32_t path;
    FND::String text;
    Charge textCharge{blockBytes(text.size())};

    bool isNegated() const { return part != nullptr && part->isNegated(); }
    /// Parses it if that is still to be done. Throws std::bad_alloc.
    void parse(const PatternOptions& options);
    /// Parses it for texts in UTF-8 alone.
    void parseForUtf8(const PatternOptions& options);
};

/// What an automaton, or all parts of a group, may take. The bytes are those of the finished
/// automaton and of what is needed to build it. The work is told in steps, most of which take a
/// nanosecond or two, and is what may be spent besides an amount in proportion to the patterns.
struct BuildLimits {
    static constexpr std::size_t defaultBytesCM = std::size_t{256} << 20;
    static constexpr std::size_t defaultWorkCM = std::size_t{1} << 28;
    // What a group spends on an automaton at most before it tries something else.
    static constexpr std::size_t trialWorkCM = std::size_t{1} << 26;
    std::size_t states;
    std::size_t bytes = defaultBytesCM;
    std::size_t work = defaultWorkCM;
};

/// The limit that a build would have passed.
enum class Limit { None, States, Bytes, Work };

/// The place of the last of `count` patterns that is negated; of the last one if none is.
std::size_t lastNegated(const Pattern* first, std::size_t count);

/// `paths` in ascending order, each once.
std::vector<std::int32_t> sortedOnce(std::vector<std::int32_t> paths);

/// The patterns given to an engine or a group, until its automata are built. One thread at a time
/// uses a list; different lists are independent.
class PatternList {
public:
    /// The path number that means the number of patterns inserted before.
    static constexpr unsigned long nextPathCM = ~0UL;

    /// Parses `pattern` and appends it. False if it is refused; only `error` changes then. Also
    /// refused if the patterns together take more than `byteLimit` bytes. Patterns of words and
    /// ".*" are not parsed if `keepsWords`. Throws the exceptions of the budget, with the list
    /// unchanged.
    bool insert(const FND::String& pattern, unsigned long pathNumber, std::size_t byteLimit,
                bool keepsWords);

    const PatternOptions& options() const { return options_; }
    /// To be set before the first pattern.
    void options(const PatternOptions& options) { options_ = options; }

    const Vector<Pattern>& patterns() const { return patterns_; }
    Vector<Pattern>& patterns() { return patterns_; }
    /// Takes back the last insertion.
    void dropLast() { patterns_.pop_back(); }
    /// Sorted numbers of all patterns, each once.
    std::vector<std::int32_t> paths() const;
    const FND::String& error() const { return error_; }
    /// Whether the pattern given last was refused because it does not parse.
    bool isUnparsed() const { return isUnparsed_; }

    /// Sorted numbers of the patterns that are negated, each once.
    static std::vector<std::int32_t> negatedPaths(const Pattern* first, std::size_t count);

    /// The error text for a limit of so many `units`, such as "states", passed at `guilty`.
    static FND::String limitError(const Pattern& guilty, std::size_t limit, const char* units) {
        return limitError(guilty.path, guilty.text, limit, units);
    }
    static FND::String limitError(std::int32_t path, const FND::String& pattern, std::size_t limit,
                                  const char* units);
    /// The one for that of `limits` that was passed.
    static FND::String limitError(const Pattern& guilty, const BuildLimits& limits, Limit passed);

    /// Moves all patterns out.
    Vector<Pattern> take();
    /// Frees all patterns; the error text stays.
    void clear();

private:
    PatternOptions options_;
    Vector<Pattern> patterns_;
    Shape shape_;  // reused
    std::size_t bytes_ = 0;
    FND::String error_;
    bool isUnparsed_ = false;
};

}  // namespace FSM
