#include "Grammar.h"
#include "Test.h"
#include "scr/parser/CustomLexer.h"
#include "scr/parser/ParserStack.h"
#include "scr/tree/Constant.h"

namespace {

// The tokens of `text` as "code:text" separated by blanks; codes as letters if they are not bytes.
std::string scan(const FND::String& text) {
    const std::pair<int, const char*> names[] = {
        {SCR_IDENTIFIER, "id"},         {SCR_MODULE_IDENTIFIER, "module"},
        {SCR_COLON, "colon"},           {SCR_LONG_NUMBER, "long"},
        {SCR_DECIMAL_NUMBER, "dec"},    {SCR_COMPARE_OPERATOR, "cmp"},
        {SCR_PATTERN_COMPARE, "like"},  {SCR_BOOL_OPERATOR, "bool"},
        {SCR_REGEXPR_SWITCH, "switch"}, {SCR_VAR_DECLARATION, "type"},
        {SCR_STRING, "text"},           {SCR_BOOL_CONSTANT, "const"},
        {SCR_QUERY, "query"},           {SCR_SCR_UNDEF, "undef"}};
    SCR::CustomLexer lexer("", text);
    std::string tokens;
    FND::String token;
    while (const int code = lexer.yylex(&token)) {
        std::string name = "byte";
        for (const auto& [known, shown] : names) {
            if (known == code) name = shown;
        }
        EXPECT_TRUE(name != "byte" || token == FND::String(1, static_cast<char>(code)));
        tokens += (tokens.empty() ? "" : " ") + name + ":" + token;
    }
    return tokens;
}

TEST(LexerTest, Tokens) {
    const std::pair<FND::String, std::string> rows[] = {
        {"", ""},
        {"a.b.c _x1 m::f.g", "id:a.b.c id:_x1 module:m::f.g"},
        {"m:f", "id:m colon:: id:f"},
        {"12L 1. .5 1.25.5", "long:12 id:L long:1 byte:. dec:.5 dec:1.25 dec:.5"},
        {"<> <= = == =~ !=", "cmp:< cmp:> cmp:<= byte:= cmp:== like:=~ cmp:!="},
        {"and AND or OR And", "bool:and bool:AND bool:or bool:OR id:And"},
        {"regExprSwitch regexprswitch iff Void Long Nxid",
         "switch:regExprSwitch id:regexprswitch id:iff id:Void type:Long type:Nxid"},
        {R"("a\tb" "" "\"\\\q")", "text:a\tb text: text:\"\\q"},
        {"true /* x */ false // end", "const:true const:false"},
        {"/* open", ""},
        {"& \r # \xFF", "byte:& byte:\r byte:# byte:\xFF"},
        {"QUERY:x MAPPING :", "query:QUERY: id:x id:MAPPING colon::"},
        {"a\n#line\nb", "id:a"},
        {"#line 3 \"one quote\nb", ""},
        {FND::String("a\0b \"a\0b\"", 9), std::string("id:a undef:\0 id:b text:a\0b", 26)},
        {FND::String(100000, 'n') + " \"" + FND::String(300000, 'x') + "\" b",
         "id:" + std::string(100000, 'n') + " text:" + std::string(300000, 'x') + " id:b"},
    };
    for (const auto& [text, tokens] : rows) EXPECT_EQ(scan(text), tokens) << text.substr(0, 100);
}

// Most tokens never reach the generated rules; they must equal what the rules would make of them.
// The texts are longer than the scanner's buffer, so that tokens of all kinds cross its end.
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

}  // namespace
