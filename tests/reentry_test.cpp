// Calls that lose values, as `check` reports them.

#include "Script.h"

namespace {

// The warnings in `log`: the line of each and the names in it; "; " between two.
std::string shortened(std::string_view log) {
    std::string text;
    while (!log.empty()) {
        std::string_view line = log.substr(0, log.find('\n'));
        log.remove_prefix(line.size() + 1);
        text += text.empty() ? "" : "; ";
        if (!line.starts_with("WARNING: line ")) return text + std::string(line);
        line.remove_prefix(std::string_view("WARNING: line ").size());
        text += line.substr(0, line.find(':'));
        while (line.find('`') != std::string_view::npos) {
            line.remove_prefix(line.find('`') + 1);
            text += " " + std::string(line.substr(0, line.find('\'')));
        }
    }
    return text;
}

TEST(Reentry, LostValuesAreReportedAndNothingElse) {
    const std::string mx = "function Long mx(Long a, Long b) { if (a > b) return a; return b; }\n";
    const std::string add = "Long t; function Long add(Long a, Long b) { return a + b; }\n";
    const struct {
        std::string script;
        const char* warnings;
    } rows[] = {
        // Arguments that call the function again.
        {mx + "mx(3, mx(1, 2));", "2 mx mx a"},
        {mx + "mx(mx(1, mx(2, 3)),\n4);", "2 mx mx a"},
        {mx + "mx(3,\nlongAbs(2 + mx(1, 2)));", "3 mx mx a"},
        {mx + "function Long h { return mx(1, 2); } function Long g { return h(); }\nmx(3, g());",
         "3 mx g mx a"},
        {mx + "function Long h { return mx(1, 2); }\nmx(h(), 3); h(); mx(1, 2);", ""},
        {mx + "Bool b = mx(3, 1) > 2 and mx(1, 2) > mx(1, 3);", ""},
        {"function Long second(Long a, Long b) { return b; } second(1, second(2, 3));", ""},
        {"function Long third(Long a, Long b, Long c) { a = 1; return a + b + c; }\n"
         "third(1, third(1, 1, 1), 1); third(1, 2, third(1, 1, 1));",
         "2 third third b"},
        // The inner call stores the value that is already there.
        {add + "add(t, add(t, 1)); add(1, add(1, add(1, 1)));", ""},
        {add + "add(t,\nadd((t = 2), 1));\nadd(t + 0, add(t + 0, 1));\nadd(1, add(2, 1));",
         "3 add add a; 4 add add a; 5 add add a"},
        {add + "function Long more(Long n) { t = t + 1; return n; }\nadd(t, more(1) + add(t, 1));",
         "3 add add a"},

        // Variables that are read after a function has called itself.
        {"function Long f(Long n) { if (n <= 1) return 1; return n * f(n - 1); }", ""},
        {"function Long f(Long n) { if (n <= 1) return 1;\nreturn f(n - 1) * n; }", "2 n f"},
        {"function Long f(Long n) { return f(n - 1) +\nf(n - 2); }", "2 n f"},
        {"function Long gcd(Long a, Long b) { if (b == 0) return a; return gcd(b,\na % b); }",
         "2 a gcd"},
        {"function Long power(Long b, Long e) { if (e == 0) return 1; return power(b, e - 1) * b; "
         "}",
         ""},
        {"function Long f(Long n) { n = f(n - 1); return n; }", ""},
        {"function Long f(Long n) { if (n > 1) { f(n - 1); } else { n = 2; }\nreturn n; }",
         "2 n f"},
        {"function Long f(Long n) { switch (n) { case 1: f(2); break; case 2: n = 1; break;"
         "default: n = 3; }\nreturn n; }",
         "2 n f"},
        {"function Long f(Long n) { switch (n) { case 1: f(2); case 2: n = 1; break;"
         "default: n = 3; }\nreturn n; }",
         ""},
        {"function f(Long n) { Long own = n; f(n - 1); own = 2;\nlogStdout(longToStr(own)); }", ""},
        {"function f(Long n) { Long own = n; f(n - 1);\nlogStdout(longToStr(own)); }", "2 own f"},
        {"function f(Long n) { Long all; all = all + n; f(n - 1); logStdout(longToStr(all)); }",
         ""},
        {"function f(Long n) {\nwhile (n > 1) {\nn = n - 1;\nf(n); } }", "2 n f"},
        {"function Bool f(Long n) { do {\nn = n - 1;\n} while (n > 1 and f(n) or\nn == 2);"
         "return true; }",
         "2 n f; 4 n f"},
        {"function f(Long n) { Long i; for (i = 0;\ni < n;\ni = i + 1) {\nf(1); } }",
         "2 n f; 3 i f"},
        {"function f(String s) { String w[]; Long c = strSplit(w, s, \" \"); f(w[0]); f(\nw[1]); }",
         "2 w f"},

        // The order of evaluation: divisors first, and the right side of some comparisons.
        {"function Decimal f(Decimal n) { return n /\nf(n - 1); }", "1 n f"},
        {"function String f(String n) { if (f(\"x\") < n) return n; return \"\"; }", "1 n f"},
        {"function Date f(Date n) { if (n ==\nf(n)) return n; return n; }", ""},
        {"String h{}; function String f(String n, Long d) { h{\nn} = f(\"\", d - 1); return \"\"; "
         "}",
         "2 n f"},
    };
    for (const auto& row : rows) {
        Harness::MemoryLog log;
        SCR::Interpreter interpreter(&log);
        interpreter.check(row.script);
        std::string warnings;
        for (const SCR::Diagnostic& message : interpreter.diagnostics()) {
            if (message.code == "K0802") warnings += message.text + "\n";
        }
        EXPECT_EQ(shortened(warnings), row.warnings) << row.script;
    }
}

// The time is bounded for any script.
TEST(Reentry, GivesUpOnMonsters) {
    std::string script = "function f(Long n) {";
    for (int i = 0; i < 15000; ++i) script += "Long v" + std::to_string(i) + " = n;";
    for (int i = 0; i < 15000; ++i) script += "if (n > 1) { f(n - 1); v1 = v2; }";
    Harness::MemoryLog log;
    SCR::Interpreter interpreter(&log);
    EXPECT_TRUE(interpreter.check(script + "}"));
    EXPECT_NE(log.text.find("too many to be followed"), std::string::npos);
}

}  // namespace
