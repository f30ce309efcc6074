#pragma once

#include <cstddef>
#include <span>
#include <utility>

#include "fsm/store/Account.h"

namespace FSM {

/// An array of plain values that is filled once and then only read: in memory of its own, or in a
/// file that is mapped.
template <class Value>
class Flat {
public:
    Flat() = default;
    /// Takes no more memory than the values need. Throws the exceptions of the budget, which
    /// `shrink_to_fit` would keep to itself.
    explicit Flat(Vector<Value> values) {
        if (values.size() < values.capacity()) {
            own_ = Vector<Value>(values.begin(), values.end());
        } else {
            own_ = std::move(values);
        }
        view_ = own_;
    }
    /// Values that lie elsewhere and outlive this.
    explicit Flat(std::span<const Value> values) : view_(values) {}
    Flat(Flat&& other) noexcept = default;
    Flat& operator=(Flat&& other) noexcept = default;

    const Value& operator[](std::size_t index) const { return view_[index]; }
    const Value* data() const { return view_.data(); }
    std::size_t size() const { return view_.size(); }
    bool empty() const { return view_.empty(); }
    std::size_t bytes() const { return view_.size_bytes(); }
    std::span<const Value> view() const { return view_; }

private:
    Vector<Value> own_;
    std::span<const Value> view_;
};

}  // namespace FSM
