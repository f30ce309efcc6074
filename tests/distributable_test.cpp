// What ties an execution to others or to the world: scripts and the findings in them.

#include "Test.h"
#include "scr/HostExtension.h"
#include "scr/Interpreter.h"

namespace {

// Depends on the local zone.
constexpr const char* zonedS =
    "Date d = MIN_DATE; String f = \"%F\"; d = dateAdd(d, 0, 0, 0, 1);\n"
    "Long n = dateDiff(d, d);\nf = dateToStr(d, f);\nf = dateToStr(d, \"%L\");\n"
    "d = strToDate(f, \"%Z\");";

// The findings as "line name", separated by "; ", with "END" first if that function reads a
// variable.
std::string findingsOf(const std::string& script, bool& isGood, const std::string& zone = "") {
    SCR::Interpreter interpreter(nullptr);
    EXPECT_TRUE(interpreter.timeZone(zone));
    SCR::HostExtension* const host = SCR::HostExtension::insert(interpreter, "host");
    host->function("fill", [](long& value) { value = 1; });
    host->variable<long>("amount");
    host->function("total", [](long& sum, long value) { sum += value; })
        ->effects(SCR::Effect::Totals);
    std::vector<SCR::Finding> findings;
    isGood = interpreter.check(script, findings);
    std::string text;
    for (const SCR::Finding& finding : findings) {
        std::string what(finding.text);
        const bool isEnd = what.starts_with("END reads ");
        if (isEnd) what.erase(0, std::string("END reads ").size());
        if (what.starts_with('`')) {
            what = what.substr(1, what.find('\'') - 1);
        } else {
            what.erase(what.find(' '));
        }
        text += (text.empty() ? "" : "; ") + std::to_string(finding.line) +
                (isEnd ? " END " : " ") + what;
    }
    return text;
}

TEST(Distributable, WhatIsCarriedIsFound) {
    const struct {
        const char *script, *findings;
    } rows[] = {
        // Variables that have a value before they are read.
        {"Long a = 1; Long b = a + 1; a = b;", ""},
        {"Long i; for (i = 0; i < 3; i = i + 1) { Long k = i; k = k + 1; }", ""},
        {"Long n; Bool f = amount > 1 and amount < 3; n = 1; amount = n;", ""},
        {"Long a; amount = a;", ""},  // never assigned
        {"Long a; a = 1;", ""},       // never read
        {"String s[]; Long n = strSplit(s, \"a b\", \" \"); String t = s[0];", ""},
        {"Long h{}; hashClear(h); h{\"a\"} = 1; h{\"a\"} = h{\"a\"} + 1;", ""},
        {"Long h{}; String k[]; hashClear(h); Long n = hashKeys(h, k); k[0] = k[1];", ""},
        {"fill(amount); amount = amount + 1;", ""},  // the host's own

        // Variables that may have none.
        {"Long a;\na = a + 1;", "2 a"},
        {"Long h{};\nh{\"x\"} = 1;", "2 h"},
        {"Long a[]; Long i[];\na[i[0]] = 1; i[0] = 2;", "2 a; 2 i"},
        {"Long h{}; Bool b =\nhashContains(h, \"x\"); h{\"x\"} = 1;", "2 h"},
        {"String k[]; Long h{};\nhashRemove(h, k[0]);", "2 h"},
        {"Long a;\nfill(a); amount = a;", "2 a"},  // perhaps it leaves the value
        {"Long i; for (i = 0; i < 3; i = i + 1) {\nLong kept; kept = kept + 1; }", "2 kept"},
        {"Decimal d; Long a;\nd = d + 1.0; amount = a; a = 1;", "2 d; 2 a"},
        {"File f; String s; if (fileIsOpen(f)) s = \"\";\nfileOpen(f, \"x\", \"r\");",
         "1 f; 2 fileOpen"},

        // Totals are combined; only END may read them.
        {"Long n; total(n, 1); function END { amount = n; n = 0; }", ""},
        {"Long n; function f { total(n, 1); } f();\namount = n;", "2 the"},
        {"Long n;\ntotal(n, n);", "2 the"},
        {"Long n; function BEGIN {\nn = 5; }\ntotal(n, 1);", "2 the"},
        {"Long n =\n0;\ntotal(n, 1);", "1 the"},

        // Looking up an element makes it, which the container as a whole shows.
        {"Long h{}; String k = \"x\"; Bool b =\nhashContains(h, k); Long n = h{k};", "2 h"},
        {"Long h{}; String k = \"x\"; Long n = h{k};", ""},
        {"Long h{}; String k = \"x\"; if (hashContains(h, k)) { Long n = h{k}; }", ""},
        {"Long h{}; String k = \"x\"; if (\nhashContains(h, k)) amount = 1; else amount = h{k};",
         "2 h"},
        {"Long h{}; String k = \"x\"; if (\nhashContains(h, k)) { k = \"y\"; amount = h{k}; }",
         "2 h"},
        {"Long h{}; String k = \"x\"; if (\nhashContains(h, k) == false) amount = h{k};", "2 h"},
        {"Long h{}; amount = h{\"a\"}; String k[]; function END {\nhashKeys(h, k); }", "2 END h"},

        // Branches.
        {"Long a; if (amount > 1) a = 1;\namount = a;", "2 a"},
        {"Long a; if (amount > 1) { a = 1; } else if (amount < 1) a = 2; else { a = 3; }\n"
         "amount = a;",
         ""},
        {"Long a; while ((a = amount) > 1) amount = a; amount = a;", ""},
        {"Long a; do a = 1; while (a > amount); amount = a;", ""},
        {"Long i; Long a; for (i = 0; i < 3; a = i) i = i + 1;\namount = a;", "2 a"},
        {"Long i; Long a; for (i = 0; i < 3 and amount > 1; i = i + 1) a = 1; a = i;", ""},
        {"Bool a; Bool b = amount > 1 and (a = true);\nb = a;", "2 a"},
        {"Long a; switch (amount) { case 1: case 2: a = 1; break; default: a = 2; break; }\n"
         "amount = a;",
         ""},
        {"Long a; switch (amount) { case 1: a = 1; break; case 2: a = 2; }\namount = a;", "2 a"},
        {"Long a; switch (amount) { case 1: a = 1; default: amount = 1; }\namount = a;", "2 a"},
        {"Long a; switch (amount) { case 1: a = 1; break; default: break; }\namount = a;", "2 a"},

        // Functions.
        {"function Long f(Long x) { Long y = x; y = y + x; return y; } amount = f(f(1));", ""},
        {"function Long f(Long x) { return x; } Long a = 1; Long b = f(a) + f(a + a);", ""},
        {"Long a; function Long f {\nreturn a; } amount = f(); a = 1;", "2 a"},
        {"Long a; function f { a = 1; } f(); amount = a;", ""},
        {"Long a; function Bool f { if (amount > 1) { a = 1; return true; } return false; }\n"
         "f(); amount = a;",
         "2 a"},
        {"Long a; function Bool f { if (amount > 1) { a = 1; return true; } a = 2; return false; }"
         "f(); amount = a;",
         ""},
        {"function Long f {\nLong n; n = n + 1; return n; } amount = f();", "2 n"},
        {"function Long f { Long n; n = n + 1; return n; }", ""},  // never called
        {"function Long f(Long n) { if (n < 1) { return 0; } return f(n - 1); } amount = f(3);",
         ""},

        // The functions that run before and after all records.
        {"Long t{}; function BEGIN { t{\"a\"} = 1; } amount = t{\"a\"};", ""},
        {"Long t; function f { t = t + 1; } function BEGIN { f(); } amount = t;", ""},
        {"Long n; function END {\nlogStdout(longToStr(n)); }\nn = n + 1;",
         "2 logStdout; 2 END n; 3 n"},
        {"Long n; function END { Long m = 0; n = 1; m = n; } n = 2;", ""},

        // The world.
        {"system(\"date\");\nString s = sysGetEnv(\"HOME\"); Long t = currentTimeInMillis();",
         "1 system; 2 sysGetEnv; 2 currentTimeInMillis"},
        {"function g {\nlogStdout(\"x\"); } function f { g(); }\nfunction BEGIN { f(); }",
         "2 logStdout"},
        {"logStdout(\nlongToStr(\n1)); logStdout(\"\");", "1 logStdout; 3 logStdout"},
        {"Date d = strToDate(\"2024-01-01\"); String s = dateToStr(d) + dateToStr(d, \"%H\");\n"
         "d = dateAdd(d, 1, 1, 1); d = strToDate(s, \"%F %z\");",
         ""},
        {zonedS, "1 dateAdd; 2 dateDiff; 3 dateToStr; 4 dateToStr; 5 strToDate"},
    };
    for (const auto& row : rows) {
        bool isGood = false;
        EXPECT_EQ(findingsOf(row.script, isGood), row.findings) << row.script;
        EXPECT_TRUE(isGood) << row.script;
    }
    bool isGood = true;
    EXPECT_EQ(findingsOf(zonedS, isGood, "UTC"), "");
    EXPECT_EQ(findingsOf("Long a; a = a + 1; b", isGood), "");
    EXPECT_FALSE(isGood);
}

}  // namespace
