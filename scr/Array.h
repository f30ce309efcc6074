#pragma once

#include <cstddef>
#include <new>

#include "fnd/Export.h"
#include "scr/SlotStore.h"
#include "scr/Variable.h"

namespace SCR {

struct ElementClass;
template <class Container>
struct NestedMaker;

/// A container indexed from 0. All elements are alike: each starts as a clone of the prototype.
/// Elements lie side by side in chunks and are made chunk by chunk when one of them is first used,
/// so an array takes memory for the parts of it that are in use, not for its size. Thread rule of a
/// variable.
class KESTREL_API Array final : public Variable {
public:
    /// The most elements that an array can have.
    static constexpr unsigned long maxSizeCM = 1UL << 32;

    /// Takes the prototype over.
    explicit Array(Variable* prototype);
    ~Array() override;

    /// A new array, owned by the caller, with clones of the prototype and of every element. Throws
    /// std::bad_alloc.
    Variable* clone() const override;

    /// The type word of the elements.
    int containerType() const { return prototype_->dataType(); }
    /// The prototype; it stays the array's.
    Variable* defaultValue() const { return prototype_; }

    /// The number of elements, those included that were only read or lie below one that was used.
    unsigned long size() const { return size_; }

    /// The element `index`, which the array owns; it stays valid until it is removed. An array that
    /// is too small grows so that `index` becomes its last element. Null when the element can not
    /// be had: the array would grow beyond `limit` elements or `maxSizeCM`, or there is no memory.
    /// Nothing changed then.
    Variable* at(unsigned long index, unsigned long limit = maxSizeCM);

    /// The element `index` if it is there and was used before; otherwise null, and `at` gives it.
    /// `V` must be the class of the prototype, one of this library's.
    template <class V>
    V* existing(unsigned long index) const {
        if (index >= size_) [[unlikely]]
            return nullptr;
        std::byte* const slot = store_.find(index, sizeof(V));
        return slot != nullptr ? std::launder(reinterpret_cast<V*>(slot)) : nullptr;
    }

    /// Bytes that the elements take, with all that they hold.
    std::size_t heapBytes() const;

    /// Removes all elements.
    void clear() { truncate(0); }
    /// Removes the elements from `count` on, if there are any. Some of their memory is kept for
    /// elements to come: at most as much as for 64 elements or as for those that are left.
    void truncate(unsigned long count);

private:
    friend struct NestedMaker<Array>;

    // An array like `source` with a prototype that belongs to somebody else.
    Array(const Array& source, Variable* sharedPrototype);

    void makeChunk(std::size_t chunk);
    void freeChunk(std::size_t chunk) noexcept;
    void freeElements() noexcept;
    // Makes the elements those of `source`; there must be none.
    void copyElements(const Array& source);

    const bool ownsPrototype_;
    Variable* const prototype_;
    const ElementClass* const elementClass_;
    unsigned long size_ = 0;
    // In a chunk that exists all slots hold elements; those from `size_` on are like the prototype.
    SlotStore store_;
};

}  // namespace SCR
