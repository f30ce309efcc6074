#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "fnd/String.h"
#include "scr/run/NodeMemory.h"

namespace SCR {

class Node;

/// The places of the statements, calls and loops of a compiled tree in the script's text. It is
/// separate from the tree, so that nodes carry no extra data and a run pays nothing. It is filled
/// during a compile and only read afterwards.
class PlaceTable {
public:
    struct Place {
        const Node* node;
        std::uint32_t file;  // index of the file's name
        std::int32_t line;   // 1-based
    };

    /// Records that `node` stands in line `line` of `file` (empty for the main text).
    void add(const Node* node, const FND::String& file, int line);
    void clear();
    /// The number of records, and dropping those made after there were `count`.
    std::size_t size() const { return places_.size(); }
    void truncate(std::size_t count);

    /// The place of `node`, the last one recorded for it; null when there is none.
    const Place* find(const Node* node) const;
    /// The name of a place's file; empty for the main text.
    const FND::String& fileName(const Place& place) const { return files_[place.file]; }
    /// "line N: " or "FILE: line N: " for a recorded node, empty for any other and for null.
    FND::String prefix(const Node* node) const;

private:
    // In the order of the records.
    std::deque<Place, NodeAllocator<Place>> places_;

    mutable int scans_ = 0;              // look-ups without the sorted table
    mutable std::vector<Place> byNode_;  // sorted; made at one of the first look-ups
    std::vector<FND::String> files_;
    std::uint32_t actFile_ = 0;
};

}  // namespace SCR
