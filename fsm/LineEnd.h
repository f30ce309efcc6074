#pragma once

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

namespace FSM {

/// The first newline or NUL at or after `text`. Reads whole aligned blocks of 16 bytes, which never
/// reach into another page than the byte found, but may lie before the text or behind its end.
__attribute__((no_sanitize("address", "thread"))) inline const unsigned char* lineEnd(
    const unsigned char* text) {
    const __m128i newline = _mm_set1_epi8('\n');
    const __m128i zero = _mm_setzero_si128();
    std::size_t offset = reinterpret_cast<std::uintptr_t>(text) & 15;
    const unsigned char* block = text - offset;
    unsigned ignored = ~0u << offset;
    for (;; block += 16) {
        __m128i bytes = _mm_load_si128(reinterpret_cast<const __m128i*>(block));
        __m128i hits = _mm_or_si128(_mm_cmpeq_epi8(bytes, newline), _mm_cmpeq_epi8(bytes, zero));
        unsigned found = static_cast<unsigned>(_mm_movemask_epi8(hits)) & ignored;
        if (found != 0) return block + __builtin_ctz(found);
        ignored = ~0u;
    }
}

/// The first newline or NUL from `text` to before `end`, or `end`. Reads nothing else.
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

}  // namespace FSM
