#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "fsm/MultiEngine.h"
#include "fsm/PatternOptions.h"

namespace FSM {

struct Analysis;
struct GroupParts;
class PatternList;
class Table;

/// A list of patterns whose single automaton may be too large: it is split over several automata,
/// which are walked side by side. It reports exactly what an `Engine` with all the patterns would
/// report; in particular a text has left the automaton only when it has left all parts.
///
/// A list that fits into one automaton, without growing out of proportion to the patterns, is not
/// split, and matches as fast as with an `Engine`. Threads and failures: see `MultiEngineIf`.
class KESTREL_API EngineGroup : public MultiEngineIf {
public:
    /// States that a part may have when the group decides by itself to split the list.
    static constexpr std::size_t defaultPartLimitCM = 2048;

    EngineGroup();
    ~EngineGroup() override;
    EngineGroup(const EngineGroup&) = delete;
    EngineGroup& operator=(const EngineGroup&) = delete;

    const PatternOptions& options() const;
    /// Sets how patterns and texts are read. To be set before the first pattern.
    void options(const PatternOptions& options);

    /// Adds a pattern that is reported as `pathNumber`, under the conditions of
    /// `Engine::addPattern`. `error` then names the number of a pattern that does not parse.
    bool insertPattern(const FND::String& pattern, unsigned long pathNumber = nextPathCM);
    /// The same for a row, which must have exactly one pattern.
    bool insertPatterns(const std::vector<FND::String>& patterns,
                        unsigned long pathNumber = nextPathCM) override;

    /// Fails only when a single pattern passes the limit of states or of work in all forms, when
    /// all parts together have more than 16 times as many states as the limit, or when the bytes
    /// pass theirs. A changeable group that was set up before then matches as before.
    bool finalSetup() override;

    /// Fills `paths` with the numbers of the patterns that match the whole text, ascending and each
    /// once. The text ends at its first NUL if it holds one. No memory is taken but that of
    /// `paths`, which keeps it between calls, and a scratch space that each thread keeps for all
    /// groups; both grow to what the largest group and, with `ignoresCase`, the longest text need.
    void process(std::string_view text, std::vector<std::int32_t>& paths) const;
    /// The same for a row of words; nothing matches unless there is exactly one.
    void process(std::span<const std::string_view> words,
                 std::vector<std::int32_t>& paths) const override;

    /// The same without the numbers of which `mask` has no bit set.
    void process(std::string_view text, const std::vector<bool>& mask,
                 std::vector<std::int32_t>& paths) const;
    /// The same for many texts: `paths` holds the numbers of one text after the other, and `ends`
    /// where those of each text end.
    void matchAll(std::span<const std::string_view> texts, std::vector<std::size_t>& ends,
                  std::vector<std::int32_t>& paths) const;

    /// The lowest path number that `process` reports for the text, or -1. Takes no lock, and no
    /// memory but the scratch space of the thread.
    std::int32_t firstPath(const char* text, std::size_t length) const;
    std::int32_t firstPath(std::string_view text) const {
        return firstPath(text.data(), text.size());
    }
    /// The same; a group of one automaton calls `pause` after each piece of a long text, with its
    /// size. `pause` may throw.
    std::int32_t firstPath(std::string_view text, void (*pause)(std::size_t bytes)) const;
    std::int32_t firstPath(std::span<const std::string_view> words) const override;

    const FND::String& error() const override;
    std::int32_t guiltyPath() const override;
    std::size_t stateCount() const override;
    std::size_t memory() const override;

    std::size_t stateLimit() const;
    /// Sets the number of states that any automaton may have, at least 1.
    void stateLimit(std::size_t states);
    std::size_t byteLimit() const;
    /// Sets the bytes that the patterns, and all parts together, may take; by default 256 MiB.
    void byteLimit(std::size_t bytes);
    std::size_t workLimit() const;
    /// Sets the steps of work that any automaton may take, as `Engine::workLimit`. What would take
    /// more is split or made in another form; a pattern that passes it in all forms is refused.
    void workLimit(std::size_t steps);
    std::size_t partLimit() const;
    /// Sets the number of states that a part may have; only a pattern that needs more by itself
    /// gets a larger one. With 0, the default, the group tries one automaton for all patterns; if
    /// that grows out of proportion to them, it makes parts of up to `defaultPartLimitCM` states,
    /// or more where these are in proportion to the patterns of a part.
    void partLimit(std::size_t states);

    bool isChangeable() const;
    /// Whether the group may change after it is set up, for which it keeps the texts of its
    /// patterns: `insertPattern` and `removePatterns` then wait for the next `finalSetup`, until
    /// which the group matches as before. A few changes at a time cost little, however long the
    /// list is; after some hundred, or where a pattern matches "" or shares a number with another
    /// one, all is built anew. To be set before the first pattern; off by default.
    void isChangeable(bool changes);
    /// Takes the patterns under `pathNumber` out of a changeable group. Gives their number.
    std::size_t removePatterns(std::int32_t pathNumber);

    /// Writes the finished automata to a file, for `load`. False, with a reason in `error`, if that
    /// fails or the group is not set up.
    bool save(const FND::String& file, FND::String& error) const;
    /// Sets up an empty group from a file that `save` wrote with the same version on the same kind
    /// of machine, options included. Any other file is refused: false, and a reason in `error()`.
    /// The file is mapped, so processes share its memory; it may be replaced by renaming another
    /// one, but not changed while a group uses it. Such a group is not changeable.
    bool load(const FND::String& file);

    /// Number of patterns inserted.
    std::int32_t patternCount() const;
    /// Number of automata that the list was split into; 0 before `finalSetup`.
    std::size_t partCount() const;

    /// Restores the state after construction. The limits and options stay.
    void clear();

private:
    struct Setup;
    struct Parts;

    friend KESTREL_API std::optional<Analysis> analyse(const EngineGroup& group,
                                                       std::size_t maxOverlaps);

    friend class MultiEngine;
    friend class SharedGroup;

    // Used by a multi-engine: a group with the patterns of a list; the path numbers of a text.
    explicit EngineGroup(std::unique_ptr<PatternList> patterns);
    bool appendPaths(std::string_view text, std::vector<std::int32_t>& paths) const;

    // Used to share groups: all that decides what becomes of the list.
    std::string content() const;

    // Used by an analysis: the table, null unless it is the only part, and all path numbers.
    const Table* wholeTable() const;
    std::vector<std::int32_t> paths() const;

    bool fillList(std::size_t first);
    bool makeParts(std::size_t byteLimit, GroupParts& parts);
    bool build();
    bool changeParts();
    void use(std::unique_ptr<Parts> parts);

    std::unique_ptr<Setup> setup_;  // the patterns and what became of them
    std::unique_ptr<Parts> parts_;  // all that matching needs
    const Table* whole_ = nullptr;  // in the parts, the only one, if one table tells all
};

}  // namespace FSM
