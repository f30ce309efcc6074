#include <nettle/md5.h>
#include <nettle/sha1.h>
#include <nettle/sha2.h>
#include <sys/random.h>
#define XXH_INLINE_ALL
#include <xxhash.h>

#include <array>

#include "modules/codec/Codec.h"

namespace Modules::CodecModule {

namespace {

using Bytes = std::array<unsigned char, SHA512_DIGEST_SIZE>;

/// The bytes of one digest after another, by the functions of the library.
template <class Context, auto init, auto update, auto digest, std::size_t size>
class Hasher {
public:
    void begin() { init(&context_); }
    void add(std::string_view text) {
        inPieces(text, [&](std::string_view piece) {
            update(&context_, piece.size(), reinterpret_cast<const std::uint8_t*>(piece.data()));
        });
    }
    std::span<const unsigned char> finish(Bytes& bytes) {
        digest(&context_, size, bytes.data());
        return {bytes.data(), size};
    }

private:
    Context context_;
};

using Sha256 = Hasher<sha256_ctx, sha256_init, sha256_update, sha256_digest, SHA256_DIGEST_SIZE>;
using Sha512 = Hasher<sha512_ctx, sha512_init, sha512_update, sha512_digest, SHA512_DIGEST_SIZE>;
using Sha1 = Hasher<sha1_ctx, sha1_init, sha1_update, sha1_digest, SHA1_DIGEST_SIZE>;
using Md5 = Hasher<md5_ctx, md5_init, md5_update, md5_digest, MD5_DIGEST_SIZE>;

template <class H>
class Digest {
public:
    std::string_view operator()(std::string_view text) {
        H hasher;
        Bytes bytes;
        hasher.begin();
        hasher.add(text);
        return hex_.of(hasher.finish(bytes));
    }

private:
    Hex hex_;
};

/// HMAC with SHA-256.
class Keyed {
public:
    std::span<const unsigned char> digest(std::string_view key, std::string_view text,
                                          Bytes& bytes) {
        constexpr std::size_t block = 64;
        std::array<char, block> padded{};
        if (key.size() > block) {
            hasher_.begin();
            hasher_.add(key);
            const auto shorter = hasher_.finish(bytes);
            std::copy(shorter.begin(), shorter.end(), padded.begin());
        } else {
            std::copy(key.begin(), key.end(), padded.begin());
        }
        for (char& byte : padded) byte ^= 0x36;
        hasher_.begin();
        hasher_.add({padded.data(), block});
        hasher_.add(text);
        const auto inner = hasher_.finish(bytes);
        for (char& byte : padded) byte ^= 0x36 ^ 0x5C;
        hasher_.begin();
        hasher_.add({padded.data(), block});
        hasher_.add({reinterpret_cast<const char*>(inner.data()), inner.size()});
        return hasher_.finish(bytes);
    }

private:
    Sha256 hasher_;
};

class Hmac {
public:
    std::string_view operator()(std::string_view key, std::string_view text) {
        Bytes bytes;
        return hex_.of(keyed_.digest(key, text, bytes));
    }

private:
    Hex hex_;
    Keyed keyed_;
};

class Pseudonym {
public:
    std::string_view operator()(std::string_view text, std::string_view key) {
        constexpr std::size_t least = 16;
        if (key.size() < least) refuse("the key must have 16 bytes or more, not", long(key.size()));
        Bytes bytes;
        return hex_.of(keyed_.digest(key, text, bytes).first(16));
    }

private:
    Hex hex_;
    Keyed keyed_;
};

constexpr std::array<std::uint32_t, 256> crcTableS = [] {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t i = 0; i < 256; ++i) {
        std::uint32_t value = i;
        for (int bit = 0; bit < 8; ++bit) value = value >> 1 ^ (value & 1 ? 0xEDB88320U : 0U);
        table[i] = value;
    }
    return table;
}();

long crc32(std::string_view text) {
    std::uint32_t crc = ~std::uint32_t{0};
    inPieces(text, [&](std::string_view piece) {
        for (const char byte : piece) {
            crc = crc >> 8 ^ crcTableS[(crc ^ static_cast<unsigned char>(byte)) & 255];
        }
    });
    crc = ~crc;
    return static_cast<long>(crc);
}

FND::String xxh3(std::string_view text) {
    XXH3_state_t state;
    XXH3_64bits_reset(&state);
    inPieces(text, [&](std::string_view piece) {
        XXH3_64bits_update(&state, piece.data(), piece.size());
    });
    XXH64_canonical_t bytes;
    XXH64_canonicalFromHash(&bytes, XXH3_64bits_digest(&state));
    return FND::String(Hex().of(bytes.digest));
}

FND::String uuid() {
    std::array<unsigned char, 16> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != ssize_t(bytes.size()))
        throw Refused("no random bytes");
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
    FND::String text(Hex().of(bytes));
    for (const std::size_t place : {20U, 16U, 12U, 8U}) text.insert(place, 1, '-');
    return text;
}

constexpr ModuleFunction digestFunctionsS[] = {
    {"String sha256(String bytes)", addFunctor<Digest<Sha256>>, Effect::None,
     "The SHA-256 digest as 64 hexadecimal digits.",
     R"(strSubstr(codec::sha256("abc"), 0, 8) == "ba7816bf")"},
    {"String sha512(String bytes)", addFunctor<Digest<Sha512>>, Effect::None,
     "The SHA-512 digest as 128 hexadecimal digits.",
     R"(strSubstr(codec::sha512("abc"), 0, 8) == "ddaf35a1")"},
    {"String sha1(String bytes)", addFunctor<Digest<Sha1>>, Effect::None,
     "The SHA-1 digest as 40 hexadecimal digits, for formats that ask for it: it protects nothing "
     "any more.",
     R"(strSubstr(codec::sha1("abc"), 0, 8) == "a9993e36")"},
    {"String md5(String bytes)", addFunctor<Digest<Md5>>, Effect::None,
     "The MD5 digest as 32 hexadecimal digits, for formats that ask for it: it protects nothing "
     "any "
     "more.",
     R"(codec::md5("") == "d41d8cd98f00b204e9800998ecf8427e")"},
    {"String hmac(String key, String text)", addFunctor<Hmac>, Effect::None,
     "The keyed digest HMAC-SHA-256 as 64 hexadecimal digits.",
     R"(strSubstr(codec::hmac("key", "text"), 0, 8) == "6afa9046")"},
    {"String pseudonym(String text, String key)", addFunctor<Pseudonym>, Effect::None,
     "32 hexadecimal digits that stand for `text`: always the same ones with the same key, and "
     "without the key nobody can tell for which text. Keep the key, of 16 bytes or more, out of "
     "the script; a shorter one is an error, and the result empty.",
     R"(strLength(codec::pseudonym("0049301234", "a key of sixteen bytes")) == 32)"},
    {"Long crc32(String bytes)", SCR::addFunction<crc32>, Effect::None,
     "The checksum CRC-32 of gzip and PNG, 0 to 4294967295.",
     R"(codec::crc32("123456789") == 3421780262)"},
    {"String xxh3(String bytes)", SCR::addFunction<xxh3>, Effect::None,
     "The fast hash XXH3 of 64 bits as 16 hexadecimal digits. It protects nothing.",
     R"(codec::xxh3("") == "2d06800538d394c2")"},
    {"String uuid()", SCR::addFunction<uuid>, Effect::Random,
     "A new random identifier, as in 1b4e28ba-2fa1-41d2-883f-0016d3cca427.",
     R"(strLength(codec::uuid()) == 36)"},
};

}  // namespace

std::span<const ModuleFunction> digestFunctions() { return digestFunctionsS; }

}  // namespace Modules::CodecModule
