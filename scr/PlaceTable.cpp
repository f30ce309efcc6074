#include "scr/PlaceTable.h"

#include <algorithm>
#include <functional>

namespace SCR {

void PlaceTable::add(const Node* node, const FND::String& file, int line) {
    // A compile stays in one file for long, so the name last used is nearly always the right one.
    if (files_.empty() || files_[actFile_] != file) {
        const auto known = std::find(files_.begin(), files_.end(), file);
        actFile_ = static_cast<std::uint32_t>(known - files_.begin());
        if (known == files_.end()) files_.push_back(file);
    }
    places_.push_back({node, actFile_, line});
    isSorted_ = false;
}

void PlaceTable::clear() {
    places_.clear();
    places_.shrink_to_fit();
    files_.clear();
    actFile_ = 0;
    isSorted_ = true;
}

const PlaceTable::Place* PlaceTable::find(const Node* node) const {
    const auto before = [](const Place& a, const Place& b) {
        return std::less<const Node*>()(a.node, b.node);
    };
    if (!isSorted_) {
        std::stable_sort(places_.begin(), places_.end(), before);
        isSorted_ = true;
    }
    const auto found = std::lower_bound(places_.begin(), places_.end(), Place{node, 0, 0}, before);
    return found != places_.end() && found->node == node ? &*found : nullptr;
}

FND::String PlaceTable::prefix(const Node* node) const {
    const Place* place = node != nullptr ? find(node) : nullptr;
    if (place == nullptr) return {};
    FND::String text;
    if (!fileName(*place).empty()) text = fileName(*place) + ": ";
    return text + "line " + std::to_string(place->line) + ": ";
}

}  // namespace SCR
