#pragma once

#include <cstddef>
#include <cstdint>

#include "fnd/Export.h"

namespace FND {

// Small helpers over the C library whose bounds and failure rules are the same on every platform.
// All are safe to call from any thread and none fails or throws.

/// Copies the C string `source` into the `size` bytes at `target`, as much as fits before the
/// terminating NUL, which is always written unless `size` is 0 (then `target` may be null and
/// nothing is written). The two must not overlap. Returns the length of `source`: the copy was cut
/// short when that is `size` or more.
std::size_t copyString(char* target, std::size_t size, const char* source) noexcept;

/// Appends the C string `source` to the C string in the `size` bytes at `target`, as much as fits,
/// and terminates it. Nothing is written when `target` holds no NUL within `size` bytes. Returns
/// the length that the whole text would have (`size` plus the length of `source` when `target` was
/// not terminated): it was cut short when that is `size` or more.
std::size_t appendString(char* target, std::size_t size, const char* source) noexcept;

/// Sets the `size` bytes at `target` to `value`. `target` may be null when `size` is 0.
void fillMemory(void* target, unsigned char value, std::size_t size) noexcept;

/// Copies `count` bytes from `source` to the `size` bytes at `target`, but never more than `size`.
/// The two may overlap, and may be null when nothing is copied. Returns the number of bytes copied.
std::size_t copyMemory(void* target, std::size_t size, const void* source,
                       std::size_t count) noexcept;

/// Pauses the calling thread for `millis` milliseconds, by a clock that does not jump when the time
/// is set; signals that are handled meanwhile do not shorten the pause. Returns at once when
/// `millis` is 0 or less.
void sleepMillis(std::int64_t millis) noexcept;

/// The current time in milliseconds since 1970-01-01 00:00:00 UTC. Jumps when the time is set.
std::int64_t currentMillis() noexcept;

}  // namespace FND
