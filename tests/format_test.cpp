// The layout of scripts: what it looks like, and that it changes nothing else.
#include "Script.h"
#include "Scripts.h"

#include "author/Format.h"
#include "scr/advice/SourceTokens.h"
#include "scr/parser/Crypt.h"

namespace {

using Author::format;

// The texts of layout.txt: one, "--->", and its layout, or "---!" and the fault.
struct Example {
    std::string from, to, fault;
    int line = 0;
};

std::vector<Example> examples() {
    std::vector<Example> examples;
    std::ifstream stream(KESTREL_TEST_DATA "/layout.txt", std::ios::binary);
    std::string line;
    std::string* section = nullptr;
    for (int number = 1; std::getline(stream, line); ++number) {
        if (line.starts_with("===")) {
            examples.push_back({});
            examples.back().line = number;
            section = &examples.back().from;
        } else if (line == "--->") {
            section = &examples.back().to;
        } else if (line == "---!") {
            section = &examples.back().fault;
        } else if (section != nullptr) {
            *section += line + '\n';
        }
    }
    return examples;
}

TEST(Format, LaysOutAsShown) {
    const std::vector<Example> all = examples();
    ASSERT_FALSE(all.empty());
    for (const Example& example : all) {
        SCOPED_TRACE("layout.txt:" + std::to_string(example.line));
        const Author::Formatted result = format(example.from);
        EXPECT_EQ(result.text, example.to);
        EXPECT_EQ(
            result.fault.empty() ? "" : std::to_string(result.at) + ": " + result.fault + "\n",
            example.fault);
        EXPECT_EQ(format(result.text).text, result.text);
    }
}

TEST(Format, KeepsLineEndsMarksAndScrambling) {
    const std::string text = "\xEF\xBB\xBFLong a=1; // x \r\n\r\n\r\nb = \"x\r\ny\";";
    EXPECT_EQ(format(text).text, "\xEF\xBB\xBFLong a = 1;  // x\r\n\r\nb = \"x\r\ny\";\r\n");
    std::string scrambled;
    std::string plain;
    ASSERT_TRUE(SCR::Crypt::encrypt("a=1;", scrambled));
    const Author::Formatted result = Author::formatFile(scrambled);
    ASSERT_TRUE(SCR::Crypt::decrypt(result.text, plain));
    EXPECT_EQ(plain, "a = 1;\n");
    EXPECT_EQ(Author::formatFile(result.text).text, result.text);
}

// All scripts of the cases and examples.
std::vector<std::string> scripts() {
    return Harness::scriptsBelow({"/cases", "/hostile", "/../examples"});
}

// What `check` says of the text, without its lines.
std::string verdict(const std::string& text) {
    Harness::MemoryLog log;
    SCR::Interpreter interpreter(&log);
    std::string said = interpreter.check(text) ? "compiles\n" : "does not compile\n";
    for (const SCR::Diagnostic& diagnostic : interpreter.diagnostics()) {
        said += diagnostic.code + " " + diagnostic.explanation + "\n";
    }
    said.erase(std::remove_if(said.begin(), said.end(), ::isdigit), said.end());
    return said;
}

TEST(Format, ChangesNoMeaningOfTheCases) {
    const std::vector<std::string> all = scripts();
    EXPECT_GT(all.size(), 100u);
    std::size_t refused = 0;
    for (const std::string& text : all) {
        SCOPED_TRACE(text);
        const Author::Formatted result = format(text);
        const std::string before = verdict(text);
        if (!result.fault.empty()) {
            ++refused;
            const bool endsEarly = before.find("is not closed") != before.npos ||
                                   before.find("the text ends here") != before.npos;
            EXPECT_TRUE(endsEarly || before.starts_with("does not")) << result.fault;
            continue;
        }
        EXPECT_EQ(verdict(result.text), before);
        EXPECT_EQ(format(result.text).text, result.text);
    }
    EXPECT_LT(refused, all.size() / 10);
}

// The tokens of the text with others of these between them.
std::string mixed(const std::string& text, std::span<const char* const> between,
                  std::mt19937& dice) {
    std::string result;
    for (const SCR::SourceToken& token : SCR::sourceTokens(text).tokens) {
        if (!token.isSeen()) continue;
        result += between[dice() % between.size()];
        result += token.in(text);
    }
    return result + "\n";
}

TEST(Format, DependsOnTokensCommentsAndBlankLinesOnly) {
    constexpr const char* blanks[] = {" ", "\n", "\t", "\n \n"};
    constexpr const char* comments[] = {" ",
                                        "\n",
                                        " // c\n",
                                        "\n// c\n",
                                        " /* c */ ",
                                        " /* c */\n",
                                        "\n\n\n",
                                        " /* c\n * d\n   e */ ",
                                        "\n#line 3 \"f\"\n",
                                        "\n include \"f\";\n",
                                        " // kestrel: ignore K0801\n"};
    std::mt19937 dice(7);
    int refused = 0;
    for (const std::string& text : scripts()) {
        if (!format(text).fault.empty()) continue;
        const std::string first = mixed(text, std::span(blanks).first(3), dice);
        SCOPED_TRACE(first);
        EXPECT_EQ(format(first).text, format(mixed(text, std::span(blanks).first(3), dice)).text);
        for (int i = 0; i < 3; ++i) {
            const std::string other = mixed(text, comments, dice);
            const Author::Formatted result = format(other);
            if (!result.fault.empty()) ++refused;
            EXPECT_EQ(result.fault, "") << other;
            EXPECT_EQ(format(result.text).text, result.text) << other;
        }
    }
    EXPECT_EQ(refused, 0);
}

TEST(Format, RefusesAnyBytesCalmly) {
    std::mt19937 dice(3);
    const std::vector<std::string> all = scripts();
    for (int i = 0; i < 3000; ++i) {
        std::string text = all[dice() % all.size()].substr(0, 2000);
        for (int k = 0; k < 3 && !text.empty(); ++k)
            text[dice() % text.size()] = "(){}[];\"*/\n \r\xC3"[dice() % 14];
        const Author::Formatted result = format(text);
        if (result.fault.empty()) {
            EXPECT_EQ(format(result.text).text, result.text) << text;
        } else {
            EXPECT_LE(result.at, text.size());
        }
    }
    for (const char* piece : {"(", "{", "if (a) ", "-", "a = ", "else ", "/*", "a[", "case 1: "}) {
        std::string text;
        for (int i = 0; i < 100000; ++i) text += piece;
        EXPECT_NE(format(text).fault, "") << piece;
    }
}

}  // namespace
