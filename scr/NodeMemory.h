#pragma once

#include <cstddef>
#include <new>

#include "fnd/Export.h"

namespace SCR {

/// Memory for the parts of compiled scripts: nodes, variables and the lists they hold. Everything
/// taken during one compile lies side by side in blocks of that compile. So taking costs next to
/// nothing, and giving back only counts down. A block is freed with the last object in it, which
/// may be long after the compile and after the interpreter.
///
/// Thread rule: one thread at a time gives back the memory of one compile. Different compiles share
/// nothing.
namespace NodeMemory {

/// `bytes` of memory, with the alignment that `new` gives to types of that size. Throws
/// std::bad_alloc, and `ScriptStopped` when the script being compiled may take no more.
KESTREL_API void* take(std::size_t bytes);
/// The same, but null where that throws.
KESTREL_API void* takeOrNull(std::size_t bytes) noexcept;
/// Gives back the memory that `take` gave for the same number of bytes.
KESTREL_API void give(void* memory, std::size_t bytes) noexcept;

class Pool;

/// While it lives, its thread takes memory from blocks of its own. The script being compiled is
/// charged for them as long as it is there. Memory given back meanwhile is reused. May be nested;
/// made and destroyed by one thread.
class KESTREL_API Scope {
public:
    Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    ~Scope();

private:
    Pool* pool_;
    Pool* outer_;
};

}  // namespace NodeMemory

/// Base of the classes whose objects lie in that memory, side by side in the order in which they
/// are made.
class InNodeMemory {
public:
    static void* operator new(std::size_t bytes) { return NodeMemory::take(bytes); }
    static void operator delete(void* object, std::size_t bytes) noexcept {
        NodeMemory::give(object, bytes);
    }
    static void* operator new(std::size_t bytes, std::align_val_t alignment) {
        return ::operator new(bytes, alignment);
    }
    static void operator delete(void* object, std::size_t /*bytes*/,
                                std::align_val_t alignment) noexcept {
        ::operator delete(object, alignment);
    }
    static void* operator new(std::size_t bytes, const std::nothrow_t& /*unused*/) noexcept {
        return NodeMemory::takeOrNull(bytes);
    }
    static void* operator new(std::size_t /*bytes*/, void* place) noexcept { return place; }
    static void operator delete(void* /*object*/, void* /*place*/) noexcept {}

protected:
    ~InNodeMemory() = default;
};

/// Lets containers in nodes take their memory from the same blocks as the nodes.
template <class Element>
class NodeAllocator {
public:
    using value_type = Element;

    NodeAllocator() = default;
    template <class Other>
    NodeAllocator(const NodeAllocator<Other>& /*other*/) {}

    // Elements may be pointers, for example those in the table of a deque.
    // NOLINTBEGIN(bugprone-sizeof-expression)
    Element* allocate(std::size_t count) {
        static_assert(alignof(Element) <= 16);
        return static_cast<Element*>(NodeMemory::take(count * sizeof(Element)));
    }
    void deallocate(Element* elements, std::size_t count) noexcept {
        NodeMemory::give(elements, count * sizeof(Element));
    }
    // NOLINTEND(bugprone-sizeof-expression)

    friend bool operator==(const NodeAllocator& /*a*/, const NodeAllocator& /*b*/) { return true; }
};

}  // namespace SCR
