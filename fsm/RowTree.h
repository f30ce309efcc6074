#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

#include "fsm/Account.h"

namespace FSM {

/// Rows of pattern numbers, each under a path number, as a tree in which rows that begin alike
/// share a branch. Finds the rows whose numbers are, place by place, among given ones. It visits
/// only branches whose rows have matched at every place so far. Does not change after `build`.
class RowTree {
public:
    using Numbers = std::span<const std::int32_t>;

    /// Adds a row of at least one number.
    void insert(Numbers numbers, std::int32_t path);
    /// Builds the tree of the rows inserted.
    void build();
    std::size_t memory() const;
    /// Forgets all rows.
    void clear() { *this = RowTree(); }

    /// Calls visit(path) for every row of `places.size()` numbers each of which is in the list for
    /// its place; the lists are ascending. In no particular order, and once for each such row of a
    /// path.
    template <class Visitor>
    void find(std::span<const Numbers> places, Visitor visit) const {
        if (!firstChild_.empty()) findBelow(0, places, visit);
    }

private:
    using Node = std::uint32_t;
    struct Row {
        std::size_t begin;
        std::size_t length;
        std::int32_t path;
    };

    template <class Visitor>
    void findBelow(Node node, std::span<const Numbers> places, Visitor& visit) const {
        if (places.empty()) {
            for (std::uint32_t i = firstPath_[node]; i < firstPath_[node + 1]; ++i) {
                visit(paths_[i]);
            }
            return;
        }
        // Children and list are both ascending: walks the shorter one and searches in the longer
        // one.
        Numbers list = places.front();
        auto begin = number_.begin() + firstChild_[node];
        auto end = number_.begin() + firstChild_[node + 1];
        if (list.size() < static_cast<std::size_t>(end - begin)) {
            for (std::int32_t number : list) {
                begin = std::lower_bound(begin, end, number);
                if (begin == end) return;
                if (*begin == number) {
                    findBelow(static_cast<Node>(begin - number_.begin()), places.subspan(1), visit);
                }
            }
        } else {
            for (; begin != end; ++begin) {
                if (std::binary_search(list.begin(), list.end(), *begin)) {
                    findBelow(static_cast<Node>(begin - number_.begin()), places.subspan(1), visit);
                }
            }
        }
    }

    Numbers numbersOf(const Row& row) const { return {&numbers_[row.begin], row.length}; }

    Vector<Row> rows_;
    Vector<std::int32_t> numbers_;

    // The nodes are numbered by depth, so the children of a node lie together. The first two arrays
    // have one entry more than there are nodes, which ends the last node.
    Vector<Node> firstChild_;
    Vector<std::uint32_t> firstPath_;
    Vector<std::int32_t> number_;
    Vector<std::int32_t> paths_;  // of the rows that end in each node
};

}  // namespace FSM
