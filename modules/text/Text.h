#pragma once

#include <span>

#include "modules/Support.h"

namespace Modules::TextModule {

/// Parts of the table, a file for each.
std::span<const ModuleFunction> plainFunctions();
std::span<const ModuleFunction> patternFunctions();
std::span<const ModuleFunction> unicodeFunctions();

/// Fills an array with texts, from its first element on, and keeps the memory of its elements.
class Parts {
public:
    explicit Parts(ArrayRef<FND::String> parts) : parts_(parts) {}

    void add(std::string_view part) {
        weight_ += part.size() + 32;
        if (weight_ > manyCM) work(std::exchange(weight_, 0));
        if (at_ == run_.count) {
            run_ = parts_.change(count_);
            at_ = 0;
        }
        if (at_ < run_.count && part.size() <= run_[at_].capacity()) {
            run_[at_].assign(part);
        } else {
            value_.assign(part);
            if (!parts_.set(count_, value_)) return;
        }
        if (at_ < run_.count) ++at_;
        ++count_;
    }
    /// Cuts off the elements after those, and gives their number.
    long finish() {
        work(weight_);
        if (parts_.size() != count_) parts_.resize(count_);
        return static_cast<long>(count_);
    }

private:
    static constexpr std::size_t manyCM = 4096;

    ArrayRef<FND::String> parts_;
    SCR::Host::Run<FND::String> run_;  // of elements that exist
    unsigned long at_ = 0;
    FND::String value_;
    unsigned long count_ = 0;
    std::size_t weight_ = 0;  // work that is not counted yet
};

}  // namespace Modules::TextModule
