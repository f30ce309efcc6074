#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "fnd/Export.h"
#include "scr/Variable.h"
#include "scr/value/SlotStore.h"

namespace SCR {

struct ElementClass;
template <class Container>
struct NestedMaker;

/// A container indexed from 0. All elements are alike: each starts as a clone of the prototype.
/// Elements lie side by side in chunks. A chunk is made when one of its elements is first used, so
/// an array takes memory for the parts of it that are in use, not for its size. Until somebody asks
/// for an element as a variable, an array of Longs, Bools, Decimals or Dates keeps only their
/// values. Thread rule of a variable.
class KESTREL_API Array final : public Variable {
public:
    /// The most elements that an array can have.
    static constexpr unsigned long maxSizeCM = 1UL << 32;

    /// Takes ownership of the prototype.
    explicit Array(Variable* prototype);
    ~Array() override;

    /// A new array, owned by the caller, with clones of the prototype and of every element. Throws
    /// std::bad_alloc.
    Variable* clone() const override;

    /// The type word of the elements.
    int containerType() const { return prototype_->dataType(); }
    /// The prototype; it stays the array's.
    Variable* defaultValue() const { return prototype_; }

    /// The number of elements, including those that were only read or lie below one that was used.
    unsigned long size() const { return size_; }

    /// The element `index`, which the array owns; it stays valid until it is removed. An array that
    /// is too small grows so that `index` becomes its last element. Null, with nothing changed,
    /// when the array would grow beyond `limit` elements or `maxSizeCM`, or when there is no
    /// memory. In an array that kept only values this makes variables of them; references to the
    /// values stay readable.
    Variable* at(unsigned long index, unsigned long limit = maxSizeCM);

    /// Makes the element `index` as `at` does, without returning it; false where `at` gives null.
    bool make(unsigned long index, unsigned long limit = maxSizeCM);

    /// The element `index` if it exists and was used before; otherwise null, and `at` gives it. `V`
    /// must be the class of the prototype, one of this library's.
    template <class V>
    V* existing(unsigned long index) const {
        if (index >= size_) [[unlikely]]
            return nullptr;
        if constexpr (mayKeepValuesCM<V>) {
            if (keepsValues_) return nullptr;
        }
        return in<V>(store_.find(index, sizeof(V)));
    }

    /// The value of the element `index` if it exists and was used before, otherwise null; never
    /// null after `make` gave true for it. The pointer stays valid as long as the element. After
    /// the first call of `at` it only shows the value that the element had then.
    template <class V>
    [[gnu::always_inline]] auto existingValue(unsigned long index) const
        -> std::remove_reference_t<decltype(std::declval<V&>().value())>* {
        using Value = std::remove_reference_t<decltype(std::declval<V&>().value())>;
        if (index >= size_) [[unlikely]]
            return nullptr;
        if constexpr (mayKeepValuesCM<V>) {
            if (keepsValues_) [[likely]]
                return in<Value>(store_.find(index, sizeof(Value)));
        }
        V* const element = in<V>(store_.find(index, sizeof(V)));
        return element != nullptr ? &element->value() : nullptr;
    }

    /// Bytes that the elements take, including everything that they hold.
    std::size_t heapBytes() const;

    /// Removes all elements.
    void clear() { truncate(0); }
    /// Removes the elements from `count` on, if there are any. Keeps some of their memory for later
    /// elements: at most what 64 elements, or those that are left, take.
    void truncate(unsigned long count);

private:
    friend struct NestedMaker<Array>;

    template <class V>
    static constexpr bool mayKeepValuesCM =
        std::is_same_v<V, LongVariable> || std::is_same_v<V, BoolVariable> ||
        std::is_same_v<V, DecimalVariable> || std::is_same_v<V, DateVariable>;

    template <class Object>
    static Object* in(std::byte* slot) {
        return slot != nullptr ? std::launder(reinterpret_cast<Object*>(slot)) : nullptr;
    }

    // An array like `source` whose prototype belongs to somebody else.
    Array(const Array& source, Variable* sharedPrototype);

    // Turns the elements into variables; false when there is no memory.
    bool makeVariables();
    void makeChunk(std::size_t chunk);
    void freeChunk(std::size_t chunk) noexcept;
    void freeElements() noexcept;
    // Copies the elements of `source`; this array must have none.
    void copyElements(const Array& source);

    const bool ownsPrototype_;
    bool keepsValues_;  // the slots hold values, not variables
    Variable* const prototype_;
    const ElementClass* elementClass_;
    unsigned long size_ = 0;
    // In a chunk that exists all slots hold elements; those from `size_` on equal the prototype.
    SlotStore store_;
    // The bare values that the variables were made from; somebody may still hold a reference to
    // one.
    std::unique_ptr<SlotStore> formerValues_;
};

}  // namespace SCR
