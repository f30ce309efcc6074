// The messages about wrong scripts: their places and causes, and the pages about their codes.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "Script.h"
#include "scr/message/Codes.h"

namespace {

// "LINE:COLUMN CODE" of each message of a check.
std::string checked(const std::string& text) {
    SCR::Log log;
    SCR::Interpreter interpreter(&log);
    interpreter.check(text);
    std::string places;
    for (const SCR::Diagnostic& message : interpreter.diagnostics()) {
        if (!places.empty()) places += ", ";
        places += std::to_string(message.place.line) + ":" + std::to_string(message.place.column) +
                  " " + message.code;
    }
    return places;
}

// What stands between quotes in a source, without lines of comments and of the preprocessor.
std::vector<std::string> literalsOf(const std::filesystem::path& source) {
    std::vector<std::string> literals;
    std::ifstream file(source);
    for (std::string line; std::getline(file, line);) {
        const std::size_t first = line.find_first_not_of(' ');
        if (first == std::string::npos || line[first] == '#' || line[first] == '/') continue;
        for (std::size_t at = line.find('"'); at != std::string::npos;
             at = line.find('"', at + 1)) {
            std::string literal;
            if (at > 0 && line[at - 1] == '\'') continue;
            for (++at; at < line.size() && line[at] != '"'; ++at) {
                if (line[at] == '\\') ++at;
                literal += line[at];
            }
            literals.push_back(literal);
        }
    }
    return literals;
}

// What a check of `text` logs.
std::string logOf(const std::string& text) {
    Harness::MemoryLog log;
    SCR::Interpreter(&log).check(text);
    return log.text;
}

// Whether a line of `log` reads as one of the texts of `code`.
bool isDescribed(SCR::MessageCode code, const std::string& log) {
    for (const SCR::LogText& logged : SCR::logTexts(code)) {
        const std::regex special("[.(){}+*^$|?\\[\\]\\\\]"), capital("\\b[A-Z]\\b");
        std::string form(logged.text);
        form = std::regex_replace(form, special, "\\$&");
        form = std::regex_replace(form, capital, ".*");
        if (std::regex_search(log, std::regex("(^|: |\n)" + form))) return true;
    }
    return false;
}

}  // namespace

TEST(MessagesTest, TheManualHasAllTextsOfTheLog) {
    EXPECT_TRUE(std::ranges::is_sorted(SCR::logTexts(), {}, &SCR::LogText::code));
    std::string all;
    for (const SCR::LogText& logged : SCR::logTexts()) all += std::string(logged.text) + "\n";
    // Warnings have examples; other files hold explanations, findings and manuals.
    const std::regex others(
        "/(advice|builtin)/"
        "|(FlowAnalysis|SwitchAutomaton|Pages|LogTexts|ParserStack|Crypt|Node)[.]");
    const std::regex words("[A-Za-z]{2,}[^A-Za-z]* .*[A-Za-z]{2,}");
    const std::set<std::string> notes{"included here",
                                      "syntax error",
                                      " (not in ",
                                      ", not of ",
                                      "looked for in `",
                                      "standard output",
                                      "stopped by a test",
                                      " of the script",
                                      "unknown error",
                                      "no module of this name",
                                      "no module of this name in "};
    int count = 0;
    const std::filesystem::path root = std::filesystem::path(KESTREL_TEST_DATA) / "../scr";
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
        const std::string name = entry.path().string();
        const bool isSource = name.ends_with(".cpp") || name.ends_with("Messages.h");
        if (!isSource || std::regex_search(name, others)) continue;
        for (std::string literal : literalsOf(entry.path())) {
            for (const std::string_view severity : {"ERROR: ", "WARNING: "}) {
                if (literal.starts_with(severity)) literal.erase(0, severity.size());
            }
            if (notes.contains(literal) || !std::regex_search(literal, words)) continue;
            EXPECT_NE(all.find(literal), std::string::npos) << name << ": " << literal;
            ++count;
        }
    }
    EXPECT_GT(count, 100);
}

TEST(MessagesTest, ThePageOfEachCodeIsTrue) {
    for (const SCR::MessagePage& page : SCR::messagePages()) {
        const std::string code = SCR::codeName(page.code);
        SCOPED_TRACE(code);
        EXPECT_EQ(SCR::messagePage(page.code), &page);
        if (!page.wrong.empty()) {
            EXPECT_TRUE(checked(std::string(page.wrong)).ends_with(code))
                << checked(std::string(page.wrong));
            EXPECT_TRUE(isDescribed(page.code, logOf(std::string(page.wrong))))
                << logOf(std::string(page.wrong));
        }
        EXPECT_EQ(checked(std::string(page.right)), "");
    }
}

TEST(MessagesTest, PlacesAndCausesAreRight) {
    const struct {
        const char* text;
        const char* messages;
    } rows[] = {
        {"Long a = 1\n\nlogStdout(\"x\");", "1:11 K0002"},
        {"logStdout(longToStr(1\n  + 2);\n", "2:7 K0003"},
        {"{\n  if (true) {\n  logStdout(\"x\");\n}\n", "2:13 K0004"},
        {"if (true) {\n  logStdout(\"x\");\nwhile (false) {\n  logStdout(\"y\");\n}\n",
         "1:11 K0004"},
        {"Long n;\nlogStdout(\"a\" +\n  \"b\" + n +\n \"c\");", "3:7 K0201"},
        {"String s = \"\xC3\xA4\" + 1;", "1:16 K0201"},
        {"Long n; n++;", "1:10 K0008"},
        {"Long n; n += 1;", "1:11 K0008"},
        {"Bool b; if (!b) b = true;", "1:13 K0008"},
        {"String s = 'x';", "1:12 K0007"},
        {"String s =\xC2\xA0\"x\";", "1:11 K0007"},
        {"\xEF\xBB\xBFLong n;", "1:1 K0007"},
        {"Long n = \xE4;", "1:10 K0007"},
        {"function f() { }", "1:11 K0013"},
        {"Long f(Long n) { return n; }", "1:1 K0013"},
        {"if true logStdout(\"x\");", "1:3 K0003"},
        {"Long n; If (n == 1) n = 2;", "1:9 K0105"},
        {"String s = NULL;", "1:12 K0105"},
        {"Date d; d = \"2024-01-01\";", "1:13 K0202"},
        {"function Long f(Long n) { return \"a\"; }", "1:34 K0406"},
        // Several mistakes, none of them twice.
        {"Long a = \"x\";\nString s = 5;\nnosuch(a);\nnosuch(s);\n",
         "1:10 K0202, 2:12 K0202, 3:1 K0101"},
        {"int n = 3;\nn = n + 1;\nLong k = 2 +;\nlogStdout(k);\n",
         "1:1 K0105, 3:13 K0014, 4:11 K0303"},
        {"Long n = 1;\nif (n > 2 {\n  n = \"a\";\n} else {\n  n = 2\n}\n",
         "2:10 K0003, 3:7 K0202, 5:8 K0002"},
        {"function f() {\n  return;\n}\nLong z;\nswitch (z) {\n  case 1: z = 1; z = 2; break;\n  "
         "case "
         "\"2\": z = 3; break;\n}\nf();\nz = true;\n",
         "1:11 K0013, 6:18 K0012, 7:8 K0402, 10:5 K0202"},
        {"Long a;\nswitch (b) { case 1: a = 1; break; }\nwhile (a) { a = 2; }\nLong c[5];\nc[0] = "
         "1;",
         "2:9 K0101, 3:8 K0205, 4:8 K0010"},
    };
    for (const auto& row : rows) EXPECT_EQ(checked(row.text), row.messages) << row.text;
}
