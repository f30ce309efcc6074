#include "scr/value/ObjectTable.h"

#include <utility>

#include "scr/run/MemoryCharge.h"

namespace SCR {

bool ObjectTable::addType(const void* kind, const FND::String& name) {
    if (types_.contains(kind) || !names_.insert(name).second) return false;
    types_.emplace(kind, name);
    return true;
}

const FND::String* ObjectTable::nameOf(const void* kind) const {
    const auto found = types_.find(kind);
    return found != types_.end() ? &found->second : nullptr;
}

const void* ObjectTable::kindOf(const FND::String& name) const {
    for (const auto& [kind, own] : types_) {
        if (own == name) return kind;
    }
    return nullptr;
}

const Host::Place* ObjectTable::known(const void* kind, const void* object) const {
    const auto found = index_.find({kind, object});
    return found != index_.end() ? &entries_[found->second].place : nullptr;
}

long ObjectTable::give(const void* kind, const Host::Place& place) {
    if (place.object == nullptr) return 0;
    const auto [known, isNew] = index_.try_emplace({kind, place.object}, entries_.size());
    if (isNew) {
        try {
            chargeMemory(entryBytesCM);
            if (free_.empty()) {
                // Each place may become free, which must not need memory then.
                if (free_.capacity() <= entries_.size()) free_.reserve(2 * entries_.size() + 8);
                entries_.emplace_back();
            } else {
                known->second = free_.back();
                free_.pop_back();
            }
        } catch (...) {
            index_.erase(known);
            throw;
        }
    }
    Entry& entry = entries_[known->second];
    entry.kind = kind;
    entry.place.object = place.object;
    if (place.share && !entry.place.share) {
        entry.place.share = place.share;
        ++given_;
    }
    return static_cast<long>(entry.generation << 32 | (known->second + 1));
}

std::shared_ptr<void> ObjectTable::release(std::size_t index) {
    Entry& entry = entries_[index];
    std::shared_ptr<void> share = std::move(entry.place.share);
    index_.erase({entry.kind, entry.place.object});
    entry.place = {};
    entry.kind = nullptr;
    if (entry.generation++ < lastGenerationCM) free_.push_back(index);
    return share;
}

bool ObjectTable::forget(const void* kind, const void* object) {
    const auto found = index_.find({kind, object});
    if (found == index_.end()) return false;
    // Its destructor may ask for other objects.
    const std::shared_ptr<void> last = release(found->second);
    return true;
}

void ObjectTable::sweep(const std::function<void(const std::function<void(long)>&)>& visit) {
    for (Entry& entry : entries_) entry.isHeld = entry.place.share == nullptr;
    visit([&](long handle) {
        const std::size_t index = (static_cast<std::uint64_t>(handle) & indexMaskCM) - 1;
        if (index >= entries_.size()) return;
        Entry& entry = entries_[index];
        if (entry.generation == static_cast<std::uint64_t>(handle) >> 32) entry.isHeld = true;
    });
    std::vector<std::shared_ptr<void>> dropped;
    shared_ = 0;
    given_ = 0;
    for (std::size_t index = 0; index < entries_.size(); ++index) {
        if (!entries_[index].isHeld) {
            dropped.push_back(release(index));
        } else if (entries_[index].place.share) {
            ++shared_;
        }
    }
}

void ObjectTable::clear() noexcept {
    index_.clear();
    shared_ = given_ = 0;
    // Destructors may ask for objects.
    for (std::size_t index = 0; index < entries_.size(); ++index) {
        Entry& entry = entries_[index];
        if (entry.kind == nullptr) continue;
        entry.kind = nullptr;
        entry.place.object = nullptr;
        if (entry.generation++ < lastGenerationCM) free_.push_back(index);
    }
    for (std::size_t index = 0; index < entries_.size(); ++index) {
        const std::shared_ptr<void> last = std::move(entries_[index].place.share);
    }
}

}  // namespace SCR
