#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

#include "Grammar.h"
#include "scr/Constant.h"
#include "scr/FctDescr.h"
#include "scr/parser/CustomLexer.h"
#include "scr/parser/ParserStack.h"

namespace {

using Tokens = std::vector<std::pair<int, FND::String>>;

Tokens scan(const FND::String& text) {
    SCR::CustomLexer lexer("", text);
    Tokens tokens;
    FND::String token;
    while (const int code = lexer.yylex(&token)) tokens.emplace_back(code, token);
    return tokens;
}

TEST(LexerTest, Tokens) {
    const struct {
        FND::String text;
        Tokens tokens;
    } rows[] = {
        {"", {}},
        {"a.b.c _x1", {{SCR_IDENTIFIER, "a.b.c"}, {SCR_IDENTIFIER, "_x1"}}},
        {"m::f.g", {{SCR_MODULE_IDENTIFIER, "m::f.g"}}},
        {"m:f", {{SCR_IDENTIFIER, "m"}, {SCR_COLON, ":"}, {SCR_IDENTIFIER, "f"}}},
        {"12L 1. .5 1.25.5",
         {{SCR_LONG_NUMBER, "12"},
          {SCR_IDENTIFIER, "L"},
          {SCR_LONG_NUMBER, "1"},
          {'.', "."},
          {SCR_DECIMAL_NUMBER, ".5"},
          {SCR_DECIMAL_NUMBER, "1.25"},
          {SCR_DECIMAL_NUMBER, ".5"}}},
        {"<> <= = == =~ !=",
         {{SCR_COMPARE_OPERATOR, "<"},
          {SCR_COMPARE_OPERATOR, ">"},
          {SCR_COMPARE_OPERATOR, "<="},
          {'=', "="},
          {SCR_COMPARE_OPERATOR, "=="},
          {SCR_PATTERN_COMPARE, "=~"},
          {SCR_COMPARE_OPERATOR, "!="}}},
        {"and AND or OR And",
         {{SCR_BOOL_OPERATOR, "and"},
          {SCR_BOOL_OPERATOR, "AND"},
          {SCR_BOOL_OPERATOR, "or"},
          {SCR_BOOL_OPERATOR, "OR"},
          {SCR_IDENTIFIER, "And"}}},
        {"regExprSwitch regexprswitch iff Void Long Nxid",
         {{SCR_REGEXPR_SWITCH, "regExprSwitch"},
          {SCR_IDENTIFIER, "regexprswitch"},
          {SCR_IDENTIFIER, "iff"},
          {SCR_IDENTIFIER, "Void"},
          {SCR_VAR_DECLARATION, "Long"},
          {SCR_VAR_DECLARATION, "Nxid"}}},
        {R"("a\tb" "" "\"\\\q")", {{SCR_STRING, "a\tb"}, {SCR_STRING, ""}, {SCR_STRING, "\"\\q"}}},
        {"true /* x */ false // end", {{SCR_BOOL_CONSTANT, "true"}, {SCR_BOOL_CONSTANT, "false"}}},
        {"/* open", {}},
        {"& \r # \xFF", {{'&', "&"}, {'\r', "\r"}, {'#', "#"}, {0xFF, "\xFF"}}},
        {"QUERY:x MAPPING :",
         {{SCR_QUERY, "QUERY:"},
          {SCR_IDENTIFIER, "x"},
          {SCR_IDENTIFIER, "MAPPING"},
          {SCR_COLON, ":"}}},
        {"a\n#line\nb", {{SCR_IDENTIFIER, "a"}}},
        {"#line 3 \"one quote\nb", {}},
    };
    for (const auto& row : rows) EXPECT_EQ(scan(row.text), row.tokens) << row.text;
}

TEST(LexerTest, LongTokensAndAnyLengthOfText) {
    const FND::String name(100000, 'n');
    const FND::String literal(300000, 'x');
    const Tokens tokens = scan(name + " \"" + literal + "\" " + name);
    ASSERT_EQ(tokens.size(), 3U);
    EXPECT_EQ(tokens[0].second, name);
    EXPECT_EQ(tokens[1].second, literal);
    EXPECT_EQ(tokens[2].second, name);
}

TEST(LexerTest, LinesAndFiles) {
    const struct {
        FND::String text;  // read to its end
        int line;
        const char* file;
    } rows[] = {
        {"a", 1, ""},
        {"a\nb\r\nc", 3, ""},
        {"/* one\ntwo */ x", 2, ""},
        {"// comment\r\nx", 2, ""},
        {"\"one\ntwo\"", 2, ""},
        {"\"one\\\ntwo\"", 2, ""},
        {"#line 12 \"f.ks\"\nx", 12, "f.ks"},
        {"#line 2147483647 \"f.ks\"\n\n\nx", 2147483647, "f.ks"},
        {"x #line 7 \"a\"b\"\n\nx", 8, "a\"b"},
        {"/* #line 5 \"no\"\n */ \"#line 6\"", 2, ""},
    };
    for (const auto& row : rows) {
        SCR::CustomLexer lexer("", row.text);
        FND::String token;
        while (lexer.yylex(&token) != 0) {
        }
        EXPECT_EQ(lexer.line(), row.line) << row.text;
        EXPECT_EQ(lexer.fileName(), row.file) << row.text;
    }
}

TEST(LexerTest, NulIsACharacter) {
    EXPECT_EQ(scan(FND::String("a\0b", 3)), (Tokens{{SCR_IDENTIFIER, "a"},
                                                    {SCR_SCR_UNDEF, FND::String(1, '\0')},
                                                    {SCR_IDENTIFIER, "b"}}));
    EXPECT_EQ(scan(FND::String("\"a\0b\"", 5)), (Tokens{{SCR_STRING, FND::String("a\0b", 3)}}));
}

// Most tokens do not come to the generated rules: they are to be what the rules would make of them.
// The texts are longer than the scanner's buffer, so that tokens of all kinds lie across its end.
TEST(LexerTest, AllTokensAreThoseOfTheRules) {
    using namespace std::string_view_literals;
    constexpr std::string_view pieces[] = {
        "a"sv,        "total"sv,  "x.y_1"sv,  "m::f"sv,     "m:"sv,         "::"sv,
        "QUERY:"sv,   "Long"sv,   "String"sv, "function"sv, "if"sv,         "iff"sv,
        "And"sv,      "or"sv,     "12"sv,     "007"sv,      "1.5"sv,        "1."sv,
        ".25"sv,      "1.5.6"sv,  "12ab"sv,   "\"text\""sv, "\"\""sv,       "\"a\\\"b\""sv,
        "\"a\nb\""sv, "\"\0\""sv, "/"sv,      "// c\n"sv,   "/* \n * */"sv, "#line 3 \"f\"\n"sv,
        "="sv,        "=="sv,     "=~"sv,     "!="sv,       "!"sv,          "<"sv,
        "<="sv,       ">"sv,      ">="sv,     "{"sv,        "}"sv,          "("sv,
        ")"sv,        "["sv,      "]"sv,      ","sv,        ";"sv,          "+"sv,
        "-"sv,        "*"sv,      "%"sv,      " "sv,        "  \t"sv,       "\n"sv,
        "\r\n"sv,     "\r"sv,     "\0"sv,     "\xC4"sv,     "#"sv,          "\\"sv,
    };
    std::mt19937 engine(20240131);
    for (int round = 0; round < 50; ++round) {
        FND::String text;
        while (text.size() < 40000) {
            text += pieces[engine() % std::size(pieces)];
            if (engine() % 2 == 0) text += ' ';
        }
        SCR::CustomLexer lexer("", text);
        SCR::CustomLexer other("", text);
        FlexLexer& rules = other;
        int code = 1;
        for (int count = 0; code != 0; ++count) {
            std::string_view token;
            code = lexer.next(token);
            ASSERT_EQ(code, rules.yylex()) << "token " << count << " of round " << round;
            if (code == 0) break;
            std::string_view matched(rules.YYText(), static_cast<std::size_t>(rules.YYLeng()));
            if (code == SCR_STRING) matched = matched.substr(1, matched.size() - 2);
            ASSERT_EQ(token, matched) << "token " << count << " of round " << round;
            ASSERT_EQ(lexer.line(), other.line()) << "token " << count << " of round " << round;
        }
        EXPECT_EQ(lexer.line(), other.line());
        EXPECT_EQ(lexer.braceDepth(), other.braceDepth());
        EXPECT_EQ(lexer.fileName(), other.fileName());
    }
}

TEST(ParserStackTest, UnderflowsAreReportedAndHarmless) {
    SCR::ParserStack stack;
    testing::internal::CaptureStderr();
    EXPECT_EQ(stack.popData(), nullptr);
    EXPECT_EQ(stack.popType(), 0);
    EXPECT_EQ(stack.popFunction(), nullptr);
    EXPECT_EQ(stack.topFunction(), nullptr);
    EXPECT_EQ(stack.popNumParams(), 0);
    EXPECT_EQ(stack.incTopNumParams(), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ERROR: datastack underflow\n"
              "ERROR: type stack underflow\n"
              "ERROR: function stack underflow\n"
              "ERROR: function stack underflow\n"
              "ERROR: number of parameter stack underflow\n"
              "ERROR: number of parameter stack underflow\n");
}

TEST(ParserStackTest, SuperTypes) {
    constexpr int left = SCR::TypeCode::LeftFlag;
    const struct {
        std::vector<int> types;  // bottom to top
        int super;
    } rows[] = {
        {{}, 0},        {{14 | left}, 14},  {{0 | left}, left},
        {{14, 13}, 13}, {{13, 14, 14}, 13}, {{14, 11 | left}, 11 | left},
        {{21, 21}, 21}, {{11, 14, 14}, 14}, {{11 | left, 11}, 11},
    };
    for (const auto& row : rows) {
        SCR::ParserStack stack;
        for (const int type : row.types) stack.pushData(new SCR::LongConstant(0), type);
        EXPECT_EQ(stack.superType(), row.super);
        stack.clear();
        EXPECT_TRUE(stack.isEmpty());
    }
    SCR::ParserStack stack;
    for (const int type : {13, 14, 14}) stack.pushData(new SCR::LongConstant(0), type);
    EXPECT_EQ(stack.operandsType(), 14) << "of the two topmost operands only";
}

TEST(ParserStackTest, Print) {
    const SCR::FctDescr descriptor("f", SCR::TypeCode::Long, 1, 1, nullptr, SCR::TypeCode::Date);
    SCR::ParserStack stack;
    std::ostringstream text;
    stack.print(text);
    stack.pushFunction(&descriptor);
    stack.pushFunction(nullptr);
    stack.pushData(new SCR::LongConstant(1), SCR::TypeCode::Long);
    stack.print(text);
    EXPECT_EQ(
        text.str(),
        "Function stack:\n---------------\nEMPTY\nType stack:\n-----------\nEMPTY\n"
        "Function stack:\n---------------\nLong f(Date)\nNULL\nType stack:\n-----------\nLong\n");
}

}  // namespace
