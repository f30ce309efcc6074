#include "scr/parser/Crypt.h"

#include "Test.h"

#include <sys/random.h>

using SCR::Crypt;

namespace {

/// The bytes of the system's random generator, repeated; it fails when this is empty.
std::string randomBytesS;

/// The scrambled form of `plain`, put together step by step.
std::string scrambledNaively(const std::string& mask, const std::string& key,
                             const std::string& plain) {
    std::string bytes = mask;
    bytes += static_cast<char>(key.size() ^ mask[0]);
    for (std::size_t i = 0; i < key.size(); ++i) bytes += static_cast<char>(key[i] ^ mask[i % 8]);
    for (std::size_t i = 0; i < plain.size(); ++i) {
        bytes += static_cast<char>(plain[i] ^ mask[i % 8] ^ key[i % key.size()]);
    }
    std::string text = "0A42";
    std::size_t units = 2;
    for (const char byte : bytes) {
        if (units++ % 40 == 0) text += '\n';
        text += Crypt::hexString(static_cast<unsigned char>(byte));
    }
    return text;
}

/// `size` bytes that take on every value.
std::string allBytes(std::size_t size, int first = 0) {
    std::string bytes;
    for (std::size_t i = 0; i < size; ++i) bytes += static_cast<char>(first + i * 7);
    return bytes;
}

}  // namespace

extern "C" ssize_t getrandom(void* to, size_t size, unsigned /*flags*/) {
    if (randomBytesS.empty()) {
        errno = ENOSYS;
        return -1;
    }
    for (std::size_t i = 0; i < size; ++i) {
        static_cast<char*>(to)[i] = randomBytesS[i % randomBytesS.size()];
    }
    return static_cast<ssize_t>(size);
}

TEST(Crypt, WritesTheScrambledForm) {
    std::string text;
    randomBytesS.assign(1, '\0');
    EXPECT_TRUE(Crypt::encrypt("", text));
    EXPECT_EQ(text, "0A42000000000000000006000000000000");
    EXPECT_TRUE(Crypt::encrypt("Az\n\xFF", text));
    EXPECT_EQ(text, "0A42000000000000000006000000000000417A0AFF");

    for (int lengthByte = 0; lengthByte < 256; ++lengthByte) {
        const std::string mask = allBytes(8, 100);
        const std::string key = allBytes(lengthByte % 5 + 6, 201);
        randomBytesS = mask + static_cast<char>(lengthByte) + key + "unused";
        for (const std::size_t size : {0, 21, 22, 23, 24, 1000}) {
            const std::string plain = allBytes(size, lengthByte);
            EXPECT_TRUE(Crypt::encrypt(plain, text));
            ASSERT_EQ(text, scrambledNaively(mask, key, plain)) << lengthByte << ' ' << size;
        }
    }
}

TEST(Crypt, DrawsAnewWithoutTheSystemsGenerator) {
    randomBytesS.clear();
    std::string first, second, plain;
    EXPECT_TRUE(Crypt::encrypt("text", first) && Crypt::encrypt("text", second));
    EXPECT_NE(first, second);
    EXPECT_TRUE(Crypt::decrypt(second, plain) && plain == "text");
}

TEST(Crypt, ReadsEveryKeyLengthAndCase) {
    for (int length = 1; length < 256; ++length) {
        const std::string expected = allBytes(3000, length);
        std::string text = scrambledNaively(allBytes(8, 77), allBytes(length, 5), expected);
        for (const bool isLower : {false, true}) {
            if (isLower) std::transform(text.begin(), text.end(), text.begin(), ::tolower);
            if (isLower) text[1] = 'A';
            std::string plain;
            ASSERT_TRUE(Crypt::decrypt(text, plain)) << length;
            ASSERT_EQ(plain, expected) << length;
        }
    }
}

TEST(Crypt, TellsScrambledTextsFromOthers) {
    const std::string good = scrambledNaively("\x01two4567", "abcdef", allBytes(100));
    const std::string header = good.substr(0, 34);
    for (const std::string& text :
         {good, header, good + "\n", good.substr(0, 12) + "\n" + good.substr(12)}) {
        std::string plain = "unchanged";
        EXPECT_TRUE(Crypt::decrypt(text, plain)) << text;
        EXPECT_NE(plain, "unchanged") << text;
    }
    const std::string others[] = {
        good + "\n\n",
        "0A42\n" + good.substr(4),
        good.substr(0, 35) + "\n" + good.substr(35),
        good.substr(0, 80) + "\r" + good.substr(80),
        " " + good,
        "0a42" + good.substr(4),
        good + "0",
        good + "0G",
        good + std::string(2, '\0'),
        good + "\xB0\xB0",
        "",
        "0A42 is no script either",
        "0A42AB00000000000000ABAB00AB00",  // a key of length 0
        "0A420000000000000000FF010203",    // a key longer than the text
    };
    for (const std::string& text : others) {
        std::string plain = "unchanged";
        EXPECT_FALSE(Crypt::decrypt(text, plain)) << text;
        EXPECT_EQ(plain, "unchanged") << text;
    }
}

TEST(Crypt, ReadsWhatIsLeftOfACutText) {
    const std::string expected = allBytes(200);
    const std::string good = scrambledNaively(allBytes(8), "abcdefg", expected);
    const std::string header = scrambledNaively(allBytes(8), "abcdefg", "");
    for (std::size_t size = 0; size < good.size(); ++size) {
        const std::string cut(good.data(), size);
        std::string plain;
        const bool isWhole = (cut.size() - std::count(cut.begin(), cut.end(), '\n')) % 2 == 0;
        EXPECT_EQ(Crypt::decrypt(cut, plain), size >= header.size() && isWhole) << size;
        EXPECT_EQ(plain, expected.substr(0, plain.size())) << size;
    }
}
