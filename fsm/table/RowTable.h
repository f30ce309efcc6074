#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "fsm/store/Account.h"

namespace FSM {

/// Rows of pattern numbers, each under a path number. For each place of the rows and each number it
/// lists the rows that have the number there. Does not change after `build`.
class RowTable {
public:
    using Numbers = std::span<const std::int32_t>;
    using Row = std::uint32_t;

    /// Adds a row of at least one number.
    void insert(Numbers numbers, std::int32_t path);
    /// Makes the lists. `counts` tells how many different numbers each place has.
    void build(std::span<const std::size_t> counts);
    std::size_t memory() const;
    /// Forgets all rows.
    void clear() { *this = RowTable(); }

    /// The places, those first that tell most rows apart. Rows are sorted by their numbers in this
    /// order of places.
    std::span<const std::uint32_t> order() const { return order_; }
    /// The rows that have `first` at the first place of the order and `second` at the second one.
    std::span<const Row> rowsWith(std::int32_t first, std::int32_t second) const;
    /// The rows that have `number` at `place`.
    std::span<const Row> rowsAt(std::size_t place, std::int32_t number) const {
        const Place& lists = places_[place];
        const auto index = static_cast<std::size_t>(number);
        return {lists.rows.data() + lists.begins[index],
                lists.rows.data() + lists.begins[index + 1]};
    }
    /// The number of a row at `place`, -1 beyond its end.
    std::int32_t number(Row row, std::size_t place) const {
        return numbers_[row * places_.size() + place];
    }
    bool hasLength(Row row, std::size_t length) const {
        return number(row, length - 1) >= 0 &&
               (length == places_.size() || number(row, length) < 0);
    }
    std::int32_t path(Row row) const { return paths_[row]; }

private:
    void sortRows(std::size_t width);

    struct Place {
        Vector<std::uint32_t> begins;  // of the list of each number; one more ends the last
        Vector<Row> rows;
    };

    Vector<std::int32_t> paths_;
    Vector<std::uint32_t> lengths_;  // until the lists are made
    Vector<std::int32_t> numbers_;   // of one row after the other; then all of the same length
    Vector<Place> places_;
    Vector<std::uint32_t> order_;
};

}  // namespace FSM
