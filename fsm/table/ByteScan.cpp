#include "fsm/table/ByteScan.h"

#include <tmmintrin.h>

namespace FSM {

namespace {

const bool hasShuffleS = __builtin_cpu_supports("ssse3");

// One bit for each of 16 bytes that is not in the set.
__attribute__((target("ssse3"))) inline unsigned misses(__m128i bytes, __m128i below128,
                                                        __m128i from128) {
    const __m128i bits = _mm_setr_epi8(1, 2, 4, 8, 16, 32, 64, -128, 1, 2, 4, 8, 16, 32, 64, -128);
    // A shuffle gives 0 where the highest bit is set, so each table covers its own half.
    __m128i low = _mm_shuffle_epi8(below128, bytes);
    __m128i high = _mm_shuffle_epi8(from128, _mm_xor_si128(bytes, _mm_set1_epi8(-128)));
    __m128i halves = _mm_and_si128(_mm_srli_epi16(bytes, 4), _mm_set1_epi8(15));
    __m128i found = _mm_and_si128(_mm_or_si128(low, high), _mm_shuffle_epi8(bits, halves));
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(found, _mm_setzero_si128())));
}

}  // namespace

ByteScan::ByteScan(const std::bitset<256>& bytes) {
    for (unsigned byte = 1; byte < 256; ++byte) {
        if (!bytes[byte]) continue;
        unsigned char* table = byte < 128 ? below128_ : from128_;
        table[byte & 15] = static_cast<unsigned char>(table[byte & 15] | 1u << (byte >> 4 & 7));
    }
}

bool ByteScan::contains(unsigned char byte) const {
    const unsigned char* table = byte < 128 ? below128_ : from128_;
    return (table[byte & 15] >> (byte >> 4 & 7) & 1) != 0;
}

__attribute__((target("ssse3"), no_sanitize("address", "thread"))) const unsigned char*
ByteScan::skip(const unsigned char* text) const {
    if (!hasShuffleS) return text;
    const __m128i below128 = _mm_load_si128(reinterpret_cast<const __m128i*>(below128_));
    const __m128i from128 = _mm_load_si128(reinterpret_cast<const __m128i*>(from128_));
    std::size_t offset = reinterpret_cast<std::uintptr_t>(text) & 15;
    const unsigned char* block = text - offset;
    unsigned looked = ~0u << offset;
    for (;; block += 16) {
        __m128i bytes = _mm_load_si128(reinterpret_cast<const __m128i*>(block));
        unsigned found = misses(bytes, below128, from128) & looked;
        if (found != 0) return block + __builtin_ctz(found);
        looked = ~0u;
    }
}

__attribute__((target("ssse3"))) const unsigned char* ByteScan::skip(
    const unsigned char* begin, const unsigned char* text, const unsigned char* end) const {
    if (!hasShuffleS) return text;
    const __m128i below128 = _mm_load_si128(reinterpret_cast<const __m128i*>(below128_));
    const __m128i from128 = _mm_load_si128(reinterpret_cast<const __m128i*>(from128_));
    for (; end - text >= 16; text += 16) {
        __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text));
        unsigned found = misses(bytes, below128, from128);
        if (found != 0) return text + __builtin_ctz(found);
    }
    if (text == end || end - begin < 16) return text;
    // The last block begins before the bytes that are left.
    const unsigned char* const block = end - 16;
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block));
    const unsigned found = misses(bytes, below128, from128) & ~0U << (text - block);
    return found != 0 ? block + __builtin_ctz(found) : end;
}

}  // namespace FSM
