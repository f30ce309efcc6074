#include "fsm/table/WindowScan.h"

#include <tmmintrin.h>

#include <algorithm>
#include <bit>
#include <numeric>

namespace FSM {

namespace {

const bool shufflesS = __builtin_cpu_supports("ssse3");

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

__attribute__((target("ssse3"))) inline __m128i productsOf(__m128i bytes, const unsigned char* low,
                                                           const unsigned char* high) {
    const __m128i half = _mm_set1_epi8(15);
    const __m128i lowTable = _mm_load_si128(reinterpret_cast<const __m128i*>(low));
    const __m128i highTable = _mm_load_si128(reinterpret_cast<const __m128i*>(high));
    return _mm_and_si128(
        _mm_shuffle_epi8(lowTable, _mm_and_si128(bytes, half)),
        _mm_shuffle_epi8(highTable, _mm_and_si128(_mm_srli_epi16(bytes, 4), half)));
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
        // To the one that grows least by it.
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

__attribute__((target("ssse3"))) const unsigned char* WindowScan::skip(const unsigned char* text,
                                                                       const unsigned char* end,
                                                                       bool takesNul) const {
    if (!shufflesS || (!takesNul && (text[0] == 0 || text[1] == 0))) return text;
    const __m128i zero = _mm_setzero_si128();
    const __m128i nul = _mm_set1_epi8(takesNul ? 0 : -1);
    const unsigned char* const last = end - leastCM;  // at or after `begin`
    const unsigned char* block = std::min(text, last);
    unsigned looked = ~0U << (text - block);
    for (;;) {
        const auto bytesAt = [&](int place) __attribute__((target("ssse3"))) {
            return _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + place));
        };
        const __m128i third = bytesAt(2);
        const __m128i passing =
            _mm_and_si128(productsOf(bytesAt(0), low_[0], high_[0]),
                          _mm_and_si128(productsOf(bytesAt(1), low_[1], high_[1]),
                                        productsOf(third, low_[2], high_[2])));
        const __m128i isEnd = _mm_and_si128(_mm_cmpeq_epi8(third, zero), nul);
        const __m128i isNone = _mm_andnot_si128(isEnd, _mm_cmpeq_epi8(passing, zero));
        const unsigned found = ~static_cast<unsigned>(_mm_movemask_epi8(isNone)) & 0xffffU & looked;
        if (found != 0) return block + __builtin_ctz(found);
        if (block == last) return end - 2;
        block = std::min(block + 16, last);
        looked = ~0U;
    }
}

}  // namespace FSM
