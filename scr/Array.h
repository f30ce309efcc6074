#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "fnd/Export.h"
#include "scr/Variable.h"

namespace SCR {

struct ElementClass;
struct OwnedSlots;
struct SlotChunk;
template <class Container>
struct NestedMaker;

/// A block of memory with plain values side by side.
struct ArrayBlock {
    std::byte* values = nullptr;
    unsigned long size = 0;  ///< how many there are
    unsigned long capacity = 0;
    std::size_t bytes = 0;  ///< of the block
};

/// A container indexed from 0. All elements are alike: each starts as a clone of the prototype.
/// Elements lie side by side in chunks. A chunk is made when one of its elements is first used, so
/// an array takes memory for the parts of it that are in use, not for its size. Until somebody asks
/// for an element as a variable, an array of Longs, Bools, Decimals or Dates keeps only their
/// values, those of Longs and Bools in one block as long as most of it is in use. Thread rule of a
/// variable.
class KESTREL_API Array final : public Variable {
public:
    /// The most elements that an array can have.
    static constexpr unsigned long maxSizeCM = static_cast<unsigned long>(1) << 32;

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

    /// Makes elements stay where they are from now on, as `at` does: values of Longs and Bools may
    /// move when the array grows until then. False when there is no memory for it.
    bool keepPlaces() noexcept;

    /// Bytes that the elements take, including everything that they hold.
    std::size_t heapBytes() const;

    /// Removes all elements.
    void clear() { truncate(0); }
    /// Removes the elements from `count` on, if there are any. Keeps some of their memory for later
    /// elements: at most what 64 elements, or those that are left, take.
    void truncate(unsigned long count);

private:
    friend struct ArrayElements;
    friend struct NestedMaker<Array>;

    // An array like `source` whose prototype belongs to somebody else.
    Array(const Array& source, Variable* sharedPrototype);

    const std::byte* valueOfNew() const;
    // Moves the elements from the block into chunks.
    void spread();
    // Turns the elements into variables; false when there is no memory.
    bool makeVariables();
    void makeChunk(std::size_t chunk);
    void freeChunk(std::size_t chunk) noexcept;
    void freeElements() noexcept;
    // Copies the elements of `source`; this array must have none.
    void copyElements(const Array& source);

    const bool ownsPrototype_;
    bool keepsValues_;  // the slots hold values, not variables
    bool isPlain_;      // the values lie in the block
    Variable* const prototype_;
    const ElementClass* elementClass_;
    unsigned long size_ = 0;
    ArrayBlock block_;
    // In a chunk that exists all slots hold elements; those from `size_` on equal the prototype.
    std::vector<SlotChunk> chunks_;
    // The bare values that the variables were made from; somebody may still hold a reference to
    // one.
    std::unique_ptr<OwnedSlots> formerValues_;
};

}  // namespace SCR
