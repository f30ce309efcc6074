#include "scr/Hash.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <exception>
#include <limits>
#include <string_view>
#include <utility>

#include "scr/run/MemoryCharge.h"
#include "scr/value/ElementClass.h"
#include "scr/value/Elements.h"
#include "scr/value/KeyHash.h"
#include "scr/value/LargeText.h"
#include "scr/value/Slots.h"

namespace SCR {

namespace {

constexpr std::uint32_t noSlotS = std::numeric_limits<std::uint32_t>::max();
constexpr std::size_t fewestBucketsS = 8;
// How much of a cleared hash is kept.
constexpr std::size_t keptSlotsS = 64;
constexpr std::size_t keptBucketsS = 128;

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
    if (std::byte* const slot = HashElements::look(*this, key, hash, slotSize()).slot) {
        return elementClass_->element(slot + HashElements::elementOffsetCM);
    }
    if (size_ >= std::min(limit, maxSizeCM)) return nullptr;
    try {
        return insert(key, hash);
    } catch (const std::exception&) {
        return nullptr;
    }
}

std::size_t Hash::heapBytes() const {
    std::size_t bytes = Slots::heapBytes(chunks_, slotSize());
    if (buckets_ != nullptr) bytes += (mask_ + std::size_t{1}) * sizeof(Bucket);
    forEachSlot([&](std::byte* slot) {
        countWork(slotSize());
        bytes += SCR::heapBytes(HashElements::keyIn(slot));
        if (elementClass_->heapBytes != nullptr) {
            bytes += elementClass_->heapBytes(slot + HashElements::elementOffsetCM, 1);
        }
    });
    return bytes;
}

bool Hash::contains(const FND::String& key) const {
    return size_ > 0 && HashElements::look(*this, key, keyHash(key), slotSize()).slot != nullptr;
}

bool Hash::remove(const FND::String& key) {
    if (size_ == 0) return false;
    const auto found = HashElements::look(*this, key, keyHash(key), slotSize());
    if (found.slot == nullptr) return false;
    erase(*found.bucket, found.slot);
    return true;
}

void Hash::clear() noexcept {
    if (size_ > 0) forEachSlot([this](std::byte* slot) { destroyEntry(slot); });
    for (std::size_t chunk = 0; chunk < chunks_.size(); ++chunk) {
        if (Slots::firstOf(chunk) >= keptSlotsS) Slots::release(chunks_, chunk);
    }
    Slots::trim(chunks_, 0);
    if (buckets_ != nullptr && mask_ < keptBucketsS) {
        std::fill_n(buckets_.get(), mask_ + std::size_t{1}, Bucket());
    } else {
        buckets_.reset();
        mask_ = 0;
    }
    size_ = 0;
    usedSlots_ = 0;
    freeSlot_ = noSlotS;
    recent_ = nullptr;
}

void Hash::clearInPieces() {
    constexpr std::uint32_t few = 4096;
    if (usedSlots_ <= few) {
        countWork(usedSlots_ * slotSize());
        return clear();
    }
    // The last ones first, as the system takes memory back from the end. What is left after a stop
    // is whole.
    const auto liveSlot = [&](std::uint32_t number) {
        std::byte* const slot = Slots::find(chunks_, number, slotSize());
        return HashElements::markOf(slot).isLive ? slot : nullptr;
    };
    for (std::uint32_t number = usedSlots_; size_ > 0 && number-- > 0;) {
        constexpr std::uint32_t ahead = 16;
        countWork(2 * slotSize());
        std::byte* const later = number >= ahead ? liveSlot(number - ahead) : nullptr;
        if (later != nullptr && !isLarge(HashElements::keyIn(later).size())) {
            __builtin_prefetch(&buckets_[keyHash(HashElements::keyIn(later)) & mask_], 1);
        }
        std::byte* const slot = liveSlot(number);
        if (slot == nullptr) continue;
        std::uint32_t at = keyHash(HashElements::keyIn(slot));
        while (buckets_[at & mask_].entry != number + 1) ++at;
        erase(buckets_[at & mask_], slot);
    }
    usedSlots_ = 0;
    freeSlot_ = noSlotS;
    for (std::size_t chunk = chunks_.size(); chunk-- > 0;) {
        if (Slots::firstOf(chunk) < keptSlotsS) break;
        Slots::release(chunks_, chunk);
        countWork(Slots::slotsOf(chunk) * slotSize() / 8);
    }
    clear();
}

std::vector<const FND::String*> Hash::keys() const {
    // The prefix that all keys share does not help to order them.
    std::string_view common;
    bool isFirst = true;
    forEachSlot([&](std::byte* slot) {
        const std::string_view key = HashElements::keyIn(slot);
        countWork(slotSize());
        if (std::exchange(isFirst, false)) common = key;
        common = common.substr(0, commonLength(common, key));
    });

    std::vector<SortedKey> order;
    order.reserve(size_);
    forEachSlot([&](std::byte* slot) {
        const FND::String& key = HashElements::keyIn(slot);
        countWork(slotSize());
        order.push_back({head(std::string_view(key).substr(common.size())), &key});
    });
    std::sort(order.begin(), order.end(), [](const SortedKey& a, const SortedKey& b) {
        countWork(sizeof(SortedKey));
        if (a.head != b.head) return a.head < b.head;
        return isLarge(a.key->size()) ? compareLarge(*a.key, *b.key) < 0 : *a.key < *b.key;
    });

    std::vector<const FND::String*> keys;
    keys.reserve(order.size());
    for (const SortedKey& entry : order) {
        countWork(sizeof(SortedKey));
        keys.push_back(entry.key);
    }
    return keys;
}

std::size_t Hash::slotSize() const { return HashElements::elementOffsetCM + elementClass_->size; }

Variable* Hash::insert(const FND::String& key, std::uint32_t hash) {
    const std::size_t buckets = buckets_ != nullptr ? mask_ + std::size_t{1} : 0;
    if ((size_ + std::size_t{1}) * 4 > buckets * 3) {
        resizeTable(std::max(fewestBucketsS, 2 * buckets));
    }
    const bool reuses = freeSlot_ != noSlotS;
    const std::uint32_t number = reuses ? freeSlot_ : usedSlots_;
    const std::size_t chunk = Slots::chunkOf(number);
    if (!Slots::exists(chunks_, chunk)) Slots::allocate(chunks_, chunk, slotSize());
    std::byte* const slot = Slots::find(chunks_, number, slotSize());
    if (key.size() > FND::String().capacity()) chargeMemory(blockBytes(key.size() + 1));
    auto* const copy = new (slot + HashElements::keyOffsetCM) FND::String(copyOf(key));
    try {
        elementClass_->construct(slot + HashElements::elementOffsetCM, 1, *prototype_);
    } catch (...) {
        std::destroy_at(copy);
        throw;
    }
    if (reuses) {
        freeSlot_ = HashElements::markOf(slot).next;
    } else {
        ++usedSlots_;
    }
    new (slot) HashElements::Mark{noSlotS, true};
    std::uint32_t at = hash;
    while (buckets_[at & mask_].entry != 0) ++at;
    buckets_[at & mask_] = {hash, number + 1};
    ++size_;
    recent_ = slot;
    return elementClass_->element(slot + HashElements::elementOffsetCM);
}

void Hash::destroyEntry(std::byte* slot) noexcept {
    elementClass_->destroy(slot + HashElements::elementOffsetCM, 1);
    std::destroy_at(&HashElements::keyIn(slot));
}

void Hash::resizeTable(std::size_t buckets) {
    chargeMemory(buckets * sizeof(Bucket));
    auto table = std::make_unique<Bucket[]>(buckets);
    const auto mask = static_cast<std::uint32_t>(buckets - 1);
    if (buckets_ != nullptr) {
        for (std::size_t from = 0; from <= mask_; ++from) {
            if (buckets_[from].entry == 0) continue;
            std::uint32_t at = buckets_[from].hash;
            while (table[at & mask].entry != 0) ++at;
            table[at & mask] = buckets_[from];
        }
    }
    buckets_ = std::move(table);
    mask_ = mask;
}

void Hash::erase(Bucket& bucket, std::byte* slot) noexcept {
    destroyEntry(slot);
    recent_ = nullptr;
    new (slot) HashElements::Mark{freeSlot_, false};
    freeSlot_ = bucket.entry - 1;
    --size_;
    // Later entries of the run move up when the gap would cut them off from their own buckets.
    auto gap = static_cast<std::uint32_t>(&bucket - buckets_.get());
    for (std::uint32_t at = gap + 1; buckets_[at & mask_].entry != 0; ++at) {
        const Bucket& moved = buckets_[at & mask_];
        if (((at - moved.hash) & mask_) < ((at - gap) & mask_)) continue;
        buckets_[gap & mask_] = moved;
        gap = at;
    }
    buckets_[gap & mask_] = {};
}

void Hash::freeElements() noexcept {
    forEachSlot([this](std::byte* slot) { destroyEntry(slot); });
    for (std::size_t chunk = 0; chunk < chunks_.size(); ++chunk) Slots::release(chunks_, chunk);
    Slots::trim(chunks_, 0);
    buckets_.reset();
    mask_ = 0;
    size_ = 0;
    usedSlots_ = 0;
    freeSlot_ = noSlotS;
    recent_ = nullptr;
}

void Hash::copyElements(const Hash& source) {
    source.forEachSlot([&](std::byte* from) {
        const FND::String& key = HashElements::keyIn(from);
        insert(key, keyHash(key));
        countWork(slotSize());
        const std::size_t newest = usedSlots_ - 1;
        elementClass_->copy(
            Slots::find(chunks_, newest, slotSize()) + HashElements::elementOffsetCM,
            *elementClass_->element(from + HashElements::elementOffsetCM));
    });
}

template <class Visit>
void Hash::forEachSlot(Visit&& visit) const {
    for (std::size_t chunk = 0; Slots::firstOf(chunk) < usedSlots_; ++chunk) {
        std::byte* slot = chunks_[chunk].slots;
        const std::size_t count =
            std::min<std::size_t>(usedSlots_ - Slots::firstOf(chunk), Slots::slotsOf(chunk));
        for (std::size_t i = 0; i < count; ++i, slot += slotSize()) {
            if (HashElements::markOf(slot).isLive) visit(slot);
        }
    }
}

}  // namespace SCR
