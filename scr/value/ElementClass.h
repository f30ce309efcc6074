#pragma once

#include <cstddef>

#include "scr/Variable.h"

namespace SCR {

/// How a container makes, fills and destroys its elements, whose class is that of its prototype.
/// Elements of this library's classes lie directly in the container's slots. Elements of any other
/// class are separate objects, and the slots hold pointers to them.
struct ElementClass {
    /// Bytes of one element's slot. No slot needs more than an alignment of 8.
    std::size_t size;
    bool isBoxed;
    /// Makes `count` elements like `prototype` in adjacent slots. Containers made this way refer to
    /// the prototype's own prototype, which must outlive them. Throws std::bad_alloc, with nothing
    /// made.
    void (*construct)(std::byte* slots, std::size_t count, const Variable& prototype);
    void (*destroy)(std::byte* slots, std::size_t count) noexcept;
    /// Makes the element in `slot` equal to `source`, which is of its class. Throws std::bad_alloc.
    void (*copy)(std::byte* slot, const Variable& source);
    /// The memory of `count` elements outside their slots; null when they take none there.
    std::size_t (*heapBytes)(const std::byte* slots, std::size_t count);

    /// Sets `element` to the value in `slot`; null unless the slots hold bare values.
    void (*load)(Variable& element, const std::byte* slot) = nullptr;

    /// The class for elements like `prototype`.
    static const ElementClass& of(const Variable& prototype);
    /// The class for the bare values of elements like `prototype`. Such values can be copied as
    /// bytes and are no variables. Null when an element is more than a plain value.
    static const ElementClass* ofValues(const Variable& prototype);

    /// The element in a slot, which must hold one.
    Variable* element(std::byte* slot) const {
        if (isBoxed) [[unlikely]]
            return *reinterpret_cast<Variable**>(slot);
        return reinterpret_cast<Variable*>(slot);
    }
};

/// Whether `variable` has exactly this library's class for its type, so that it can be used as that
/// class: a host may have made a class of its own, or changed the type word.
bool hasClassOfType(const Variable& variable);

/// The variable that the elements of a container are like; `node` is an `ArrayNode` or `HashNode`.
const Variable& prototypeOf(const Node& node);

/// Whether the elements of `array` are Strings of this library.
bool holdsStrings(const ArrayNode& array);

}  // namespace SCR
