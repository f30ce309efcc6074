#include "scr/Output.h"

#include <algorithm>
#include <new>

namespace SCR {

Output::~Output() = default;

bool Output::flush(bool /*mayWait*/) { return true; }

void OutputFailures::add(std::string_view name, int error) noexcept {
    ++count_;
    const auto isSame = [&](const OutputFailure& failure) {
        return failure.error == error && failure.name == name;
    };
    if (first_.size() >= mostCM || std::any_of(first_.begin(), first_.end(), isSame)) return;
    try {
        first_.push_back({FND::String(name), error});
    } catch (const std::bad_alloc&) {
    }
}

void OutputFailures::add(const OutputFailures& others) noexcept {
    const std::int64_t count = count_ + others.count_;
    for (const OutputFailure& failure : others.first_) add(failure.name, failure.error);
    count_ = count;
}

void OutputFailures::clear() noexcept {
    first_.clear();
    count_ = 0;
}

}  // namespace SCR
