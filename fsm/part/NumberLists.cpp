#include "fsm/part/NumberLists.h"

#include <new>

namespace FSM {

NumberLists::Ref NumberLists::Maker::add(std::span<const std::int32_t> numbers) {
    if (numbers.empty()) return 0;
    if (numbers.size() == 1) return singleCM | static_cast<Ref>(numbers[0]);
    if (values_.size() + numbers.size() >= singleCM) throw std::bad_alloc();
    const auto list = static_cast<Ref>(values_.size());
    values_.push_back(static_cast<std::int32_t>(numbers.size()));
    values_.insert(values_.end(), numbers.begin(), numbers.end());
    return list;
}

}  // namespace FSM
