// The messages about wrong scripts: their places and causes, and the pages about their codes.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>

#include "Script.h"
#include "records/read/RecordReader.h"
#include "scr/ConditionList.h"
#include "scr/HostExtension.h"
#include "scr/message/Codes.h"

namespace {

std::vector<SCR::Diagnostic> diagnosticsOf(const std::string& text, bool areConditions = false) {
    SCR::Log log;
    SCR::Interpreter interpreter(&log);
    if (areConditions) {
        SCR::ConditionList list(interpreter);
        list.check(text);
        EXPECT_EQ(list.size(), 0);
    } else {
        interpreter.check(text);
    }
    return interpreter.diagnostics();
}

// "LINE:COLUMN CODE" of each message of a check.
std::string checked(const std::string& text, bool areConditions = false) {
    std::string places;
    for (const SCR::Diagnostic& message : diagnosticsOf(text, areConditions)) {
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
                                      "called from here",
                                      " calls before that",
                                      "an array",
                                      "no number",
                                      "the field ",
                                      "of the type ",
                                      "syntax error",
                                      " (not in ",
                                      "looked for in `",
                                      "cannot open shared object",
                                      "else if",
                                      "the script was scrambled, and its text ends here: it "
                                      "may have been cut",
                                      "standard output",
                                      "no number",
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

TEST(MessagesTest, TheManualHasTheLimits) {
    std::ifstream file(std::filesystem::path(KESTREL_TEST_DATA) / "../docs/language.md");
    std::map<std::string, std::int64_t> limits;
    const std::regex row("\\| `([a-z]+)` \\|.*\\| ([^|]+) \\|");
    for (std::string line; std::getline(file, line);) {
        std::smatch parts;
        if (!std::regex_match(line, parts, row)) continue;
        std::string value = std::regex_replace(parts[2].str(), std::regex(","), "");
        std::int64_t& limit = limits[parts[1]];
        limit = value == "none" ? SCR::Limits::none : std::atoll(value.c_str());
        limit <<= value.ends_with(" GiB") ? 30 : value.ends_with(" MiB") ? 20 : 0;
    }
    const std::int64_t record = Records::RecordReader::maxRecordCM;
    EXPECT_EQ(limits["record"], record);
    for (const char* const name : {"steps", "depth", "time", "string", "memory", "automata",
                                   "elements", "nesting", "source", "patterns", "states"}) {
        EXPECT_EQ(limits[name], SCR::Limits().*SCR::limitOfName(name)) << name;
    }
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
        {"Long n = 5;\nif (n = 5 and n > 2) n = 1;", "2:7 K0205"},
        {"if (true) logStdout(\"a\") else logStdout(\"b\");", "1:25 K0002"},
        {"function Long f(Long n) return n;\nlogStdout(longToStr(f(1)));", "1:25 K0013"},
        {"logStdout(\"a\" . \"b\");", "1:15 K0008"},
        {"Decimal d = 1,5;", "1:13 K0016"},
        {"Long n := 5;", "1:8 K0008"},
        {"logStdout(\"x\");;", "1:16 K0001"},
        {"switch (1) { case 1: logStdout(\"a\"); break }", "1:43 K0002"},
        {"BEGIN { logStdout(\"x\"); }", "1:1 K0105"},
        {"do {\n} while (true)\nLong n = 1;\nlogStdout(longToStr(n));", "2:15 K0002"},
        {"String s = \"b\" + \"say \"hi\"\";", "1:23 K0006"},
        {"try { logStdout(\"a\"); } catch (e) { logStdout(\"b\"); } finally { }", "1:1 K0105"},
        {"repeat { logStdout(\"a\"); } until (true);", "1:1 K0105"},
        {"Long case = 1;\nlogStdout(longToStr(case));", "1:6 K0015"},
        {"Long z\xC3\xA4hl = 1;\nlogStdout(longToStr(z\xC3\xA4hl));", "1:7 K0007"},
        {"Long f(Long n) {\n  return n;\n}\nlogStdout(longToStr(f(1)));", "1:1 K0013"},
        {"do {\n  logStdout(\"a\");\n}\nlogStdout(\"b\");", "3:2 K0001"},
        {"while (true) do { logStdout(\"a\"); }", "1:14 K0105"},
        {"if (true); logStdout(\"a\");", "1:10 K0001"},
        {"if (true) {\n} else (false) {\n}", "2:3 K0105"},
        {"if (true)\n  logStdout(\"a\");\n} else {\n}", "1:1 K0004"},
        {"function f {\n  if (true) {\n}\nfunction g {\n}\nf(); g();", "2:13 K0004"},
        {"Long n = 1;\nswitch (n) {\n  case 1: n = 2;\nn = 3;", "2:12 K0004"},
        {"Long n = 1;\nswitch n {\n  case 1: n = 2; break;\n}", "2:7 K0003"},
        {"String s = strSubstr(\"abc\"; 0; 1);", "1:27 K0008"},
        {"Long a[] = {1, 2};", "1:12 K0014"},
        {"Decimal d = 1.234,56;", "1:13 K0016"},
        {"String s = \"a\";\nif (s == b\") {\n  logStdout(\"x\");\n}", "2:10 K0006"},
        {"Long n = 2;\nif (n == 1) n = 3;\nelsif (n == 2) n = 4;\nelse n = 5;", "3:1 K0105"},
        {"logStdout \"x\";", "1:10 K0003"},
        {"do\n  logStdout(\"x\");\n  logStdout(\"y\");\nwhile (false);", "3:3 K0001"},
        {"function f(Long n) Long {\n  return n;\n}\nf(1);", "1:20 K0013"},
        {"Long n;\nswitch (n) {\n  case 1 2: n = 1; break;\n}", "3:9 K0001"},
        {"Long h{};\nh{\"a\", \"b\"} = 1;\nh{\"a\"} = 2;", "2:6 K0206"},
        // Within a pattern, be it joined from several texts.
        {"String n = strMatch(\"a\", \"x\\n(a\" \"[b\");\nlogStdout(n);", "1:35 K0501"},
        {"regExprSwitch (\"a\") { case \"a**\": break; }", "1:31 K0501"},
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

TEST(MessagesTest, WhatOnlyElementsCanDoIsTold) {
    const struct {
        const char* text;
        const char* message;
    } rows[] = {
        {"function Long f(Long a[]) { return 1; } Long n[]; Long x = f(n);",
         "`f` can not be given an array: functions of a script take values"},
        {"function Long f(Long a{}) { return 1; } Long h{}; Long x = f(h);",
         "`f` can not be given a hash: functions of a script take values"},
        {"function Long f(Long a) { return a; } Long n[]; Long x = f(n);",
         "argument 1 of `f` is an array, where a Long is needed"},
        {"Long a[]; Long b[]; a = b;", "`a` is an array: only its elements can be set, one by one"},
        {"Long a{}; Long b{}; a = b;", "`a` is a hash: only its elements can be set, one by one"},
    };
    for (const auto& row : rows) {
        const std::vector<SCR::Diagnostic> found = diagnosticsOf(row.text);
        ASSERT_EQ(found.size(), 1) << row.text;
        EXPECT_EQ(found[0].explanation, row.message) << row.text;
    }
}

TEST(MessagesTest, ConditionsAreCheckedAsScriptsAre) {
    const struct {
        const char* text;
        const char* messages;
    } rows[] = {
        {"strLength(\"ab\") < 2;\n\"a\" =~ \"a.*\";", ""},
        {"1 < \"2\";\nnosuch > 1;\n\"a\" =~ \"(\";\n3;\n\"a\" == \"b\"\n2 > 1;\n\"a\" =~ 1;",
         "1:3 K0201, 2:1 K0101, 3:9 K0501, 4:1 K0205, 5:11 K0002, 7:8 K0201"},
        {"\"a\" =~ \"\\\\d\";\n\"a\" =~ \"^a\";\n\"a\" =~ \"a$\";\n\"a\" =~ \"\\\\x41\";\n"
         "\"a\" =~ \"[\xC3\xA4]\";",
         "1:8 K0810, 2:8 K0810, 3:8 K0810, 4:8 K0810, 5:8 K0810"},
    };
    for (const auto& row : rows) EXPECT_EQ(checked(row.text, true), row.messages) << row.text;
    std::string many;
    for (int i = 0; i < 50; ++i) many += "nosuch" + std::to_string(i) + ";\n\"a\" =~ \"(\";\n";
    EXPECT_EQ(diagnosticsOf(many, true).size(), 20);
}

// Each script has three mistakes that do not depend on one another. All are told, and nothing else;
// but one about arguments is not when the mistake before it is among the parameters.
TEST(MessagesTest, ThreeMistakesGiveThreeErrors) {
    const struct {
        const char* text;
        const char* lines;
    } rows[] = {
        {"// count calls by zone\nLong count = 0\nString zone = \"local\";\nif (zone = \"local\") "
         "{\n    count = count + 1;\n}\nlogStdout(\"calls: \" + count + \"\\n\");",
         "2 4 7"},
        {"function Long minutes(Long seconds) {\n    return secnds / 60;\n}\nLong m = "
         "minutes(\"61\");\nlogStdout(longToStr(m) + \"\\n\";",
         "2 4 5"},
        {"Decimal price = 10.5;\nLong total = price * 3;\nString text = "
         "decimalToStr(total);\nwhile (total > 0 && price > 0.0) {\n    total = total - 1;\n}",
         "2 3 4"},
        {"Long a, b;\nString name = 'x';\nlogStdout(strLenght(name));", "1 2 3"},
        {"for (Long i = 0; i < 10; i = i + 1) {\n    logStdout(\"x\");\n}\nLong k = 1;\nk++;\nif "
         "(k == 2) logStdot(\"two\");",
         "1 5 6"},
        {"Long zone = 1;\nswitch (zone) {\n    case 1:\n        logStdout(\"a\");\n        zone = "
         "2;\n        break;\n    case \"2\":\n        logStdout(\"b\");\n        "
         "break;\n}\nelseif (zone == 3) logStdout(\"c\");",
         "5 7 11"},
        {"String path = \"C:\\temp\\\";\nLong n = 1;\nn = \"one\";\nlogStdout(longToStr(n, 2));",
         "1 3 4"},
        {"Long list[10];\nlist[0] = 1;\nLong sum = 0;\nLong i;\nfor (i = 0; i < 10; i += 1) {\n    "
         "sum = sum + list[i];\n}\nlogStdout(\"sum \" + longtoStr(sum));",
         "1 5 8"},
        {"int count = 0;\nString s = NULL;\nBool done = not true;", "1 2 3"},
        {"function String label(Long code {\n    return \"code \" + "
         "longToStr(code);\n}\nlogStdout(label(5, 6));\nDate d = \"2024-01-01\";",
         "1 5"},
        {"Long n = 3;\nif (n > 2) {\n    logStdout(\"big\");\nLong m = 4;\nm = m + "
         "\"1\";\nlogStdout(strSubstr(\"abc\", 1));",
         "5 6 2"},
        {"String s = \xE2\x80\x9C"
         "abc\xE2\x80\x9D"
         ";\nLong n = strToLong(s;\nn = n % 2.5;",
         "1 2 3"},
        {"function void show(String s) {\n    logStdout(s);\n}\nshow(\"a\")\nLong x = "
         "08a;\nshow(5);",
         "1 4 5"},
        {"Long h{};\nh{\"a\"} = 1;\nh[0] = 2;\nlogStdout(h{\"a\"});\nLong h = 3;", "3 4 5"},
        {"Decimal d = 1;\nString s = d;\nBool b = s == 3;\nd = \"x\";", "2 3 4"},
        {"do {\n    logStdout(\"x\");\n} while (true)\nLong n = foo(3);\nBool b = n;", "3 4 5"},
        {"const Long limit = 10;\nlimit = 11;\nLong v = limit +;\nlogStdout(limit);", "2 3 4"},
        {"if (true) then logStdout(\"x\");\nLong n = strlen(\"abc\");\nreturn "
         "n;\nlogStdout(\"end\");",
         "1 2 3"},
        {"regExprSwitch (\"0049\") {\n    case \"00(49\": logStdout(\"de\\n\"); break;\n    case "
         "49: logStdout(\"x\"); break;\n}\nLong n = True;",
         "2 3 5"},
        {"function Long twice(Long n) {\n    return n * \"2\";\n}\nString r = twice(3);\nLong q = "
         "10 / ;\nlogStdout(r);",
         "2 4 5"},
    };
    for (const auto& row : rows) {
        std::string lines;
        for (const SCR::Diagnostic& message : diagnosticsOf(row.text)) {
            if (message.severity < FND::Status::Error) continue;
            lines += (lines.empty() ? "" : " ") + std::to_string(message.place.line);
        }
        EXPECT_EQ(lines, row.lines) << row.text;
    }
}

TEST(MessagesTest, CommentsSwitchWarningsOff) {
    const std::string scripts[] = {
        "function Long f(Long n) {\n  if (n > 0) return 1;\n#}\nlogStdout(longToStr(f(1)));\n",
        "regExprSwitch (\"a\") {\n  case \"a.*\": break;\n#  case \"ab\": break;\n}\n",
        "function Long f(Long a, Long b) { return a + b; }\n#logStdout(longToStr(f(1, f(2, "
        "3))));\n",
        "Long n = 1;\n#n == 2;\nlogStdout(longToStr(n));\n",
    };
    for (std::string script : scripts) {
        const std::size_t mark = script.find('#');
        const std::string code = checked(script.erase(mark, 1)).substr(4);
        EXPECT_EQ(code.size(), 5) << code << script;
        script.insert(mark, "// kestrel: ignore K0899, " + code + "\n");
        EXPECT_EQ(checked(script), "");
    }
}

// The line that logged a message of a run, then the notes with their lines.
TEST(MessagesTest, RunsTellWhereAndWithWhat) {
    const struct {
        const char* text;
        const char* told;
    } rows[] = {
        {"strPad(\"a\\nb\",\n \"x\", -1,\n true);",
         "3: argument 1 is 'a\\nb'; argument 2 is 'x'; argument 3 is -1; argument 4 is true"},
        {"function Long f(Long n) {\n  tell(1.5, n, false);\n  return n;\n}\n"
         "function Long g(Long n) { return f(n); }\nLong i;\n"
         "for (i = 0; i < 3000; i = i + 1)\n  if (i == 2999) g(i);",
         "2: argument 1 is 1.500000; argument 2 is 2999; argument 3 is false; called from here 5; "
         "called from here 8"},
        {"function Long f(Long n) {\n  if (n == 0) return fails(strToDate(\"\"));\n"
         "  return f(n - 1);\n}\nf(3);",
         "2: argument 1 is an invalid Date; called from here, 3 times 3; called from here 5"},
        // Of two calls in a row of operands, the one that fails.
        {"function Long f(Long n) { return n; }\nfails(\nstrToDate(longToStr(f(1))));",
         "3: argument 1 is an invalid Date"},
        {"function f(Long n) {\n  stops(n);\n}\nf(7);", "2: argument 1 is 7; called from here 4"},
    };
    for (const auto& row : rows) {
        for (const SCR::CodeTier tier :
             {SCR::CodeTier::Tree, SCR::CodeTier::Portable, SCR::CodeTier::Native}) {
            SCR::Log log;
            SCR::Interpreter interpreter(&log);
            interpreter.codeTier(tier);
            SCR::HostExtension& host = *SCR::HostExtension::insert(interpreter, "host");
            host.function("tell",
                          [&](const FND::Decimal&, long, bool) { interpreter.logError("told"); });
            host.function("fails",
                          [&](const FND::DateTime&) {
                              interpreter.fail("failed");
                              return 1L;
                          })
                ->nullOnFailure(true);
            host.function("stops", [&](long) { interpreter.fail("stopped"); });
            ASSERT_TRUE(interpreter.compile(row.text)) << row.text;
            for (int turn = 0; turn < 2; ++turn) {
                interpreter.execute();
                ASSERT_EQ(interpreter.diagnostics().size(), 1) << row.text;
                const SCR::Diagnostic& message = interpreter.diagnostics().front();
                std::string told = std::to_string(message.place.line) + ":";
                for (const SCR::Diagnostic::Note& note : message.notes) {
                    told += (told.ends_with(':') ? " " : "; ") + note.text;
                    if (note.place.line > 0) told += ' ' + std::to_string(note.place.line);
                }
                EXPECT_EQ(told, row.told) << row.text;
            }
        }
    }
}
