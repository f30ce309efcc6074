#pragma once

#include <cstddef>

#include "scr/Array.h"

namespace SCR::PlainBlocks {

/// The values of an array of Longs or Bools: what `Array::Block` holds. The block moves when it
/// grows. Large ones lie on large pages, where the system has them. What lies between the size and
/// the capacity equals `fill`, the value of new elements, which have `width` bytes. Memory that is
/// taken is charged. One thread at a time.
using Block = ArrayBlock;

/// Whether an element `index` would leave most of a block that holds it unused.
inline bool isTooFar(const Block& block, std::size_t index) {
    return index / 4 > block.capacity + 4096;
}
/// Makes the block hold `count` elements. Throws std::bad_alloc, with nothing changed.
void reserve(Block& block, std::size_t count, std::size_t width, const std::byte* fill);
/// Frees the block.
void clear(Block& block) noexcept;
/// Leaves the first `count` elements, and frees most of what is empty then, as far as there is
/// memory for a smaller block.
void truncate(Block& block, std::size_t count, std::size_t width, const std::byte* fill) noexcept;
std::size_t heapBytes(const Block& block);

}  // namespace SCR::PlainBlocks
