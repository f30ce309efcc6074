#include "fsm/table/WindowScan.h"

#include <immintrin.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <numeric>

namespace FSM {

const WindowScan::Width WindowScan::mostWidthS =
    __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("bmi2") ? Width::Wide
    : __builtin_cpu_supports("ssse3")                                    ? Width::Narrow
                                                                         : Width::None;

namespace {

// The halves of the bytes of a product, as bits.
struct Halves {
    std::array<std::uint16_t, 3> low{};
    std::array<std::uint16_t, 3> high{};

    void add(const Halves& other) {
        for (std::size_t i = 0; i < low.size(); ++i) {
            low[i] = static_cast<std::uint16_t>(low[i] | other.low[i]);
            high[i] = static_cast<std::uint16_t>(high[i] | other.high[i]);
        }
    }
    double density() const {
        double density = 1;
        for (std::size_t i = 0; i < low.size(); ++i) {
            density *= std::popcount(low[i]) * std::popcount(high[i]) / 256.0;
        }
        return density;
    }
};

Halves halvesOf(const WindowScan::Product& product) {
    Halves halves;
    for (std::size_t i = 0; i < product.size(); ++i) {
        const auto rows = std::bit_cast<std::array<std::uint16_t, 16>>(product[i]);
        for (unsigned half = 0; half < rows.size(); ++half) {
            halves.low[i] = static_cast<std::uint16_t>(halves.low[i] | rows[half]);
            if (rows[half] != 0) {
                halves.high[i] = static_cast<std::uint16_t>(halves.high[i] | 1U << half);
            }
        }
    }
    return halves;
}

using Tables = const unsigned char (&)[3][16];

__attribute__((target("ssse3"))) inline __m128i productsOf(__m128i bytes, const unsigned char* low,
                                                           const unsigned char* high) {
    const __m128i half = _mm_set1_epi8(15);
    const __m128i lowTable = _mm_load_si128(reinterpret_cast<const __m128i*>(low));
    const __m128i highTable = _mm_load_si128(reinterpret_cast<const __m128i*>(high));
    return _mm_and_si128(
        _mm_shuffle_epi8(lowTable, _mm_and_si128(bytes, half)),
        _mm_shuffle_epi8(highTable, _mm_and_si128(_mm_srli_epi16(bytes, 4), half)));
}

__attribute__((target("avx512bw"))) inline __m512i productsOf(__m512i bytes,
                                                              const unsigned char* low,
                                                              const unsigned char* high) {
    const __m512i half = _mm512_set1_epi8(15);
    // With a mask of all, as GCC 12 warns of the form without one.
    const __m512i lowTable =
        _mm512_maskz_broadcast_i32x4(0xffff, _mm_load_si128(reinterpret_cast<const __m128i*>(low)));
    const __m512i highTable = _mm512_maskz_broadcast_i32x4(
        0xffff, _mm_load_si128(reinterpret_cast<const __m128i*>(high)));
    return _mm512_and_si512(
        _mm512_shuffle_epi8(lowTable, _mm512_and_si512(bytes, half)),
        _mm512_shuffle_epi8(highTable, _mm512_and_si512(_mm512_srli_epi16(bytes, 4), half)));
}

// Looks at 16 places at a time; the last ones may have been looked at before.
__attribute__((target("ssse3"))) const unsigned char* skipNarrow(Tables low, Tables high,
                                                                 const unsigned char* text,
                                                                 const unsigned char* end,
                                                                 bool takesNul) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i nul = _mm_set1_epi8(takesNul ? 0 : -1);
    const unsigned char* const last = end - WindowScan::leastSize(WindowScan::Width::Narrow);
    const unsigned char* block = std::min(text, last);
    unsigned looked = ~0U << (text - block);
    for (;;) {
        const auto bytesAt = [&](int place) __attribute__((target("ssse3"))) {
            return _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + place));
        };
        const __m128i third = bytesAt(2);
        const __m128i products =
            _mm_and_si128(productsOf(bytesAt(0), low[0], high[0]),
                          _mm_and_si128(productsOf(bytesAt(1), low[1], high[1]),
                                        productsOf(third, low[2], high[2])));
        const __m128i isEnd = _mm_and_si128(_mm_cmpeq_epi8(third, zero), nul);
        const __m128i isNone = _mm_andnot_si128(isEnd, _mm_cmpeq_epi8(products, zero));
        const unsigned found = ~static_cast<unsigned>(_mm_movemask_epi8(isNone)) & 0xffffU & looked;
        if (found != 0) return block + __builtin_ctz(found);
        if (block == last) return end - 2;
        block = std::min(block + 16, last);
        looked = ~0U;
    }
}

// Looks at 64 places at a time, and reads of the last ones no more than there are.
__attribute__((target("avx512bw,bmi2"))) const unsigned char* skipWide(Tables low, Tables high,
                                                                       const unsigned char* text,
                                                                       const unsigned char* end,
                                                                       bool takesNul) {
    for (;; text += 64) {
        const auto left = static_cast<unsigned>(std::min<std::ptrdiff_t>(end - text, 64 + 2));
        const auto bytesAt = [&](unsigned place) __attribute__((target("avx512bw,bmi2"))) {
            return _mm512_maskz_loadu_epi8(_bzhi_u64(~0ULL, left - place), text + place);
        };
        const __m512i third = bytesAt(2);
        const __m512i products =
            _mm512_and_si512(productsOf(bytesAt(0), low[0], high[0]),
                             _mm512_and_si512(productsOf(bytesAt(1), low[1], high[1]),
                                              productsOf(third, low[2], high[2])));
        std::uint64_t found = _mm512_test_epi8_mask(products, products);
        if (!takesNul) found |= _mm512_testn_epi8_mask(third, third);
        found |= ~_bzhi_u64(~0ULL, left - 2);  // where the text ends
        if (found != 0) return text + __builtin_ctzll(found);
    }
}

}  // namespace

WindowScan::WindowScan(const Vector<Product>& products) {
    Vector<Halves> kinds;
    for (const Product& product : products) {
        countWork(16);
        const Halves halves = halvesOf(product);
        if (kinds.size() < productsCM) {
            kinds.push_back(halves);
            continue;
        }
        // It joins the one that grows least by it.
        std::array<double, productsCM> growth;
        std::transform(kinds.begin(), kinds.end(), growth.begin(), [&](Halves both) {
            const double before = both.density();
            both.add(halves);
            return both.density() - before;
        });
        const auto least = std::min_element(growth.begin(), growth.end()) - growth.begin();
        kinds[static_cast<std::size_t>(least)].add(halves);
    }
    for (std::size_t kind = 0; kind < kinds.size(); ++kind) {
        for (std::size_t i = 0; i < 3; ++i) {
            for (unsigned half = 0; half < 16; ++half) {
                const unsigned low = kinds[kind].low[i] >> half & 1U;
                const unsigned high = kinds[kind].high[i] >> half & 1U;
                low_[i][half] = static_cast<unsigned char>(low_[i][half] | low << kind);
                high_[i][half] = static_cast<unsigned char>(high_[i][half] | high << kind);
            }
        }
    }
}

double WindowScan::density(std::span<const unsigned char> bytes) const {
    std::array<double, productsCM> density;
    density.fill(1);
    for (std::size_t i = 0; i < 3; ++i) {
        std::array<double, productsCM> passing{};
        for (const unsigned char byte : bytes) {
            const unsigned kinds = low_[i][byte & 15] & high_[i][byte >> 4];
            for (std::size_t kind = 0; kind < productsCM; ++kind)
                passing[kind] += kinds >> kind & 1;
        }
        for (std::size_t kind = 0; kind < productsCM; ++kind) {
            density[kind] *= passing[kind] / static_cast<double>(bytes.size());
        }
    }
    return std::accumulate(density.begin(), density.end(), 0.0);
}

const unsigned char* WindowScan::skip(const unsigned char* text, const unsigned char* end,
                                      bool takesNul, Width width) const {
    if (!takesNul && (text[0] == 0 || text[1] == 0)) return text;
    if (width == Width::Wide) return skipWide(low_, high_, text, end, takesNul);
    if (width == Width::Narrow) return skipNarrow(low_, high_, text, end, takesNul);
    return text;
}

}  // namespace FSM
