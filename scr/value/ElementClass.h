#pragma once

#include <cstddef>

#include "scr/Variable.h"

namespace SCR {

/// How a container makes, fills and destroys its elements, whose class is that of its prototype.
/// Elements of the classes of this library lie in the container's slots themselves; those of any
/// other class are objects of their own and the slots hold pointers to them.
struct ElementClass {
    /// Bytes of one element's slot. No slot needs more than an alignment of 8.
    std::size_t size;
    bool isBoxed;
    /// Makes `count` elements like `prototype` in adjacent slots. Containers made so refer to the
    /// prototype's own prototype, which has to outlive them. Throws std::bad_alloc, with nothing
    /// made.
    void (*construct)(std::byte* slots, std::size_t count, const Variable& prototype);
    void (*destroy)(std::byte* slots, std::size_t count) noexcept;
    /// Makes the element in `slot` equal to `source`, which is of its class. Throws std::bad_alloc.
    void (*copy)(std::byte* slot, const Variable& source);
    /// What `count` elements take beside their slots; null where they take nothing.
    std::size_t (*heapBytes)(const std::byte* slots, std::size_t count);

    /// Gives `element` the value in `slot`; null unless the slots hold bare values.
    void (*load)(Variable& element, const std::byte* slot) = nullptr;

    /// The class for elements like `prototype`.
    static const ElementClass& of(const Variable& prototype);
    /// The class for the bare values of elements like `prototype`; they can be copied as bytes and
    /// are no variables. Null where elements are more than a plain value.
    static const ElementClass* ofValues(const Variable& prototype);

    /// The element in a slot; the slot holds one.
    Variable* element(std::byte* slot) const {
        if (isBoxed) [[unlikely]]
            return *reinterpret_cast<Variable**>(slot);
        return reinterpret_cast<Variable*>(slot);
    }
};

/// Whether the class of `variable` is the one of this library for its type, so that it may be used
/// as such: a host may have made a class of its own, or changed the type word.
bool hasClassOfType(const Variable& variable);

/// Whether the elements of `array` are Strings of this library.
bool holdsStrings(const ArrayNode& array);

}  // namespace SCR
