#include "scr/run/PlaceTable.h"

#include <algorithm>
#include <functional>
#include <iterator>

namespace SCR {

void PlaceTable::add(const Node* node, const FND::String& file, int line) {
    // A compile usually stays in one file for a long time, so the last name is nearly always the
    // right one.
    if (files_.empty() || files_[actFile_] != file) {
        const auto known = std::find(files_.begin(), files_.end(), file);
        actFile_ = static_cast<std::uint32_t>(known - files_.begin());
        if (known == files_.end()) files_.push_back(file);
    }
    places_.push_back({node, actFile_, line});
}

void PlaceTable::clear() {
    decltype(places_)().swap(places_);
    std::vector<Place>().swap(byNode_);
    files_.clear();
    actFile_ = 0;
    scans_ = 0;
}

void PlaceTable::truncate(std::size_t count) {
    if (count >= places_.size()) return;
    places_.resize(count);
    byNode_.clear();
}

const PlaceTable::Place* PlaceTable::find(const Node* node) const {
    const auto before = [](const Place& a, const Place& b) {
        return std::less<const Node*>()(a.node, b.node);
    };
    if (byNode_.size() != places_.size()) {
        // Sorting the table of a large script takes longer than a stopped script may go on.
        constexpr int fewScans = 8;
        if (scans_++ < fewScans) {
            const auto last = std::find_if(places_.rbegin(), places_.rend(),
                                           [&](const Place& place) { return place.node == node; });
            return last != places_.rend() ? &*last : nullptr;
        }
        byNode_.assign(places_.begin(), places_.end());
        std::stable_sort(byNode_.begin(), byNode_.end(), before);
    }
    // A node may have the address of an earlier node that was recorded and destroyed.
    const auto after = std::upper_bound(byNode_.begin(), byNode_.end(), Place{node, 0, 0}, before);
    if (after == byNode_.begin() || std::prev(after)->node != node) return nullptr;
    return &*std::prev(after);
}

FND::String PlaceTable::prefix(const Node* node) const {
    const Place* place = node != nullptr ? find(node) : nullptr;
    if (place == nullptr) return {};
    FND::String text;
    if (!fileName(*place).empty()) text = fileName(*place) + ": ";
    return text + "line " + std::to_string(place->line) + ": ";
}

}  // namespace SCR
