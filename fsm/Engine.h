#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "fsm/PatternOptions.h"
#include "fsm/State.h"

namespace FSM {

/// A match of a pattern within a text: the bytes from `begin` to before `end`.
struct Match {
    /// `begin` of a match of which only the end is known.
    static constexpr std::size_t unknownCM = ~std::size_t{0};

    std::size_t begin;
    std::size_t end;
    std::int32_t path;

    friend auto operator<=>(const Match&, const Match&) = default;
};

/// Which matches a search gives. Matches are never empty.
enum class Find {
    /// Of all matches those that begin first, of these the longest, and so on after its end. If
    /// several patterns match these bytes, the one with the lowest number.
    LeftmostLongest,
    /// For each place at which a match ends, each pattern with such a match, once, in the order of
    /// the ends. `begin` is known if all patterns are words without operators.
    AllEnds
};

struct Analysis;
class SavedFile;
class Searcher;
class Table;

/// One deterministic automaton for a list of patterns. In one pass over a text it tells which of
/// the patterns match the whole text.
///
/// Insert the patterns, call `finalSetup` once, then match as often as you like. Until `finalSetup`
/// returns, one thread uses the engine; after that any number of threads may match at once. Only
/// exceptions of a `Budget` are thrown; any other failure gives false and a text in `error`.
class KESTREL_API Engine {
public:
    /// The path number that means the number of patterns inserted before.
    static constexpr unsigned long nextPathCM = ~0UL;
    /// The most states that any automaton may have, and the default of `stateLimit`.
    static constexpr std::size_t mostStatesCM = std::size_t{1} << 24;
    /// The default of `workLimit`.
    static constexpr std::size_t defaultWorkCM = std::size_t{1} << 28;

    /// `expectedCount` is the number of patterns to come, all ones for unknown; nothing depends on
    /// it.
    explicit Engine(unsigned int expectedCount = ~0U);
    ~Engine();
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    const PatternOptions& options() const;
    /// Sets how patterns and texts are read. To be set before the first pattern.
    void options(const PatternOptions& options);

    /// Adds a pattern that is reported as `pathNumber` (0 to 2147483647). Patterns that share a
    /// number are reported as one. False if the pattern does not parse (two lines on standard
    /// output say so), if the number is out of range, if the patterns grow out of proportion to the
    /// state limit, or after `finalSetup`; only the error text changes then.
    bool insertPattern(const FND::String& pattern, unsigned long pathNumber = nextPathCM);
    /// The same without the lines on standard output.
    bool addPattern(const FND::String& pattern, unsigned long pathNumber = nextPathCM);

    /// Builds the automaton and frees the patterns. True when it was built, now or before, or when
    /// there is nothing to build. False when it would pass the state limit or memory ran out: all
    /// memory is given back and `process` returns null; only `clear` makes the engine usable again.
    bool finalSetup();

    /// The state in which the whole text up to its terminating NUL ends; its `pathNumbers` are
    /// those of the patterns that match. When the text leaves the automaton, because no pattern can
    /// match any more, gives the start state. Null before `finalSetup` or without patterns. Owned
    /// by the engine.
    const State* process(const char* text) const;
    /// The same for a text of known length; it ends at the first NUL if it holds one.
    const State* process(std::string_view text) const;

    /// The lowest path number that `process` reports for the text, or -1. Takes no memory and no
    /// lock.
    std::int32_t firstPath(const char* text, std::size_t length) const;
    std::int32_t firstPath(std::string_view text) const {
        return firstPath(text.data(), text.size());
    }

    /// The same for a long text: `pause` is called after each piece, with its length in bytes; it
    /// may throw to give up.
    std::int32_t firstPath(std::string_view text, void (*pause)(std::size_t bytes)) const;

    /// Whether the engine searches: `find` and `Walk` look for matches within texts then, besides
    /// the matches of whole texts. To be set before the first pattern; off by default. No pattern
    /// of such an engine may be negated. Words without operators are searched without an automaton;
    /// other patterns need two more.
    bool isSearching() const;
    void isSearching(bool searches);
    /// Replaces `matches` by the matches in `text`, whose bytes may have any value, in ascending
    /// order of their ends. False, without matches, if the engine does not search or is not set up.
    /// Any number of threads may search at once. Time is in proportion to the text and to what
    /// is found; for `LeftmostLongest` also to how far a match might have gone on.
    bool find(std::string_view text, Find what, std::vector<Match>& matches) const;

    /// The text of the last failure; empty if there was none.
    const FND::String& error() const;
    /// After `finalSetup` has failed at the state limit: the path number of the pattern at which
    /// the limit was passed. Otherwise -1.
    std::int32_t guiltyPath() const;

    /// Writes the finished automaton to a file, for `load`. False, with a reason in `error`, if
    /// that fails, or if the engine is not set up or searches.
    bool save(const FND::String& file, FND::String& error) const;
    /// Sets up an empty engine from a file that `save` wrote with the same version on the same kind
    /// of machine, options included. Any other file is refused: false, and a reason in `error()`.
    /// The file is mapped, so processes share its memory; it may be replaced by renaming another
    /// one, but not changed while an engine uses it.
    bool load(const FND::String& file);

    std::size_t stateLimit() const;
    /// Sets the number of states that `finalSetup` may make, at least 1.
    void stateLimit(std::size_t states);
    std::size_t byteLimit() const;
    /// Sets the bytes that the patterns, and the automaton while it is built, may take; by default
    /// 256 MiB.
    void byteLimit(std::size_t bytes);
    std::size_t workLimit() const;
    /// Sets the steps of work, of a nanosecond or two each, that `finalSetup` may take besides an
    /// amount in proportion to the patterns; by default so many that it fails in less than a
    /// second.
    void workLimit(std::size_t steps);

    /// Number of patterns inserted.
    std::int32_t patternCount() const;
    /// Number of deterministic states; 0 before `finalSetup`.
    std::size_t stateCount() const;
    /// Bytes of memory that the finished automaton takes; 0 before `finalSetup`.
    std::size_t memory() const;
    /// The start state, from which all others can be reached; null before `finalSetup`.
    const State* startState() const;
    /// The path numbers inserted, in decimal, ascending, separated by one blank each.
    FND::String pathString() const;

    /// Frees the patterns; the finished automaton stays.
    void cleanup();
    /// Restores the state after construction. The limits and options stay.
    void clear();

    /// Prints all states, for diagnosis.
    friend KESTREL_API std::ostream& operator<<(std::ostream& out, const Engine& engine);

private:
    friend KESTREL_API std::optional<Analysis> analyse(const Engine& engine,
                                                       std::size_t maxOverlaps);

    // Used by an analysis besides the table: all path numbers inserted.
    const std::vector<std::int32_t>& paths() const;

    bool build();

    friend class Walk;

    struct Setup;
    std::unique_ptr<Setup> setup_;     // the patterns and what became of them
    std::unique_ptr<SavedFile> file_;  // that holds the table, if it was loaded
    std::unique_ptr<Table> table_;     // all that matching needs
    std::unique_ptr<Searcher> searcher_;
};

/// Matches a text that comes in pieces, with the same results as if it came at once, wherever it is
/// cut. Used by one thread; any number of walks may use an engine, which must outlive them.
class KESTREL_API Walk {
public:
    /// Begins a text. `engine` is set up.
    explicit Walk(const Engine& engine);
    ~Walk();
    Walk(const Walk&) = delete;
    Walk& operator=(const Walk&) = delete;

    /// Begins another text.
    void begin();
    /// Continues the text. For the match of the whole text it ends at its first NUL.
    void feed(std::string_view piece);
    /// The same. Appends the matches that end in this piece, as `Find::AllEnds` gives them; places
    /// count from the beginning of the text. Only for an engine that searches.
    void feed(std::string_view piece, std::vector<Match>& matches);
    /// What `Engine::process` gives for the text so far. More of it may follow.
    const State* end() const;

private:
    struct Search;

    const Engine& engine_;
    std::uint32_t row_ = 0;
    bool isEnded_ = false;
    std::unique_ptr<Search> progress_;
};

}  // namespace FSM
