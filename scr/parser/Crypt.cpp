#include "scr/parser/Crypt.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <utility>

#include "scr/run/CountedWork.h"

namespace SCR {
namespace {

constexpr std::string_view magicS = "0A42";
constexpr std::size_t maskLengthS = 8;
constexpr std::size_t minKeyLengthS = 6;
constexpr std::size_t maxKeyLengthS = 10;
constexpr std::size_t maxReadKeyLengthS = 255;
constexpr std::size_t unitsPerLineS = 40;
constexpr char digitsS[] = "0123456789ABCDEF";

/// The value of each character as a hexadecimal digit, 255 for those that are none.
constexpr std::uint8_t noDigitS = 255;
constexpr std::array<std::uint8_t, 256> digitValuesS = [] {
    std::array<std::uint8_t, 256> values{};
    values.fill(noDigitS);
    for (std::uint8_t digit = 0; digit < 16; ++digit) {
        values[static_cast<unsigned char>("0123456789abcdef"[digit])] = digit;
        values[static_cast<unsigned char>(digitsS[digit])] = digit;
    }
    return values;
}();

std::uint8_t digitValue(char c) { return digitValuesS[static_cast<unsigned char>(c)]; }

/// The body of `Crypt::charFromHex`, separate so that the compiler can inline it into loops: a
/// program may replace the library's exported functions, so calls of those stay calls.
inline bool readUnit(const char*& position, const char* end, unsigned char& byte) {
    if (end - position < 2) return false;
    const std::uint8_t high = digitValue(position[0]);
    const std::uint8_t low = digitValue(position[1]);
    if ((high | low) == noDigitS) return false;
    byte = static_cast<unsigned char>(high << 4 | low);
    position += 2;
    if (position != end && *position == '\n') ++position;
    return true;
}

/// Fills `bytes` with random bytes: from the system if it has them at once, otherwise made from the
/// clock.
template <std::size_t Size>
void drawRandom(std::array<unsigned char, Size>& bytes) {
    static_assert(Size <= 256, "a longer request may be answered in part");
    ssize_t got;
    do {
        got = ::getrandom(bytes.data(), Size, GRND_NONBLOCK);
    } while (got < 0 && errno == EINTR);
    if (got == static_cast<ssize_t>(Size)) return;
    // The splitmix64 generator of Steele, Lea and Flood.
    auto state =
        static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
    for (unsigned char& byte : bytes) {
        state += 0x9E3779B97F4A7C15;
        std::uint64_t mixed = (state ^ (state >> 30)) * 0xBF58476D1CE4E5B9;
        mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EB;
        byte = static_cast<unsigned char>(mixed >> 56);
    }
}

/// The bytes with which the plain text is XORed. Mask and key advance together until both are back
/// at their start.
class Pad {
public:
    Pad(const unsigned char* mask, const unsigned char* key, std::size_t keyLength)
        : length_(std::lcm(maskLengthS, keyLength)) {
        for (std::size_t i = 0; i < length_; ++i) {
            bytes_[i] = mask[i % maskLengthS] ^ key[i % keyLength];
        }
    }

    unsigned char next() {
        const unsigned char byte = bytes_[position_];
        if (++position_ == length_) position_ = 0;
        return byte;
    }

private:
    std::array<unsigned char, maskLengthS * maxReadKeyLengthS> bytes_;
    std::size_t length_;
    std::size_t position_ = 0;
};

/// Writes bytes as pairs of digits, with the line feeds, to a buffer that has room for them.
class UnitWriter {
public:
    explicit UnitWriter(char* out) : out_(out) {}

    void write(unsigned char byte) {
        if (unitsInLine_ == unitsPerLineS) {
            *out_++ = '\n';
            unitsInLine_ = 0;
        }
        ++unitsInLine_;
        *out_++ = digitsS[byte >> 4];
        *out_++ = digitsS[byte & 15];
    }

private:
    char* out_;
    std::size_t unitsInLine_ = magicS.size() / 2;
};

}  // namespace

bool Crypt::encrypt(const FND::String& plain, FND::String& scrambled) {
    std::array<unsigned char, maskLengthS + 1 + maxKeyLengthS> random;
    drawRandom(random);
    const unsigned char* const mask = random.data();
    const std::size_t keyLength =
        random[maskLengthS] % (maxKeyLengthS - minKeyLengthS + 1) + minKeyLengthS;
    const unsigned char* const key = mask + maskLengthS + 1;

    const std::size_t units = magicS.size() / 2 + maskLengthS + 1 + keyLength + plain.size();
    FND::String text(magicS);
    text.resize(2 * units + (units - 1) / unitsPerLineS);
    UnitWriter writer(text.data() + magicS.size());
    for (std::size_t i = 0; i < maskLengthS; ++i) writer.write(mask[i]);
    writer.write(static_cast<unsigned char>(keyLength) ^ mask[0]);
    for (std::size_t i = 0; i < keyLength; ++i) writer.write(key[i] ^ mask[i % maskLengthS]);
    Pad pad(mask, key, keyLength);
    for (const char c : plain) writer.write(static_cast<unsigned char>(c) ^ pad.next());
    scrambled = std::move(text);
    return true;
}

bool Crypt::decrypt(const FND::String& scrambled, FND::String& plain) {
    if (!scrambled.starts_with(magicS)) return false;
    const char* position = scrambled.data() + magicS.size();
    const char* const end = scrambled.data() + scrambled.size();

    unsigned char mask[maskLengthS];
    for (unsigned char& byte : mask) {
        if (!readUnit(position, end, byte)) return false;
    }
    unsigned char keyLength;
    if (!readUnit(position, end, keyLength)) return false;
    keyLength ^= mask[0];
    if (keyLength == 0) return false;
    unsigned char key[maxReadKeyLengthS];
    for (std::size_t i = 0; i < keyLength; ++i) {
        if (!readUnit(position, end, key[i])) return false;
        key[i] ^= mask[i % maskLengthS];
    }

    FND::String text(static_cast<std::size_t>(end - position) / 2, '\0');
    char* out = text.data();
    Pad pad(mask, key, keyLength);
    while (position != end) {
        constexpr std::ptrdiff_t pieceSize = 64 * 1024;
        const char* const pieceEnd = position + std::min(pieceSize, end - position);
        countWork(static_cast<std::size_t>(pieceEnd - position));
        while (position < pieceEnd) {
            unsigned char byte;
            if (!readUnit(position, end, byte)) return false;
            *out++ = static_cast<char>(byte ^ pad.next());
        }
    }
    text.resize(static_cast<std::size_t>(out - text.data()));
    plain = std::move(text);
    return true;
}

FND::String Crypt::hexString(unsigned char byte) {
    return {digitsS[byte >> 4], digitsS[byte & 15]};
}

bool Crypt::charFromHex(std::string_view& cursor, unsigned char& byte) {
    const char* position = cursor.data();
    if (!readUnit(position, cursor.data() + cursor.size(), byte)) return false;
    cursor.remove_prefix(static_cast<std::size_t>(position - cursor.data()));
    return true;
}

}  // namespace SCR
