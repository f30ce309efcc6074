#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

#include "fsm/Budget.h"

namespace FSM {

// How the building of automata reports its memory and work to its budget.

/// The budget of the calling thread, or null.
Budget* currentBudget();

/// Counts work of so many steps, of some nanoseconds each. Exceptions of the budget pass through.
void countWork(std::size_t steps);

/// The heap memory of a block of `bytes`: with a header, in steps of 16 bytes.
constexpr std::size_t blockBytes(std::size_t bytes) { return (bytes + 8 + 15) / 16 * 16; }

/// Bytes that are charged, as long as this lives, to the budget in whose scope it was made.
class Charge {
public:
    Charge() : budget_(currentBudget()) {}
    explicit Charge(std::size_t bytes) : Charge() { take(bytes); }
    Charge(Charge&& other) noexcept
        : budget_(other.budget_), bytes_(std::exchange(other.bytes_, 0)) {}
    Charge& operator=(Charge&& other) noexcept {
        std::swap(budget_, other.budget_);
        std::swap(bytes_, other.bytes_);
        return *this;
    }
    ~Charge() { give(bytes_); }

    /// Charges `bytes` more.
    void take(std::size_t bytes) {
        if (budget_ == nullptr) return;
        budget_->take(bytes);
        bytes_ += bytes;
    }
    void give(std::size_t bytes) noexcept {
        if (budget_ == nullptr || bytes == 0) return;
        bytes_ -= bytes;
        budget_->give(bytes);
    }

private:
    Budget* budget_;  // not owned
    std::size_t bytes_ = 0;
};

/// Makes room in `elements` for one more element and charges it to `charge`.
template <class Element>
void makeRoom(std::vector<Element>& elements, Charge& charge) {
    const std::size_t before = elements.capacity();
    if (elements.size() < before) return;
    // Elements may be pointers.
    // NOLINTBEGIN(bugprone-sizeof-expression)
    charge.take(blockBytes(std::max<std::size_t>(2 * before, 1) * sizeof(Element)));
    elements.reserve(std::max<std::size_t>(2 * before, 1));
    if (before > 0) charge.give(blockBytes(before * sizeof(Element)));
    // NOLINTEND(bugprone-sizeof-expression)
}

/// Lets a container charge its memory to the budget in whose scope it was made.
template <class Element>
class CountedAllocator {
public:
    using value_type = Element;
    using propagate_on_container_move_assignment = std::true_type;
    using propagate_on_container_swap = std::true_type;

    CountedAllocator() : budget_(currentBudget()) {}
    template <class Other>
    CountedAllocator(const CountedAllocator<Other>& other) : budget_(other.budget()) {}
    // The standard library requires this name.
    // NOLINTNEXTLINE(readability-identifier-naming)
    CountedAllocator select_on_container_copy_construction() const { return {}; }

    // Elements may be pointers.
    // NOLINTBEGIN(bugprone-sizeof-expression)
    Element* allocate(std::size_t count) {
        const std::size_t bytes = blockBytes(count * sizeof(Element));
        if (budget_ != nullptr) budget_->take(bytes);
        try {
            return std::allocator<Element>().allocate(count);
        } catch (...) {
            if (budget_ != nullptr) budget_->give(bytes);
            throw;
        }
    }
    void deallocate(Element* elements, std::size_t count) noexcept {
        std::allocator<Element>().deallocate(elements, count);
        if (budget_ != nullptr) budget_->give(blockBytes(count * sizeof(Element)));
    }
    // NOLINTEND(bugprone-sizeof-expression)

    Budget* budget() const { return budget_; }
    friend bool operator==(const CountedAllocator& a, const CountedAllocator& b) {
        return a.budget_ == b.budget_;
    }

private:
    Budget* budget_;  // not owned
};

/// A vector whose memory is charged.
template <class Element>
using Vector = std::vector<Element, CountedAllocator<Element>>;

}  // namespace FSM
