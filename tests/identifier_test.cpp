#include "fnd/Identifier.h"

#include "Test.h"

namespace FND {
namespace {

static_assert(sizeof(Identifier) == 280);
static_assert(NULL_IDENTIFIER == Identifier() && NULL_IDENTIFIER.type().empty());
static_assert(INVALID_IDENTIFIER != NULL_IDENTIFIER);
static_assert(FND_INVALID_IDENTIFIER == INVALID_IDENTIFIER);

// Usable before main, as is a copy.
constinit const Identifier copyS = INVALID_IDENTIFIER;

TEST(Identifier, PrintsItsFields) {
    constexpr auto least = std::numeric_limits<std::int64_t>::min();
    constexpr auto greatest = std::numeric_limits<std::int64_t>::max();
    const std::string longType(300, 't');
    const struct {
        Identifier identifier;
        std::string text;
    } cases[] = {
        {{1, "/account", 42, 0}, "1:/account:42:0"},
        {{least, longType, greatest, std::numeric_limits<std::int32_t>::min()},
         "-9223372036854775808:" + longType.substr(0, 254) + ":9223372036854775807:-2147483648"},
        {{1, std::string_view("a\0b", 3), 2, 3}, "1:a:2:3"},
        {{1, "a:b\xff", 2, static_cast<std::int32_t>(4294967295)}, "1:a:b\xff:2:-1"},
        {NULL_IDENTIFIER, "0::0:0"},
        {copyS, "-1::-1:-1"},
    };
    std::string text = "old";
    for (const auto& c : cases) {
        c.identifier.format(text);
        EXPECT_EQ(text, c.text);
        EXPECT_EQ(c.identifier.toString(), c.text);
    }
}

TEST(Identifier, ComparesAndCopiesEveryField) {
    const std::string longType(254, 't');
    for (const std::string& type : {std::string(), std::string("/account"), longType}) {
        const Identifier original(1, type, 42, 7);
        Identifier changed[] = {original, original, original, original};
        changed[0].setDb(2);
        changed[1].setType(type.empty() ? "x" : type.substr(1));
        changed[2].setId(43);
        changed[3].setRev(8);
        for (Identifier& other : changed) {
            EXPECT_NE(other, original);
            other = original;
            EXPECT_EQ(other, original);
            EXPECT_EQ(other.type(), type);
            EXPECT_EQ(other.db(), 1);
            EXPECT_EQ(other.id(), 42);
            EXPECT_EQ(other.rev(), 7);
        }
        // Bytes left behind by a longer type do not count.
        Identifier shortened(1, longType, 42, 7);
        shortened.setType(type);
        EXPECT_EQ(shortened, original);
        EXPECT_EQ(shortened.type().data()[type.size()], '\0');
    }
}

}  // namespace
}  // namespace FND
