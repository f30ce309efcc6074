#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "fsm/PatternOptions.h"

namespace FSM {

/// The interface of an engine that consists of several automata. Rows of patterns are inserted,
/// each under a path number; for a sequence of words the engine gives the numbers of the rows that
/// match it, pattern by pattern.
///
/// Insert the rows, call `finalSetup` once, then match as often as you like. Until `finalSetup`
/// returns, one thread uses the object; after that any number of threads may match at once. Only
/// exceptions of a `Budget` are thrown; any other failure gives false and a text in `error`.
class KESTREL_API MultiEngineIf {
public:
    /// The path number that means the number of rows inserted before.
    static constexpr unsigned long nextPathCM = ~0UL;

    virtual ~MultiEngineIf();

    /// Adds a row: one pattern for each word. `pathNumber` is 0 to 2147483647. False, with only the
    /// error text changed, if a pattern does not parse, if the number of patterns or the path
    /// number is out of range, or after `finalSetup`.
    virtual bool insertPatterns(const std::vector<FND::String>& patterns,
                                unsigned long pathNumber = nextPathCM) = 0;

    /// Builds the automata and frees the patterns. True when they were built, now or before, or
    /// when there is nothing to build. False when that would pass a limit or memory ran out;
    /// nothing matches then, and `guiltyPath` tells which row caused it.
    virtual bool finalSetup() = 0;

    /// Fills `paths` with the numbers of the rows that match the words, ascending and each once. A
    /// word ends at its first NUL. No memory is taken but that of `paths`, which keeps it between
    /// calls, and a scratch space that each thread keeps.
    virtual void process(std::span<const std::string_view> words,
                         std::vector<std::int32_t>& paths) const = 0;
    /// The lowest number that `process` gives, or -1.
    virtual std::int32_t firstPath(std::span<const std::string_view> words) const = 0;

    /// The text of the last failure; empty if there was none.
    virtual const FND::String& error() const = 0;
    /// After `finalSetup` has failed at a limit: the number of the row at which the limit was
    /// passed. Otherwise -1.
    virtual std::int32_t guiltyPath() const = 0;

    /// Number of deterministic states of all automata; 0 before `finalSetup`.
    virtual std::size_t stateCount() const = 0;
    /// Bytes of memory that the finished automata take; 0 before `finalSetup`.
    virtual std::size_t memory() const = 0;
};

/// Matches sequences of words against rows of patterns, as in a rating table: a row matches if it
/// has as many patterns as there are words and each pattern matches its word.
///
/// Unlike an `Engine`, it never reports a pattern that matches "" for a word that leaves the
/// automaton.
///
/// All patterns of one place, each once however many rows have it, make a group. A sequence walks
/// the words of the places that tell most rows apart, and the others only for rows that may still
/// match. Build time and memory are in proportion to the different patterns of each place, plus 8
/// bytes for each pattern of a row. Threads and failures: see `MultiEngineIf`.
class KESTREL_API MultiEngine : public MultiEngineIf {
public:
    /// Patterns that a row may have.
    static constexpr std::size_t maxWordsCM = 32;

    MultiEngine();
    ~MultiEngine() override;
    MultiEngine(const MultiEngine&) = delete;
    MultiEngine& operator=(const MultiEngine&) = delete;

    const PatternOptions& options() const;
    /// Sets how patterns and words are read. To be set before the first row.
    void options(const PatternOptions& options);

    /// Rows may differ in length, from 1 to `maxWordsCM`.
    bool insertPatterns(const std::vector<FND::String>& patterns,
                        unsigned long pathNumber = nextPathCM) override;
    bool finalSetup() override;
    void process(std::span<const std::string_view> words,
                 std::vector<std::int32_t>& paths) const override;
    std::int32_t firstPath(std::span<const std::string_view> words) const override;

    const FND::String& error() const override;
    std::int32_t guiltyPath() const override;
    std::size_t stateCount() const override;
    std::size_t memory() const override;

    std::size_t stateLimit() const;
    /// Sets the number of states that any automaton may have, at least 1.
    void stateLimit(std::size_t states);
    std::size_t byteLimit() const;
    /// Sets the bytes that the patterns of a place, and their automata, may take; by default 256
    /// MiB.
    void byteLimit(std::size_t bytes);

    /// Number of rows inserted.
    std::int32_t rowCount() const;

    /// Restores the state after construction. The state limit stays.
    void clear();

private:
    struct Place;
    struct Rows;

    bool insertRow(const std::vector<FND::String>& patterns, std::int32_t path);
    bool build();

    std::unique_ptr<Rows> rows_;
};

}  // namespace FSM
