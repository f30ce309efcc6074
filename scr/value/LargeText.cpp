#include "scr/value/LargeText.h"

#include <cstdint>
#include <cstring>

#include "scr/value/KeyHash.h"

namespace SCR {

namespace {

__extension__ using Wide = unsigned __int128;

// Arithmetic modulo the prime 2^61 - 1.
constexpr std::uint64_t primeS = (std::uint64_t{1} << 61) - 1;

std::uint64_t reduced(std::uint64_t number) { return number >= primeS ? number - primeS : number; }

std::uint64_t times(std::uint64_t a, std::uint64_t b) {
    const Wide product = static_cast<Wide>(a) * b;
    return reduced((static_cast<std::uint64_t>(product) & primeS) +
                   static_cast<std::uint64_t>(product >> 61));
}

// A text as the digits of a number. Digits are bytes plus 1, so that zeros at the front count.
class Fingerprint {
public:
    void add(char byte) { value_ = reduced(times(value_, base()) + digit(byte)); }
    /// `weight` is base^n for n bytes; the first byte leaves, `next` enters.
    void move(char first, char next, std::uint64_t weight) {
        add(next);
        value_ = reduced(value_ + primeS - times(digit(first), weight));
    }
    void addAll(std::string_view text) {
        inPieces(text.size(), [&](std::size_t begin, std::size_t end) {
            for (const char byte : text.substr(begin, end - begin)) add(byte);
        });
    }
    static std::uint64_t power(std::size_t exponent) {
        std::uint64_t result = 1;
        for (std::uint64_t square = base(); exponent > 0; exponent /= 2) {
            if (exponent % 2 != 0) result = times(result, square);
            square = times(square, square);
        }
        return result;
    }
    friend bool operator==(const Fingerprint&, const Fingerprint&) = default;

private:
    static std::uint64_t base() {
        static const std::uint64_t baseS = (std::uint64_t{keyHash("high")} << 28) + keyHash("low");
        return baseS;
    }
    static std::uint64_t digit(char byte) {
        return std::uint64_t{static_cast<unsigned char>(byte)} + 1;
    }

    std::uint64_t value_ = 0;
};

}  // namespace

int compareLarge(std::string_view a, std::string_view b) {
    const std::size_t common = std::min(a.size(), b.size());
    for (std::size_t at = 0; at < common;) {
        const std::size_t size = std::min(textPieceSizeS, common - at);
        const int order = std::memcmp(a.data() + at, b.data() + at, size);
        if (order != 0) return order;
        countWork(size);
        at += size;
    }
    return a.size() < b.size() ? -1 : static_cast<int>(a.size() > b.size());
}

std::size_t commonLength(std::string_view a, std::string_view b) {
    const std::size_t common = std::min(a.size(), b.size());
    std::size_t at = 0;
    while (at < common) {
        const std::size_t size = std::min(textPieceSizeS, common - at);
        if (std::memcmp(a.data() + at, b.data() + at, size) != 0) {
            return static_cast<std::size_t>(
                std::mismatch(a.begin() + static_cast<std::ptrdiff_t>(at), a.end(),
                              b.begin() + static_cast<std::ptrdiff_t>(at))
                    .first -
                a.begin());
        }
        countString(size);
        at += size;
    }
    return common;
}

std::size_t findByte(std::string_view text, char byte) {
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t size = std::min(textPieceSizeS, text.size() - at);
        const void* const found = std::memchr(text.data() + at, byte, size);
        if (found != nullptr) {
            return static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
        }
        countString(size);
        at += size;
    }
    return text.size();
}

const char* findLarge(std::string_view text, std::string_view part) {
    if (part.size() > text.size()) return nullptr;
    const std::uint64_t weight = Fingerprint::power(part.size());
    Fingerprint sought;
    Fingerprint found;
    sought.addAll(part);
    found.addAll(text.substr(0, part.size()));
    const std::size_t last = text.size() - part.size();
    for (std::size_t at = 0;; ++at) {
        if (found == sought && compareLarge(text.substr(at, part.size()), part) == 0)
            return text.data() + at;
        if (at == last) return nullptr;
        found.move(text[at], text[at + part.size()], weight);
        if (at % textPieceSizeS == 0) countWork(textPieceSizeS);
    }
}

}  // namespace SCR
