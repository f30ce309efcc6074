#pragma once

#include <cstddef>
#include <new>

#include "fnd/Export.h"

namespace SCR {

/// Memory for what compiled scripts are made of: nodes, variables and the lists they hold. What is
/// taken during one compile lies side by side in blocks of that compile, so that taking costs next
/// to nothing and giving back counts down; a block is freed with the last thing in it, which may be
/// long after the compile and after the interpreter.
///
/// Thread rule: what one compile took is given back by one thread at a time. Different compiles
/// share nothing.
namespace NodeMemory {

/// `bytes` of memory, aligned for every type of that size that `new` would serve. Throws
/// std::bad_alloc, and `ScriptStopped` when the script being compiled may take no more.
KESTREL_API void* take(std::size_t bytes);
/// The same; null where that throws.
KESTREL_API void* takeOrNull(std::size_t bytes) noexcept;
/// Gives back what `take` gave for as many bytes.
KESTREL_API void give(void* memory, std::size_t bytes) noexcept;

class Pool;

/// While it lives, what its thread takes comes from blocks of its own, which are charged to the
/// script being compiled, for as long as that is there. What is given back meanwhile is taken
/// again. May be nested; made and destroyed by one thread.
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

/// Base of the classes whose objects lie in that memory, one beside the other in the order in which
/// they are made.
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

/// Lets containers in nodes take their memory from where the nodes are.
template <class Element>
class NodeAllocator {
public:
    using value_type = Element;

    NodeAllocator() = default;
    template <class Other>
    NodeAllocator(const NodeAllocator<Other>& /*other*/) {}

    // Elements may be pointers, as those of a deque's table are.
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
