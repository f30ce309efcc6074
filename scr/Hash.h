#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/Variable.h"

namespace SCR {

struct ElementClass;
struct SlotChunk;
template <class Container>
struct NestedMaker;

/// A container indexed by text. All elements are alike: each starts as a clone of the prototype.
/// Entries lie in chunks, key next to element, and are found through a table of their hashes (open
/// addressing, linear probing); a look-up compares only keys whose 32-bit hashes are equal. Thread
/// rule of a variable.
class KESTREL_API Hash final : public Variable {
public:
    /// The most entries that a hash can have.
    static constexpr unsigned long maxSizeCM = 1UL << 31;

    /// Takes ownership of the prototype.
    explicit Hash(Variable* prototype);
    ~Hash() override;

    /// A new hash, owned by the caller, with clones of the prototype and of every element. Throws
    /// std::bad_alloc.
    Variable* clone() const override;

    /// The type word of the elements.
    int containerType() const { return prototype_->dataType(); }
    /// The prototype; it stays the hash's.
    Variable* defaultValue() const { return prototype_; }

    /// The number of entries.
    unsigned long size() const { return size_; }

    /// The element under `key`, which the hash owns; it stays valid until it is removed. A missing
    /// element is made under a copy of the key. Null, with nothing changed, when there are already
    /// `limit` or `maxSizeCM` entries, or when there is no memory.
    Variable* find(const FND::String& key, unsigned long limit = maxSizeCM);

    /// Bytes that the entries take, including everything that they hold.
    std::size_t heapBytes() const;

    bool contains(const FND::String& key) const;
    /// Removes the entry of `key`; false when there is none. `key` may be part of that entry.
    bool remove(const FND::String& key);
    /// Removes all entries. Keeps memory for about 64 entries to come.
    void clear() noexcept;
    /// The same, counted as work: throws `ScriptStopped` when the script has to stop, which leaves
    /// some of the entries.
    void clearInPieces();

    /// All keys, in ascending byte order. They belong to the hash; each stays valid until its entry
    /// is removed. Throws std::bad_alloc.
    std::vector<const FND::String*> keys() const;

private:
    friend struct HashElements;
    friend struct NestedMaker<Hash>;

    // The table's record of an entry: its hash, and its slot's number plus 1 (0 means none).
    struct Bucket {
        std::uint32_t hash = 0;
        std::uint32_t entry = 0;
    };

    // A hash like `source` whose prototype belongs to somebody else.
    Hash(const Hash& source, Variable* sharedPrototype);

    std::size_t slotSize() const;
    Variable* insert(const FND::String& key, std::uint32_t hash);
    void destroyEntry(std::byte* slot) noexcept;
    void resizeTable(std::size_t buckets);
    void erase(Bucket& bucket, std::byte* slot) noexcept;
    void freeElements() noexcept;
    // Copies the entries of `source`; this hash must have none.
    void copyElements(const Hash& source);
    // Calls `visit` with the slot of every entry.
    template <class Visit>
    void forEachSlot(Visit&& visit) const;

    const bool ownsPrototype_;
    std::uint32_t mask_ = 0;  // the number of buckets, a power of 2, minus 1
    Variable* const prototype_;
    const ElementClass* const elementClass_;
    std::unique_ptr<Bucket[]> buckets_;
    std::uint32_t size_ = 0;
    std::uint32_t usedSlots_ = 0;  // slots that hold or held an entry; later slots hold nothing
    std::uint32_t freeSlot_ = 0;   // the first one in the chain of free slots
    // The slot that was found last, or null: the next look is often for the same key.
    std::byte* recent_ = nullptr;
    std::vector<SlotChunk> chunks_;
};

}  // namespace SCR
