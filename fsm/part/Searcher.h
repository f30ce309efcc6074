#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fsm/Engine.h"
#include "fsm/part/NumberLists.h"
#include "fsm/part/WordScan.h"
#include "fsm/pattern/PatternList.h"
#include "fsm/table/Table.h"

namespace FSM {

/// Finds the matches of patterns within texts: words by a search for words, other patterns by three
/// automata: one that tells where matches end, one that tells, read backwards, where they begin,
/// and one that tells how long they are. Does not change once it is built.
class Searcher {
public:
    /// Gives the limit that the automata would pass, if any. No pattern is negated.
    Limit build(Vector<Pattern>& patterns, const PatternOptions& options,
                const BuildLimits& limits);

    /// Appends the matches in a text, in ascending order. Bytes of any value belong to it.
    void find(std::string_view text, Find what, std::vector<Match>& matches) const;

    /// A search for all ends in a text that comes in pieces.
    struct Progress {
        Table::Row row = 0;
        std::size_t before = 0;  // bytes of earlier pieces
        std::string tail;        // the last bytes of these, in which words may begin
        bool isBegun = false;
    };
    void findOn(Progress& progress, std::string_view piece, std::vector<Match>& matches) const;

    std::size_t memory() const;

private:
    bool takeWords(const Vector<Pattern>& patterns, const PatternOptions& options);
    std::string_view inOneCase(std::string_view text) const;
    Limit makeTables(Vector<Pattern>& patterns, const BuildLimits& limits);
    Limit makeTable(const Vector<Pattern>& patterns, const BuildLimits& limits, Table& table);
    void addEnds(Table::Row row, std::size_t end, std::vector<Match>& matches) const;
    template <class Visitor>
    void visitWords(std::string_view text, std::size_t from, Visitor visit) const;
    void findLongestWords(std::string_view text, std::vector<Match>& matches) const;
    void findLongest(std::string_view text, std::vector<Match>& matches) const;

    struct Words {
        WordScan scan;
        Flat<NumberLists::Ref> lists;  // of each word
    };
    bool hasWords_ = false;
    bool foldsWords_ = false;
    std::array<Words, 2> words_;  // short ones and long ones
    NumberLists lists_;
    Table ends_;
    Table begins_;  // read backwards
    Table whole_;
};

}  // namespace FSM
