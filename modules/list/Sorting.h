#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <utility>

#include "modules/list/List.h"

namespace Modules::ListModule {

/// An element's place, and a number that grows with its value: where the numbers differ, the values
/// are ordered as they are.
struct Ranked {
    std::uint64_t key;
    std::uint32_t index;
};

// Sorts by merging, which is stable, in place of a range and a buffer of the same size. Counts its
// work, so that it stops wherever it is.
template <class T, class Less>
void mergeSort(T* values, T* buffer, std::size_t count, const Less& less) {
    constexpr std::size_t few = 16;
    for (std::size_t begin = 0; begin < count; begin += few) {
        const std::size_t end = std::min(begin + few, count);
        for (std::size_t i = begin + 1; i < end; ++i) {
            T moved = values[i];
            std::size_t to = i;
            for (; to > begin && less(moved, values[to - 1]); --to) values[to] = values[to - 1];
            values[to] = moved;
        }
        work(few * 16);
    }
    T* from = values;
    T* into = buffer;
    for (std::size_t width = few; width < count; width *= 2, std::swap(from, into)) {
        for (std::size_t begin = 0; begin < count; begin += 2 * width) {
            const std::size_t middle = std::min(begin + width, count);
            const std::size_t end = std::min(begin + 2 * width, count);
            std::size_t left = begin;
            std::size_t right = middle;
            for (std::size_t at = begin; at < end; ++at) {
                const bool takesRight =
                    left == middle || (right < end && less(from[right], from[left]));
                into[at] = from[takesRight ? right++ : left++];
                if (at % 1024 == 1023) work(1024 * 8);
            }
            work((end - begin) % 1024);
        }
    }
    if (from != values) {
        for (std::size_t i = 0; i < count; ++i) {
            values[i] = from[i];
            if (i % 1024 == 1023) work(1024);
        }
    }
}

// Sorts by the lowest `bits` of the keys from bit `from` on, stably, by one digit after another.
template <int digit>
void sortByDigits(Ranked* values, Ranked* buffer, std::size_t count, int from, int bits) {
    constexpr std::size_t size = std::size_t{1} << digit;
    constexpr std::size_t piece = 1024;
    const auto digits = static_cast<std::size_t>((bits - from + digit - 1) / digit);
    List<std::uint32_t> counts;
    counts.extend(digits * size);
    for (std::size_t i = 0; i < count; ++i) {
        std::uint64_t key = values[i].key >> from;
        for (std::size_t at = 0; at < digits * size; at += size, key >>= digit) {
            ++counts[at + key % size];
        }
        if (i % piece == piece - 1) work(piece * 8);
    }
    Ranked* source = values;
    Ranked* into = buffer;
    for (std::size_t k = 0; k < digits; ++k) {
        const auto digitOf = [shift = from + static_cast<int>(k) * digit](const Ranked& entry) {
            return (entry.key >> shift) % size;
        };
        std::uint32_t* const places = &counts[k * size];
        if (places[digitOf(source[0])] == count) continue;
        std::uint32_t place = 0;
        for (std::size_t i = 0; i < size; ++i) place += std::exchange(places[i], place);
        work(size);
        for (std::size_t i = 0; i < count; ++i) {
            into[places[digitOf(source[i])]++] = source[i];
            if (i % piece == piece - 1) work(piece * 8);
        }
        std::swap(source, into);
    }
    if (source == values) return;
    for (std::size_t i = 0; i < count; ++i) {
        values[i] = source[i];
        if (i % piece == piece - 1) work(piece);
    }
}

// Sorts by the keys, stably; they differ in their lowest `bits` only. Many are sorted by their
// highest digits first, which tell most of them apart.
inline void sortByKeys(Ranked* values, Ranked* buffer, std::size_t count, int bits) {
    constexpr std::size_t many = 1024;
    constexpr std::size_t veryMany = 64 * 1024;
    constexpr int digit = 8;
    constexpr int longDigit = 13;
    if (count < many) {
        return mergeSort(values, buffer, count,
                         [](const Ranked& a, const Ranked& b) { return a.key < b.key; });
    }
    const int from = std::max(0, bits - (count < veryMany ? 2 * digit : 2 * longDigit));
    if (count < veryMany) {
        sortByDigits<digit>(values, buffer, count, from, bits);
    } else {
        sortByDigits<longDigit>(values, buffer, count, from, bits);
    }
    for (std::size_t begin = 0, end = 0; from > 0 && begin < count; begin = end) {
        const std::uint64_t highest = values[begin].key >> from;
        for (end = begin + 1; end < count && values[end].key >> from == highest;) ++end;
        if (end - begin > 1) sortByKeys(values + begin, buffer, end - begin, from);
        work(16 * (end - begin));
    }
}

/// Makes numbers of several words, the highest first, keys of one: of each byte it takes the bits
/// from the first to the last in which the numbers differ, as long as they fit.
template <std::size_t words>
class Packing {
public:
    using Number = std::array<std::uint64_t, words>;

    /// Called with each number, and then `finish`.
    void see(const Number& number) {
        if (!std::exchange(isBegun_, true)) first_ = number;
        for (std::size_t i = 0; i < words; ++i) differing_[i] |= number[i] ^ first_[i];
    }
    void finish() {
        for (; bytes_ < words * wordBytesCM; ++bytes_) {
            const std::size_t word = bytes_ / wordBytesCM;
            const auto shift = static_cast<int>(8 * (wordBytesCM - 1 - bytes_ % wordBytesCM));
            const auto bits = static_cast<unsigned>(differing_[word] >> shift & 255);
            const int low = bits != 0 ? std::countr_zero(bits) : 0;
            const int width = static_cast<int>(std::bit_width(bits)) - low;
            if (bits_ + width > 64) return;
            bits_ += width;
            if (width > 0) fields_[count_++] = {word, shift + low, width};
        }
    }

    std::uint64_t keyOf(const Number& number) const {
        std::uint64_t key = 0;
        for (std::size_t i = 0; i < count_; ++i) {
            const Field& field = fields_[i];
            const std::uint64_t mask = (std::uint64_t{1} << field.width) - 1;
            key = key << field.width | (number[field.word] >> field.shift & mask);
        }
        return key;
    }
    int bits() const { return bits_; }            ///< of the keys
    std::size_t bytes() const { return bytes_; }  ///< of the numbers that the keys tell apart

private:
    static constexpr std::size_t wordBytesCM = sizeof(std::uint64_t);
    struct Field {
        std::size_t word;
        int shift;
        int width;
    };

    bool isBegun_ = false;
    Number first_{};
    Number differing_{};
    std::array<Field, words * wordBytesCM> fields_{};
    std::size_t count_ = 0;
    std::size_t bytes_ = 0;
    int bits_ = 0;
};

}  // namespace Modules::ListModule
