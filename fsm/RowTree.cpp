#include "fsm/RowTree.h"

namespace FSM {

void RowTree::insert(Numbers numbers, std::int32_t path) {
    const std::size_t begin = numbers_.size();
    numbers_.insert(numbers_.end(), numbers.begin(), numbers.end());
    rows_.push_back({begin, numbers.size(), path});
}

void RowTree::build() {
    if (rows_.empty()) return;
    std::sort(rows_.begin(), rows_.end(), [&](const Row& a, const Row& b) {
        Numbers left = numbersOf(a);
        Numbers right = numbersOf(b);
        countWork(4);
        return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end());
    });
    struct Branch {  // the rows that share their first `depth` numbers
        std::size_t begin;
        std::size_t end;
        std::size_t depth;
    };
    Vector<Branch> branches{{0, rows_.size(), 0}};
    number_.push_back(0);
    for (std::size_t node = 0; node < branches.size(); ++node) {
        auto [begin, end, depth] = branches[node];
        countWork(4 + end - begin);
        firstChild_.push_back(static_cast<Node>(branches.size()));
        firstPath_.push_back(static_cast<std::uint32_t>(paths_.size()));
        for (; begin < end && rows_[begin].length == depth; ++begin) {
            paths_.push_back(rows_[begin].path);
        }
        while (begin < end) {
            std::int32_t number = numbersOf(rows_[begin])[depth];
            std::size_t next = begin;
            while (next < end && numbersOf(rows_[next])[depth] == number) ++next;
            branches.push_back({begin, next, depth + 1});
            number_.push_back(number);
            begin = next;
        }
    }
    firstChild_.push_back(static_cast<Node>(branches.size()));
    firstPath_.push_back(static_cast<std::uint32_t>(paths_.size()));
    decltype(rows_)().swap(rows_);
    decltype(numbers_)().swap(numbers_);
}

std::size_t RowTree::memory() const {
    return firstChild_.capacity() * sizeof(Node) + firstPath_.capacity() * sizeof(std::uint32_t) +
           number_.capacity() * sizeof(std::int32_t) + paths_.capacity() * sizeof(std::int32_t);
}

}  // namespace FSM
