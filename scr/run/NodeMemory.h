#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "scr/Node.h"

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
void* take(std::size_t bytes);
/// Gives back the memory that `take` gave for the same number of bytes.
void give(void* memory, std::size_t bytes) noexcept;

class Pool;

/// While it lives, its thread takes memory from blocks of its own. The script being compiled is
/// charged for them as long as it is there. Memory given back meanwhile is reused. May be nested;
/// made and destroyed by one thread.
class Scope {
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

/// Nodes in order, which the list owns.
using NodeList = std::vector<std::unique_ptr<Node>, NodeAllocator<std::unique_ptr<Node>>>;

}  // namespace SCR
