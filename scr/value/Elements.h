#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>

#include "scr/Array.h"
#include "scr/Hash.h"
#include "scr/HostContainers.h"
#include "scr/value/ElementClass.h"
#include "scr/value/KeyHash.h"
#include "scr/value/LargeText.h"
#include "scr/value/Slots.h"

namespace SCR {

// The fast ways to elements that are there, for the nodes of this library. `V` must be the class of
// the container's prototype, one of this library's.

/// Those of arrays.
struct ArrayElements {
    /// Whether the elements are bare values in one block, which is given back at once.
    static bool isPlain(const Array& array) { return array.isPlain_; }
    /// The element `index` if it exists and was used before; otherwise null, and `at` gives it.
    template <class V>
    static V* find(const Array& array, unsigned long index) {
        if (index >= array.size_) [[unlikely]]
            return nullptr;
        if constexpr (mayKeepValuesCM<V>) {
            if (array.keepsValues_) return nullptr;
        }
        return in<V>(Slots::find(array.chunks_, index, sizeof(V)));
    }

    /// The value of the element `index` if it exists and was used before, otherwise null; never
    /// null after `make` gave true for it. The pointer stays valid as long as the element; for a
    /// Long or a Bool only until the array grows. After the first call of `at` it only shows the
    /// value that the element had then.
    template <class V>
    [[gnu::always_inline]] static auto findValue(const Array& array, unsigned long index)
        -> std::remove_reference_t<decltype(std::declval<V&>().value())>* {
        using Value = std::remove_reference_t<decltype(std::declval<V&>().value())>;
        if constexpr (mayBePlainCM<V>) {
            if (index < array.block_.size) [[likely]]
                return in<Value>(array.block_.values + index * sizeof(Value));
        }
        if (array.isPlain_ || index >= array.size_) [[unlikely]]
            return nullptr;
        if constexpr (mayKeepValuesCM<V>) {
            if (array.keepsValues_) [[likely]]
                return in<Value>(Slots::find(array.chunks_, index, sizeof(Value)));
        }
        V* const element = in<V>(Slots::find(array.chunks_, index, sizeof(V)));
        return element != nullptr ? &element->value() : nullptr;
    }

    /// The values of the elements from `index` on, which the array has and which keep their places,
    /// that lie in one chunk;
    /// where that was not used yet, they are all `*unused`.
    template <class V, class Value>
    static Host::Run<const Value> run(const Array& array, unsigned long index,
                                      const Value* unused) {
        const std::size_t chunk = Slots::chunkOf(index);
        const unsigned long end = std::min<unsigned long>(array.size_, Slots::firstOf(chunk + 1));
        if (!Slots::exists(array.chunks_, chunk)) return {unused, 0, end - index};
        if constexpr (mayKeepValuesCM<V>) {
            if (array.keepsValues_) {
                return {in<Value>(Slots::find(array.chunks_, index, sizeof(Value))), sizeof(Value),
                        end - index};
            }
        }
        V* const first = in<V>(Slots::find(array.chunks_, index, sizeof(V)));
        if constexpr (std::is_same_v<V, Value>) {
            return {first, sizeof(V), end - index};
        } else {
            return {&first->value(), sizeof(V), end - index};
        }
    }
    /// The same of elements whose chunk was used, to be changed.
    template <class V, class Value>
    static Host::Run<Value> change(Array& array, unsigned long index) {
        const Value* const any = nullptr;
        const auto found = run<V, Value>(array, index, any);
        return {const_cast<Value*>(found.first), found.stride, found.count};
    }

    /// The block with the values of `array`, for code; it is as long as they are in one, and empty
    /// otherwise. It belongs to the array.
    static const ArrayBlock& block(const Array& array) { return array.block_; }
    /// Where code finds the values of the elements, each of the class V, of an array that does not
    /// keep values only.
    template <class V>
    static ElementSlots slots(const Array& array) {
        static_assert(!mayKeepValuesCM<V>);
        auto& prototype = static_cast<V&>(*array.prototype_);
        const auto offset = reinterpret_cast<const std::byte*>(&prototype.value()) -
                            reinterpret_cast<const std::byte*>(&prototype);
        return {&array.size_, &array.chunks_, sizeof(V), static_cast<std::size_t>(offset)};
    }

    /// Whether the values of elements may lie in a block.
    template <class V>
    static constexpr bool mayBePlainCM =
        std::is_same_v<V, LongVariable> || std::is_same_v<V, BoolVariable>;

private:
    template <class V>
    static constexpr bool mayKeepValuesCM =
        mayBePlainCM<V> || std::is_same_v<V, DecimalVariable> || std::is_same_v<V, DateVariable>;

    template <class Object>
    static Object* in(std::byte* slot) {
        return slot != nullptr ? std::launder(reinterpret_cast<Object*>(slot)) : nullptr;
    }
};

/// Those of hashes.
struct HashElements {
    /// The element under `key`, if it is the one that `find` gave last; otherwise null.
    template <class V>
    static V* findAgain(const Hash& hash, const FND::String& key) {
        std::byte* const slot = hash.recent_;
        if (slot == nullptr || !areEqualKeys(keyIn(slot), key)) return nullptr;
        return elementIn<V>(slot);
    }
    /// The element under `key`, whose `keyHash` is `code`; null when it is missing.
    template <class V>
    static V* find(Hash& hash, const FND::String& key, std::uint32_t code) {
        std::byte* const slot = look(hash, key, code, elementOffsetCM + sizeof(V)).slot;
        if (slot == nullptr) return nullptr;
        hash.recent_ = slot;
        return elementIn<V>(slot);
    }
    /// The same without remembering it, as several threads may look at once.
    template <class V>
    static V* look(const Hash& hash, const FND::String& key, std::uint32_t code) {
        std::byte* const slot = look(hash, key, code, elementOffsetCM + sizeof(V)).slot;
        return slot != nullptr ? elementIn<V>(slot) : nullptr;
    }

    /// The first entry from slot `position` on, which then is the slot after it: gives its key and
    /// stores its element; null when there is none.
    static const FND::String* next(const Hash& hash, std::size_t& position, Variable*& element) {
        while (position < hash.usedSlots_) {
            std::byte* const slot = Slots::find(hash.chunks_, position++, hash.slotSize());
            if (slot == nullptr || !markOf(slot).isLive) continue;
            element = hash.elementClass_->element(slot + elementOffsetCM);
            return &keyIn(slot);
        }
        return nullptr;
    }

private:
    friend class Hash;

    // A slot holds a mark, the key and the element; a free slot holds only the mark.
    struct Mark {
        std::uint32_t next;  // of a free slot: the number of the next free one
        bool isLive;
    };
    static constexpr std::size_t keyOffsetCM = sizeof(Mark);
    static constexpr std::size_t elementOffsetCM = keyOffsetCM + sizeof(FND::String);

    template <class V>
    static V* elementIn(std::byte* slot) {
        return std::launder(reinterpret_cast<V*>(slot + elementOffsetCM));
    }
    static FND::String& keyIn(std::byte* slot) {
        return *std::launder(reinterpret_cast<FND::String*>(slot + keyOffsetCM));
    }
    static Mark& markOf(std::byte* slot) { return *std::launder(reinterpret_cast<Mark*>(slot)); }

    struct Found {
        Hash::Bucket* bucket;  // null when there is no entry
        std::byte* slot;       // the same
    };
    static Found look(const Hash& hash, const FND::String& key, std::uint32_t code,
                      std::size_t slotSize) {
        if (hash.buckets_ == nullptr) [[unlikely]]
            return {};
        for (std::uint32_t at = code;; ++at) {
            Hash::Bucket& bucket = hash.buckets_[at & hash.mask_];
            if (bucket.entry == 0) return {};
            if (bucket.hash != code) continue;
            std::byte* const slot = Slots::find(hash.chunks_, bucket.entry - 1, slotSize);
            if (areEqualKeys(keyIn(slot), key)) [[likely]]
                return {&bucket, slot};
        }
    }
};

}  // namespace SCR
