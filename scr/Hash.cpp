#include "scr/Hash.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <exception>
#include <limits>
#include <string_view>
#include <utility>

#include "scr/run/Memory.h"
#include "scr/value/ElementClass.h"

namespace SCR {

namespace {

constexpr std::uint32_t noSlotS = std::numeric_limits<std::uint32_t>::max();
constexpr std::size_t fewestPlacesS = 8;
// How much of a cleared hash is kept.
constexpr std::size_t keptSlotsS = 64;
constexpr std::size_t keptPlacesS = 128;

// A key with the first 8 bytes that may distinguish it from others, most significant first.
struct SortedKey {
    std::uint64_t head;
    const FND::String* key;
};

std::uint64_t head(std::string_view text) {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data(), std::min(text.size(), sizeof word));
    return std::endian::native == std::endian::little ? __builtin_bswap64(word) : word;
}

}  // namespace

Hash::Hash(Variable* prototype)
    : Variable(TypeCode::Hash),
      ownsPrototype_(true),
      prototype_(prototype),
      elementClass_(&ElementClass::of(*prototype)),
      freeSlot_(noSlotS) {}

Hash::Hash(const Hash& source, Variable* sharedPrototype)
    : Variable(source.dataType()),
      ownsPrototype_(false),
      prototype_(sharedPrototype),
      elementClass_(source.elementClass_),
      freeSlot_(noSlotS) {
    try {
        copyElements(source);
    } catch (...) {
        freeElements();
        throw;
    }
}

Hash::~Hash() {
    freeElements();
    if (ownsPrototype_) delete prototype_;
}

Variable* Hash::clone() const {
    std::unique_ptr<Variable> prototype(prototype_->clone());
    std::unique_ptr<Hash> copy(new Hash(prototype.release()));
    copy->dataType(dataType());
    copy->copyElements(*this);
    return copy.release();
}

Variable* Hash::find(const FND::String& key, unsigned long limit) {
    countString(key.size());
    const std::uint32_t hash = keyHash(key);
    if (std::byte* const slot = look(key, hash, slotSize()).slot) {
        return elementClass_->element(slot + elementOffsetCM);
    }
    if (size_ >= std::min(limit, maxSizeCM)) return nullptr;
    try {
        return insert(key, hash);
    } catch (const std::exception&) {
        return nullptr;
    }
}

std::size_t Hash::heapBytes() const {
    std::size_t bytes = store_.heapBytes(slotSize());
    if (places_ != nullptr) bytes += (mask_ + std::size_t{1}) * sizeof(Place);
    forEachSlot([&](std::byte* slot) {
        countWork(slotSize());
        bytes += SCR::heapBytes(keyIn(slot));
        if (elementClass_->heapBytes != nullptr) {
            bytes += elementClass_->heapBytes(slot + elementOffsetCM, 1);
        }
    });
    return bytes;
}

bool Hash::contains(const FND::String& key) const {
    return size_ > 0 && look(key, keyHash(key), slotSize()).slot != nullptr;
}

bool Hash::remove(const FND::String& key) {
    if (size_ == 0) return false;
    const Found found = look(key, keyHash(key), slotSize());
    if (found.slot == nullptr) return false;
    erase(found);
    return true;
}

void Hash::clear() noexcept {
    forEachSlot([this](std::byte* slot) { destroyEntry(slot); });
    for (std::size_t chunk = 0; chunk < store_.numChunks(); ++chunk) {
        if (SlotStore::firstOf(chunk) >= keptSlotsS) store_.release(chunk);
    }
    store_.trim(0);
    if (places_ != nullptr && mask_ < keptPlacesS) {
        std::fill_n(places_.get(), mask_ + std::size_t{1}, Place());
    } else {
        places_.reset();
        mask_ = 0;
    }
    size_ = 0;
    usedSlots_ = 0;
    freeSlot_ = noSlotS;
}

std::vector<const FND::String*> Hash::keys() const {
    // The prefix that all keys share does not help to order them.
    std::string_view common;
    bool isFirst = true;
    forEachSlot([&](std::byte* slot) {
        const std::string_view key = keyIn(slot);
        countWork(slotSize());
        if (std::exchange(isFirst, false)) common = key;
        common = common.substr(0, commonLength(common, key));
    });

    std::vector<SortedKey> order;
    order.reserve(size_);
    forEachSlot([&](std::byte* slot) {
        const FND::String& key = keyIn(slot);
        countWork(slotSize());
        order.push_back({head(std::string_view(key).substr(common.size())), &key});
    });
    std::sort(order.begin(), order.end(), [](const SortedKey& a, const SortedKey& b) {
        countWork(sizeof(SortedKey));
        if (a.head != b.head) return a.head < b.head;
        return isLong(a.key->size()) ? compareLong(*a.key, *b.key) < 0 : *a.key < *b.key;
    });

    std::vector<const FND::String*> keys;
    keys.reserve(order.size());
    for (const SortedKey& entry : order) keys.push_back(entry.key);
    return keys;
}

std::size_t Hash::slotSize() const { return elementOffsetCM + elementClass_->size; }

Variable* Hash::insert(const FND::String& key, std::uint32_t hash) {
    const std::size_t numPlaces = places_ != nullptr ? mask_ + std::size_t{1} : 0;
    if ((size_ + std::size_t{1}) * 4 > numPlaces * 3) {
        resizeTable(std::max(fewestPlacesS, 2 * numPlaces));
    }
    const bool reuses = freeSlot_ != noSlotS;
    const std::uint32_t number = reuses ? freeSlot_ : usedSlots_;
    const std::size_t chunk = SlotStore::chunkOf(number);
    if (chunk >= store_.numChunks() || store_.chunk(chunk) == nullptr) {
        store_.allocate(chunk, slotSize());
    }
    std::byte* const slot = store_.find(number, slotSize());
    if (key.size() > FND::String().capacity()) chargeMemory(blockBytes(key.size() + 1));
    auto* const copy = new (slot + keyOffsetCM) FND::String(copyOf(key));
    try {
        elementClass_->construct(slot + elementOffsetCM, 1, *prototype_);
    } catch (...) {
        std::destroy_at(copy);
        throw;
    }
    if (reuses) {
        freeSlot_ = markOf(slot).next;
    } else {
        ++usedSlots_;
    }
    new (slot) Mark{noSlotS, true};
    std::uint32_t at = hash;
    while (places_[at & mask_].entry != 0) ++at;
    places_[at & mask_] = {hash, number + 1};
    ++size_;
    return elementClass_->element(slot + elementOffsetCM);
}

void Hash::destroyEntry(std::byte* slot) noexcept {
    elementClass_->destroy(slot + elementOffsetCM, 1);
    std::destroy_at(&keyIn(slot));
}

void Hash::resizeTable(std::size_t numPlaces) {
    chargeMemory(numPlaces * sizeof(Place));
    auto places = std::make_unique<Place[]>(numPlaces);
    const auto mask = static_cast<std::uint32_t>(numPlaces - 1);
    if (places_ != nullptr) {
        for (std::size_t from = 0; from <= mask_; ++from) {
            if (places_[from].entry == 0) continue;
            std::uint32_t at = places_[from].hash;
            while (places[at & mask].entry != 0) ++at;
            places[at & mask] = places_[from];
        }
    }
    places_ = std::move(places);
    mask_ = mask;
}

void Hash::erase(const Found& found) noexcept {
    destroyEntry(found.slot);
    new (found.slot) Mark{freeSlot_, false};
    freeSlot_ = found.place->entry - 1;
    --size_;
    // Later entries of the run move up when the gap would cut them off from their own places.
    auto gap = static_cast<std::uint32_t>(found.place - places_.get());
    for (std::uint32_t at = gap + 1; places_[at & mask_].entry != 0; ++at) {
        const Place& moved = places_[at & mask_];
        if (((at - moved.hash) & mask_) < ((at - gap) & mask_)) continue;
        places_[gap & mask_] = moved;
        gap = at;
    }
    places_[gap & mask_] = {};
}

void Hash::freeElements() noexcept {
    forEachSlot([this](std::byte* slot) { destroyEntry(slot); });
    for (std::size_t chunk = 0; chunk < store_.numChunks(); ++chunk) store_.release(chunk);
    store_.trim(0);
    places_.reset();
    mask_ = 0;
    size_ = 0;
    usedSlots_ = 0;
    freeSlot_ = noSlotS;
}

void Hash::copyElements(const Hash& source) {
    source.forEachSlot([&](std::byte* from) {
        const FND::String& key = keyIn(from);
        insert(key, keyHash(key));
        countWork(slotSize());
        const std::size_t newest = usedSlots_ - 1;
        elementClass_->copy(store_.find(newest, slotSize()) + elementOffsetCM,
                            *elementClass_->element(from + elementOffsetCM));
    });
}

template <class Visit>
void Hash::forEachSlot(Visit&& visit) const {
    for (std::size_t chunk = 0; SlotStore::firstOf(chunk) < usedSlots_; ++chunk) {
        std::byte* slot = store_.chunk(chunk);
        const std::size_t count = std::min<std::size_t>(usedSlots_ - SlotStore::firstOf(chunk),
                                                        SlotStore::slotsOf(chunk));
        for (std::size_t i = 0; i < count; ++i, slot += slotSize()) {
            if (markOf(slot).isLive) visit(slot);
        }
    }
}

}  // namespace SCR
