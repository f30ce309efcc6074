#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

namespace FND {

// Hashes in which input cannot force collisions: they are seeded at random once per process, and
// their values mean nothing outside of it. After the scheme of wyhash, which multiplies words into
// 128 bits and folds the product, with its constants replaced by the seed. Any thread.

struct HashSeed {
    std::uint64_t first;  // odd, and so not 0, which would end all mixing
    std::uint64_t second;
};

/// The seed of the process.
const HashSeed& hashSeed();

inline std::uint64_t mixWords(std::uint64_t a, std::uint64_t b) {
    __extension__ using Wide = unsigned __int128;
    const Wide product = static_cast<Wide>(a) * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

/// The hash of a number.
inline std::uint64_t seededHash(std::uint64_t value) {
    const HashSeed& seed = hashSeed();
    return mixWords(value ^ seed.second, seed.first);
}

/// The hash of a text of a few kilobytes at most, as it is not counted as work.
inline std::uint64_t seededHash(std::string_view text) {
    const HashSeed& seed = hashSeed();
    std::uint64_t state = seed.second ^ text.size();
    std::uint64_t word = 0;
    for (; text.size() >= sizeof word; text.remove_prefix(sizeof word)) {
        std::memcpy(&word, text.data(), sizeof word);
        state = mixWords(state ^ word, seed.first);
    }
    word = 0;
    std::memcpy(&word, text.data(), text.size());
    return mixWords(state ^ word, seed.first);
}

/// For the containers of the standard library.
struct SeededHash {
    using is_transparent = void;
    std::size_t operator()(std::uint64_t value) const { return seededHash(value); }
    std::size_t operator()(std::string_view text) const { return seededHash(text); }
};

}  // namespace FND
