#include "fsm/part/Part.h"

#include <algorithm>
#include <functional>

namespace FSM {

Part::~Part() = default;

void Part::addNegated(Found&) const {}

void Found::remove(const std::vector<std::int32_t>& removed) {
    const auto isRemoved = [&](std::int32_t path) {
        return std::binary_search(removed.begin(), removed.end(), path);
    };
    paths_->erase(std::remove_if(paths_->begin() + begin_, paths_->end(), isRemoved),
                  paths_->end());
}

void Found::sortOnce() {
    if (lists_ < 2) return;
    const auto begin = paths_->begin() + begin_;
    if (std::adjacent_find(begin, paths_->end(), std::greater_equal<>()) == paths_->end()) return;
    std::sort(begin, paths_->end());
    paths_->erase(std::unique(begin, paths_->end()), paths_->end());
}

}  // namespace FSM
