#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "fnd/Export.h"
#include "fnd/String.h"

namespace SCR {

// A turn of a loop may do unbounded work: a string may have a gigabyte. Code that works on whole
// strings or on all elements of a container counts its work here, so that the script that the
// calling thread runs can be stopped in time. Outside of a run nothing is counted.

/// Counts work on `bytes` bytes. Every few hundred kilobytes it checks whether the script has to
/// stop, and throws `ScriptStopped` then.
void countWork(std::size_t bytes);

/// Whether work on a string of `size` bytes is worth counting.
inline bool isLarge(std::size_t size) { return size > 1024; }

/// Counts work on a string.
inline void countString(std::size_t size) {
    if (isLarge(size)) [[unlikely]]
        countWork(size);
}

/// Calls `step(begin, end)` for consecutive pieces of the range from 0 to `size` and counts them as
/// work.
template <class Step>
void inPieces(std::size_t size, Step step) {
    constexpr std::size_t pieceSize = 64 * 1024;
    if (size <= pieceSize) [[likely]] {
        step(std::size_t{0}, size);
        countString(size);
        return;
    }
    for (std::size_t begin = 0; begin < size;) {
        const std::size_t end = begin + std::min(pieceSize, size - begin);
        step(begin, end);
        countWork(end - begin);
        begin = end;
    }
}

/// Appends `text`, which does not lie in `target`. The caller has made room.
inline void appendInPieces(FND::String& target, std::string_view text) {
    inPieces(text.size(), [&](std::size_t begin, std::size_t end) {
        target.append(text.substr(begin, end - begin));
    });
}

/// A copy of `text`.
FND::String copyOfLarge(const FND::String& text);
inline FND::String copyOf(const FND::String& text) {
    return isLarge(text.size()) ? copyOfLarge(text) : FND::String(text);
}

/// Makes `target`, which keeps its text, hold `capacity` bytes without further allocation.
/// `capacity` is not less than its size.
void reserveInPieces(FND::String& target, std::size_t capacity);

}  // namespace SCR
