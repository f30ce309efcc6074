#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

#include "fsm/part/Part.h"
#include "fsm/store/Account.h"
#include "fsm/store/Flat.h"

namespace FSM {

/// Lists of path numbers in one array. A list is named by a reference: 0 is the empty list; with
/// the highest bit it is the only number itself; otherwise the place of the list's length, which
/// its numbers follow, ascending.
class NumberLists {
public:
    using Ref = std::uint32_t;
    static constexpr Ref singleCM = Ref{1} << 31;

    /// Used while the lists are made.
    class Maker {
    public:
        Maker() : values_(1) {}
        /// Adds `numbers`, which are ascending.
        Ref add(std::span<const std::int32_t> numbers);
        Flat<std::int32_t> take() { return Flat<std::int32_t>(std::move(values_)); }

    private:
        Vector<std::int32_t> values_;
    };

    NumberLists() = default;
    explicit NumberLists(Flat<std::int32_t> values) : values_(std::move(values)) {}

    /// Adds the numbers of a list to `found`.
    void add(Ref list, Found& found) const {
        if (list == 0) return;
        if ((list & singleCM) != 0) {
            found.add(static_cast<std::int32_t>(list & ~singleCM));
        } else {
            found.add(values_.data() + list + 1, static_cast<std::size_t>(values_[list]));
        }
    }
    /// Calls visit(number) for the numbers of a list.
    template <class Visitor>
    void visit(Ref list, Visitor visit) const {
        if (list == 0) return;
        if ((list & singleCM) != 0) {
            visit(static_cast<std::int32_t>(list & ~singleCM));
            return;
        }
        const std::int32_t* const begin = values_.data() + list + 1;
        for (const auto* number = begin; number != begin + values_[list]; ++number) visit(*number);
    }
    /// Whether a reference that was read names a list.
    bool isSound(Ref list) const {
        if (list == 0 || (list & singleCM) != 0) return true;
        return list < values_.size() && values_[list] >= 0 &&
               static_cast<std::size_t>(values_[list]) < values_.size() - list;
    }
    Flat<std::int32_t>& values() { return values_; }
    std::size_t bytes() const { return values_.bytes(); }
    const Flat<std::int32_t>& values() const { return values_; }

private:
    Flat<std::int32_t> values_;
};

}  // namespace FSM
