#include "fnd/SeededHash.h"

#include <chrono>
#include <exception>
#include <random>

namespace FND {

namespace {

std::uint64_t randomWord() {
    try {
        std::random_device device;
        return static_cast<std::uint64_t>(device()) << 32 | device();
    } catch (const std::exception&) {
        // A seed that can be guessed is better than a fixed one.
        static int placeS;
        return static_cast<std::uint64_t>(
                   std::chrono::high_resolution_clock::now().time_since_epoch().count()) *
                   0x9E3779B97F4A7C15U ^
               reinterpret_cast<std::uintptr_t>(&placeS);
    }
}

}  // namespace

const HashSeed& hashSeed() {
    static const HashSeed seedS{randomWord() | 1, randomWord()};
    return seedS;
}

namespace {

// Made while the library is loaded, so that a fork never finds it half made.
[[maybe_unused]] const HashSeed& madeS = hashSeed();

}  // namespace

}  // namespace FND
