#pragma once

#include <emmintrin.h>

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace FSM {

/// The first newline or NUL at or after `text`. Reads whole aligned blocks of 16 bytes. These may
/// begin before the text and go past its end, but never reach into another page than the byte
/// found.
__attribute__((no_sanitize("address", "thread"))) inline const unsigned char* lineEnd(
    const unsigned char* text) {
    const __m128i newline = _mm_set1_epi8('\n');
    const __m128i zero = _mm_setzero_si128();
    std::size_t offset = reinterpret_cast<std::uintptr_t>(text) & 15;
    const unsigned char* block = text - offset;
    unsigned looked = ~0u << offset;
    for (;; block += 16) {
        __m128i bytes = _mm_load_si128(reinterpret_cast<const __m128i*>(block));
        __m128i hits = _mm_or_si128(_mm_cmpeq_epi8(bytes, newline), _mm_cmpeq_epi8(bytes, zero));
        unsigned found = static_cast<unsigned>(_mm_movemask_epi8(hits)) & looked;
        if (found != 0) return block + __builtin_ctz(found);
        looked = ~0u;
    }
}

/// The first newline or NUL from `text` to before `end`, or `end`. Reads nothing outside.
inline const unsigned char* lineEnd(const unsigned char* text, const unsigned char* end) {
    const __m128i newline = _mm_set1_epi8('\n');
    const __m128i zero = _mm_setzero_si128();
    for (; end - text >= 16; text += 16) {
        __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
        __m128i hits = _mm_or_si128(_mm_cmpeq_epi8(bytes, newline), _mm_cmpeq_epi8(bytes, zero));
        auto found = static_cast<unsigned>(_mm_movemask_epi8(hits));
        if (found != 0) return text + __builtin_ctz(found);
    }
    while (text != end && *text != '\n' && *text != 0) ++text;
    return text;
}

/// The same, but where `takesNul` the first newline alone.
inline const unsigned char* lineEnd(const unsigned char* text, const unsigned char* end,
                                    bool takesNul) {
    text = lineEnd(text, end);
    while (takesNul && text != end && *text == 0) text = lineEnd(text + 1, end);
    return text;
}

/// Whether there is a NUL among the first `count` of `size` bytes.
inline bool holdsNul(const unsigned char* text, std::size_t count, std::size_t size) {
    if (count > 16 || size < 16) return std::memchr(text, 0, count) != nullptr;
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
    const int found = _mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_setzero_si128()));
    return (static_cast<unsigned>(found) & ((1U << count) - 1)) != 0;
}

/// A set of bytes without NUL, in a form in which 16 bytes of a text are looked up at once: for
/// each low half of a byte, a bit for each high half. Does nothing on a processor without SSSE3.
class ByteScan {
public:
    explicit ByteScan(const std::bitset<256>& bytes);

    bool contains(unsigned char byte) const;

    /// The first byte at or after `text` that is not in the set, or any byte before that. Reads
    /// like `lineEnd`.
    const unsigned char* skip(const unsigned char* text) const;
    /// The same up to `end`, where all from `begin` on may be read.
    const unsigned char* skip(const unsigned char* begin, const unsigned char* text,
                              const unsigned char* end) const;

private:
    alignas(16) unsigned char below128_[16] = {};
    alignas(16) unsigned char from128_[16] = {};
};

}  // namespace FSM
