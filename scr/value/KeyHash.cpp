#include "scr/value/KeyHash.h"

#include <cstring>

#include "fnd/SeededHash.h"
#include "scr/value/LargeText.h"

namespace SCR {

namespace {

std::uint64_t load8(const char* bytes) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

std::uint64_t load4(const char* bytes) {
    std::uint32_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

}  // namespace

std::uint32_t keyHash(std::string_view key) {
    static const FND::HashSeed secret = FND::hashSeed();
    const char* bytes = key.data();
    const std::size_t length = key.size();
    std::uint64_t state = secret.second;
    std::uint64_t a = 0;
    std::uint64_t b = 0;
    if (length > 16) {
        std::size_t left = length;
        for (; left > textPieceSizeS; left -= textPieceSizeS, bytes += textPieceSizeS) {
            for (std::size_t i = 0; i < textPieceSizeS; i += 16) {
                state =
                    FND::mixWords(load8(bytes + i) ^ secret.first, load8(bytes + i + 8) ^ state);
            }
            countWork(textPieceSizeS);
        }
        for (; left > 16; left -= 16, bytes += 16) {
            state = FND::mixWords(load8(bytes) ^ secret.first, load8(bytes + 8) ^ state);
        }
        a = load8(bytes + left - 16);
        b = load8(bytes + left - 8);
    } else if (length >= 8) {
        a = load8(bytes);
        b = load8(bytes + length - 8);
    } else if (length >= 4) {
        a = load4(bytes);
        b = load4(bytes + length - 4);
    } else if (length > 0) {
        const auto byte = [&](std::size_t i) {
            return static_cast<std::uint64_t>(static_cast<unsigned char>(bytes[i]));
        };
        a = byte(0) << 16 | byte(length / 2) << 8 | byte(length - 1);
    }
    const std::uint64_t folded =
        FND::mixWords(secret.first ^ length, FND::mixWords(a ^ secret.first, b ^ state));
    return static_cast<std::uint32_t>(folded ^ (folded >> 32));
}

NumberHash::NumberHash() : first_(FND::hashSeed().first), second_(FND::hashSeed().second) {}

namespace {

// The seed is taken while the library is loaded, so that a fork never happens in the middle.
[[maybe_unused]] const std::uint32_t seededS = keyHash({});

}  // namespace

}  // namespace SCR
