// The parts of the string and numeric functions: number texts compared with the C library, regular
// expressions, and the memory of results.

#include "Allocations.h"
#include "Script.h"
#include "scr/builtin/base/NumberText.h"
#include "scr/builtin/base/StringResult.h"
#include "scr/builtin/search/RegExpr.h"
#include "scr/value/LargeText.h"

namespace {

using std::string;

// The C library reads a prefix without digits as 0; the C standard and this system read nothing.
bool isBarePrefix(const string& text) {
    const std::size_t x = text.find_first_of("xX");
    return x != string::npos && x > 0 && text[x - 1] == '0' &&
           text.find_first_not_of(" \t\n\v\f\r+-") == x - 1 &&
           (x + 1 == text.size() || std::isxdigit(static_cast<unsigned char>(text[x + 1])) == 0);
}

void expectAsInC(const string& text) {
    EXPECT_EQ(SCR::readLong(text), std::strtol(text.c_str(), nullptr, 10)) << '"' << text << '"';
    if (isBarePrefix(text)) {
        EXPECT_FALSE(SCR::readHex(text)) << '"' << text << '"';
        return;
    }
    unsigned long expected = 0;
    const bool isNumber = std::sscanf(text.c_str(), "%lx", &expected) == 1;
    const std::optional<unsigned long> value = SCR::readHex(text);
    EXPECT_EQ(value.has_value(), isNumber) << '"' << text << '"';
    EXPECT_EQ(value.value_or(0), expected) << '"' << text << '"';
}

TEST(NumberText, ReadsShortTextsAndLimitsAsTheCLibrary) {
    const string alphabet(" \t+-017fFgxX\xE4\0", 14);
    string text;
    const auto extend = [&](const auto& self, int left) -> void {
        expectAsInC(text);
        if (left == 0) return;
        for (const char byte : alphabet) {
            text.push_back(byte);
            self(self, left - 1);
            text.pop_back();
        }
    };
    extend(extend, 4);
    for (const string sign : {"", "+", "-"}) {
        for (const string digits :
             {"9223372036854775807", "9223372036854775808", "9223372036854775809",
              "18446744073709551616", "7fffffffffffffff", "8000000000000000", "0xffffffffffffffff",
              "10000000000000000"}) {
            expectAsInC(sign + digits);
            expectAsInC("  " + sign + "0000000000000000000000000" + digits + " 1");
        }
    }
}

// Long texts are read in pieces.
TEST(NumberText, ReadsLongTextsAsShortOnes) {
    const char* const fronts[] = {
        "", "-", "+", "x", "-.", ".", "7", "-12.", "99999999999999999999"};
    const char* const middles[] = {"0", "00000000", " ", "\t \n", "9", "7.", "-", "."};
    const char* const backs[] = {"",  "5",  ".5", "25.125", "x", ".", "9223372036854775808",
                                 " ", "1\n"};
    for (const std::size_t size : {2'000, 65'536, 150'001}) {
        for (const char* const front : fronts) {
            for (const string middle : middles) {
                for (const char* const back : backs) {
                    string text = front;
                    while (text.size() < size) text += middle;
                    text += back;
                    const string shown = text.substr(0, 30) + "..." + back;
                    EXPECT_EQ(SCR::readLong(text), std::strtol(text.c_str(), nullptr, 10)) << shown;
                    const FND::Decimal expected = FND::Decimal::fromString(text);
                    const FND::Decimal decimal = SCR::readDecimal(text);
                    EXPECT_EQ(decimal.toPlainString(), expected.toPlainString()) << shown;
                }
            }
        }
    }
    EXPECT_EQ(SCR::readHex(string(3000, '0') + "fF"), 255U);
    EXPECT_EQ(SCR::readHex("-0x" + string(3000, '0')), 0U);
    EXPECT_EQ(SCR::readHex("0x" + string(3000, 'f')), ~0UL);
    EXPECT_FALSE(SCR::readHex("0x" + string(3000, 'z')));
}

TEST(LargeText, IsSearchedAndComparedAsAWhole) {
    std::mt19937 engine(7);
    for (int i = 0; i < 2000; ++i) {
        const auto letters = static_cast<std::size_t>(1 + engine() % 3);
        string text(engine() % 60, 'a');
        string part(engine() % 8, 'a');
        for (char& c : text) c = "ab\0"[engine() % letters];
        for (char& c : part) c = "ab\0"[engine() % letters];
        const char* const found = SCR::findLarge(text, part);
        const std::size_t expected = text.find(part);
        EXPECT_EQ(found != nullptr ? static_cast<std::size_t>(found - text.data()) : string::npos,
                  expected)
            << text << " " << part;
    }
    const string longText(200'000, 'a');
    for (const std::size_t place : {0, 65'535, 65'536, 199'999}) {
        string other = longText;
        other[place] = 'b';
        EXPECT_LT(SCR::compareLarge(longText, other), 0) << place;
        EXPECT_GT(SCR::compareLarge(other, longText), 0) << place;
        EXPECT_LT(SCR::compareLarge(longText.substr(0, place), longText), 0) << place;
        const string script =
            "String s = strPad(\"\", \"a\", 200000, true); String t = replace(s, " +
            std::to_string(place) + R"(, 1, "b"); String u = s + "";
            String p = substr(t, 0, 150000); Long h{}; h{s} = 1; h{t} = 2;
            String tail = substr(t, 100000, 100000); String blank = strPad("", " ", 70000, true);
            logStdout(longToStr(strSearch(s + t + t, t)) + " " + longToStr(strSearch(s, t)) + " " +
                longToStr(h{s + ""} + 10 * h{t + ""}) + " " + longToStr(length(strStrip(blank + t +
                blank, STRIP_BOTH))));
            if (s == u and s != t and s < t and t >= s and strStartsWith(t, p) and
                strEndsWith(t, tail) and strStartsWith(s, t) == false and strEndsWith(s, t) == false) {
                logStdout(" sound");
            }
            switch (t) { case "a": logStdout("no"); case "b": default: logStdout(" default"); }
            regExprSwitch (t) { case "a+": logStdout("no"); break; case "a*ba*": logStdout(" b"); })";
        const Harness::ScriptRun run = Harness::run(script);
        EXPECT_EQ(run.output, "200000 -1 21 200000 sound default b") << place << run.log;
    }
}

TEST(RegExpr, KnowsValidPatterns) {
    const struct {
        string pattern;
        bool isValid;
    } cases[] = {
        {"", true},          {"()", true},         {"|a", true},      {"a{2,3}", true},
        {"a{,3}", true},     {"[]a]", true},       {"[^]a]", true},   {"[[:alnum:]_-]", true},
        {"\\.\\/\\-", true}, {"\\d\\S\\b", true},  {"a$b", true},     {"\xE4+", true},
        {"{", true},         {string(1, 0), true}, {"[a\\]b]", true}, {"a**", true},
        {"*a", false},       {"a|*", false},       {"(", false},      {")", false},
        {"[a", false},       {"[z-a]", false},     {"a{2,1}", false}, {"a\\", false},
        {"(a)\\1", false},   {"(?:a)", false},     {"(?i)a", false},  {"[[:none:]]", false},
        {"a{1001}", false},  {"\\Q", false},       {"\\pN", false},   {"((a{99}){99}){99}", false},
    };
    for (const auto& [pattern, isValid] : cases) {
        EXPECT_EQ(SCR::RegExpr(pattern).isValid(), isValid) << pattern;
    }
}

TEST(RegExpr, FindsTheLeftmostLongestMatch) {
    const struct {
        string pattern, text;
        std::size_t start;
        int position;  // -1: none
        int length;
    } cases[] = {
        {"a|ab|abc", "xabcd", 0, 1, 3},
        {"a*?", "aaa", 0, 0, 3},
        {"(a|ab)(c|bcd)", "abcd", 0, 0, 4},
        {"", "abc", 2, 2, 0},
        {"x*", "abc", 3, 3, 0},
        {"a", "abc", 4, -1, 0},
        {"^b", "abc", 1, -1, 0},
        {"\\Bb", "abc", 1, 1, 1},
        {"b$", "ab\n", 0, -1, 0},
        {".*", "a\nb", 0, 0, 3},
        {string("\0+", 2), string("a\0\0b", 4), 0, 1, 2},
        {"[\x80-\xFF]+", "a\xC3\xA4z", 0, 1, 2},
        {"A", "a", 0, -1, 0},
    };
    for (const auto& [pattern, text, start, position, length] : cases) {
        const std::optional<std::string_view> match = SCR::RegExpr(pattern).search(text, start);
        EXPECT_EQ(match ? match->data() - text.data() : -1, position) << pattern << " in " << text;
        EXPECT_EQ(match ? match->size() : 0, length) << pattern << " in " << text;
    }
}

TEST(RegExpr, TakesHostilePatternsAndTextsInItsStride) {
    const string deep = string(50000, '(') + 'a' + string(50000, ')');
    SCR::RegExpr(deep).search("aa", 0);
    // Many more states than can be kept.
    const SCR::RegExpr wide("a[ab]{300}b[ab]{200}c");
    EXPECT_TRUE(wide.isValid());
    string text;
    std::minstd_rand random(1);
    for (int i = 0; i < 20000; ++i) text += "ab"[random() >> 16 & 1];
    EXPECT_FALSE(wide.search(text, 0));
    EXPECT_FALSE(SCR::RegExpr("(((a+)+)+)+$").search(string(200000, 'a') + 'b', 0));
}

TEST(StringResult, MemoryThatCanNotBeHadIsAnErrorOfTheScript) {
    const std::size_t all = Allocations::largestCM.exchange(1 << 20);
    const Harness::ScriptRun run = Harness::run(R"(
        String text = strPad("", "x", 1000000, true);
        logStdout("[" + strStrToHexStr(text) + replace(text, 0, 0, text) + "]");
        logStdout(longToStr(length(text)));)");
    Allocations::largestCM = all;
    EXPECT_TRUE(run.ok);
    EXPECT_EQ(run.output, "[]1000000");
    EXPECT_EQ(run.log,
              "ERROR: Out of memory!  Returning...\nString result is too long '2000000'\n");
}

TEST(TextBuiltIns, DoNotAllocateOnceTheirRoomIsThere) {
    const char* const statements[] = {
        R"(r = toUpper(t);)",
        R"(r = toLower(t);)",
        R"(r = substr(t, 3, 40);)",
        R"(r = replace(t, 3, 2, t);)",
        R"(r = strStrip(t, STRIP_BOTH, "a");)",
        R"(r = strPad(t, "-", 90, false);)",
        R"(r = strStrToHexStr(t);)",
        R"(r = strHexStrToStr(h);)",
        R"(r = strMatch(t, "[0-9][a-z0-9, ]+");)",
        R"(r = strDecode(t, "a", "1", "b", "2", "neither this nor that nor anything else");)",
        R"(r = longToStr(-9223372036854775807);)",
        R"(r = longToHexStr(-9223372036854775807);)",
        R"(r = decimalToStr(12345678.9, 20);)",
        R"(r = decimalToStrHex(12345678.9, ".", 20);)",
        R"(d = strToDecimal("123.456"); d = round(d, 2); d = sqrt(d); d = strHexToDecimal("ff.8");)",
        R"(n = strSearch(t, "z9") + strSearchRegExpr(t, "z9+") + strToLong(t) + strHexToLong(t);)",
        R"(b = strStartsWith(t, "abc"); b = strEndsWith(t, "z9");)",
        R"(n = strSplit(f, t, ","); n = strSplit(f, t, " ");)",
    };
    for (const string statement : statements) {
        Harness::MemoryLog log;
        SCR::Interpreter interpreter(&log);
        ASSERT_TRUE(interpreter.compile(R"(
            String t = "abc, defghijklm 0123, nopqrstuvwxyz, and so on and on, z9";
            String h = strStrToHexStr(t);
            String r; String f[]; Long n; Bool b; Decimal d;)" +
                                        statement))
            << statement << log.text;
        // The first runs make room, and the regular expressions find their states.
        for (int turn = 0; turn < 3; ++turn) ASSERT_TRUE(interpreter.execute());
        const long before = Allocations::madeCM;
        ASSERT_TRUE(interpreter.execute());
        EXPECT_EQ(Allocations::madeCM, before) << statement;
        EXPECT_EQ(log.text, "") << statement;
    }
}

}  // namespace
