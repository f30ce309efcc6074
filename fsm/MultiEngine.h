#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "fsm/MultiEngineIf.h"
#include "fsm/PatternOptions.h"

namespace FSM {

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
