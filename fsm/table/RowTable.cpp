#include "fsm/table/RowTable.h"

#include <algorithm>
#include <numeric>

namespace FSM {

void RowTable::insert(Numbers numbers, std::int32_t path) {
    numbers_.insert(numbers_.end(), numbers.begin(), numbers.end());
    lengths_.push_back(static_cast<std::uint32_t>(numbers.size()));
    paths_.push_back(path);
}

void RowTable::build(std::span<const std::size_t> counts) {
    const std::size_t width = counts.size();
    Vector<std::int32_t> numbers(paths_.size() * width, -1);
    std::size_t from = 0;
    for (std::size_t row = 0; row < paths_.size(); ++row) {
        std::copy_n(&numbers_[from], lengths_[row], &numbers[row * width]);
        from += lengths_[row];
        countWork(width);
    }
    numbers_ = std::move(numbers);
    decltype(lengths_)().swap(lengths_);
    order_.resize(width);
    std::iota(order_.begin(), order_.end(), 0U);
    std::stable_sort(order_.begin(), order_.end(),
                     [&](std::uint32_t a, std::uint32_t b) { return counts[a] > counts[b]; });
    sortRows(width);
    places_.resize(width);
    for (std::size_t place = 0; place < width; ++place) {
        Place& lists = places_[place];
        lists.begins.resize(counts[place] + 1);
        for (Row row = 0; row < paths_.size(); ++row) {
            if (number(row, place) >= 0)
                ++lists.begins[static_cast<std::size_t>(number(row, place)) + 1];
        }
        countWork(2 * paths_.size() + counts[place]);
        std::partial_sum(lists.begins.begin(), lists.begins.end(), lists.begins.begin());
        lists.rows.resize(lists.begins.back());
        Vector<std::uint32_t> filled(lists.begins.begin(), lists.begins.end() - 1);
        for (Row row = 0; row < paths_.size(); ++row) {
            const std::int32_t own = number(row, place);
            if (own >= 0) lists.rows[filled[static_cast<std::size_t>(own)]++] = row;
        }
    }
}

void RowTable::sortRows(std::size_t width) {
    Vector<Row> rows(paths_.size());
    std::iota(rows.begin(), rows.end(), 0U);
    std::sort(rows.begin(), rows.end(), [&](Row a, Row b) {
        countWork(4);
        for (const std::uint32_t place : order_) {
            const std::int32_t left = numbers_[a * width + place];
            const std::int32_t right = numbers_[b * width + place];
            if (left != right) return left < right;
        }
        return false;
    });
    Vector<std::int32_t> numbers;
    Vector<std::int32_t> paths;
    numbers.reserve(numbers_.size());
    for (const Row row : rows) {
        const auto begin = numbers_.begin() + static_cast<std::ptrdiff_t>(row * width);
        numbers.insert(numbers.end(), begin, begin + static_cast<std::ptrdiff_t>(width));
        paths.push_back(paths_[row]);
    }
    numbers_ = std::move(numbers);
    paths_ = std::move(paths);
}

std::span<const RowTable::Row> RowTable::rowsWith(std::int32_t first, std::int32_t second) const {
    const std::span<const Row> rows = rowsAt(order_[0], first);
    const auto begin = std::partition_point(
        rows.begin(), rows.end(), [&](Row row) { return number(row, order_[1]) < second; });
    const auto end = std::partition_point(
        begin, rows.end(), [&](Row row) { return number(row, order_[1]) == second; });
    return {begin, end};
}

std::size_t RowTable::memory() const {
    std::size_t bytes = (paths_.capacity() + numbers_.capacity()) * sizeof(std::int32_t);
    for (const Place& lists : places_) {
        bytes += (lists.begins.capacity() + lists.rows.capacity()) * sizeof(std::uint32_t);
    }
    return bytes;
}

}  // namespace FSM
