#include "Grammar.h"
#include "Test.h"
#include "scr/Constant.h"
#include "scr/parser/CustomLexer.h"
#include "scr/parser/ParserStack.h"

namespace {

// The tokens of `text` as "code:text" between blanks; codes as letters where bytes are no codes.
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
        {"m:f if::x m::1 a::b::c",
         "id:m colon:: id:f module:if::x id:m colon:: colon:: long:1 "
         "module:a::b colon:: colon:: id:c"},
        {"12L 1. .5 1.25.5", "long:12 id:L long:1 byte:. dec:.5 dec:1.25 dec:.5"},
        {"<> <= = == =~ !=", "cmp:< cmp:> cmp:<= byte:= cmp:== like:=~ cmp:!="},
        {"and AND or OR And", "bool:and bool:AND bool:or bool:OR id:And"},
        {"regExprSwitch regexprswitch iff Void Long Nxid",
         "switch:regExprSwitch id:regexprswitch id:iff id:Void type:Long type:Nxid"},
        {R"("a\tb" "" "\"\\\q" "\\" "a\" b)",
         "text:a\tb text: text:\"\\q text:\\ byte:\" id:a byte:\\ byte:\" id:b"},
        {"true /* x */ false // end", "const:true const:false"},
        {"/* open", ""},
        {"& \r # \xFF", "byte:& byte:\r byte:# byte:\xFF"},
        {"QUERY:x MAPPING : QUERY::x XQUERY:",
         "query:QUERY: id:x id:MAPPING colon:: module:QUERY::x id:XQUERY colon::"},
        {"a\n#line\nb", "id:a"},
        {"#line 3 \"one quote\nb", ""},
        {FND::String("a\0b \"a\0b\"", 9), std::string("id:a undef:\0 id:b text:a\0b", 26)},
        {FND::String(100000, 'n') + " \"" + FND::String(300000, 'x') + "\" b",
         "id:" + std::string(100000, 'n') + " text:" + std::string(300000, 'x') + " id:b"},
    };
    for (const auto& [text, tokens] : rows) EXPECT_EQ(scan(text), tokens) << text.substr(0, 100);
}

TEST(LexerTest, LinesFilesAndBraces) {
    const struct {
        FND::String text;
        FND::String tail;
        int line;
        FND::String file;
        int depth;
    } rows[] = {
        {"", "", 1, "", 0},
        {"a\nb\r\n{ {\r\n}", "\n", 5, "", 1},
        {"/* \n ** \n */ \"\n\\\n\" // \n", "", 6, "", 0},
        {"a #line 7 \"f\"\nb", "\n", 8, "f", 0},
        {"#line +7\t\"f\" \"g\"", "\n", 7, "f\" \"g", 0},
        {"a\r", "\n", 2, "", 0},
        {"/* \n", "\n", 3, "", 0},
        {"#line 2147483647 \"f\"\n\n\n", "", 2147483647, "f", 0},
        {"{\n#line 99999999999 \"f\"\n}", "", 2, "", 1},
    };
    for (const auto& row : rows) {
        SCR::CustomLexer lexer("RESULTS: ", row.text, row.tail);
        while (const int code = lexer.next()) EXPECT_NE(code, '\r') << row.text;
        EXPECT_EQ(lexer.next(), 0) << row.text;
        EXPECT_EQ(lexer.line(), row.line) << row.text;
        EXPECT_EQ(lexer.fileName(), row.file) << row.text;
        EXPECT_EQ(lexer.braceDepth(), row.depth) << row.text;
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
