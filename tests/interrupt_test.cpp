// Built-ins that work for long notice that the script has to stop.

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>

#include "Script.h"
#include "scr/HostExtension.h"

namespace {

// Runs `setup`, asks for an interruption, and runs `work`, which holds no loop and no call.
Harness::ScriptRun interruptBefore(const std::string& work) {
    const std::string setup = R"(
        String s = strPad("", "a", 300000, true); String same = s + ""; String room = s + s; String r;
        String fields[]; String more[]; Long n; Long h{}; Decimal x; Date d; Bool b; File f; Nexid id;
        fields[20000] = "x"; n = strSplit(more, strPad("", ",", 20000, true), ",");
        for (n = 0; n < 20000; n = n + 1) h{longToStr(n)} = n;
        stopNow();
        )";
    return Harness::run(setup + work + "\nreached();", {.prepare = [](SCR::Interpreter& host) {
                            auto functions = std::make_unique<SCR::HostExtension>("stop");
                            functions->function("stopNow", [&host] { host.interrupt(); });
                            functions->function("reached", [] { std::printf("reached"); });
                            host.insertExtension(functions.release());
                        }});
}

TEST(InterruptTest, WorkOnLongStringsAndManyElementsIsCounted) {
    const char* const rows[] = {
        "r = strPad(\"\", \"b\", 300000, false);",
        "r = s;",
        "fields[0] = s;",
        "r = s + \"b\";",
        "room = room + s;",
        "s = s + s + s;",
        "r = strToUpper(s);",
        "r = strToLower(s);",
        "r = strStrToHexStr(s);",
        "r = strHexStrToStr(s);",
        "n = strSearch(s, \"b\");",
        "n = strSearch(s, \"ab\", 1);",
        "r = strMatch(s, \"a+\");",
        "n = strSearchRegExpr(s, \"b\");",
        "n = strSplit(fields, s, \",\");",
        "n = strSplit(fields, strPad(\"\", \",\", 100000, true), \",\");",
        "b = s == same;",
        "b = s < same;",
        "b = strStartsWith(s, same);",
        "b = strEndsWith(s, same);",
        "r = strStrip(s, STRIP_BOTH);",
        "r = substr(s, 1, 290000);",
        "r = replace(s, 1, 1, \"b\");",
        "h{s} = 1;",
        "n = h{s};",
        "b = hashContains(h, s);",
        "b = hashRemove(h, s);",
        "n = hashKeys(h, fields);",
        "hashClear(h);",
        "arrayClear(fields);",
        "n = strToLong(s);",
        "x = strToDecimal(s);",
        "d = strToDate(s);",
        "r = dateToStr(d, s);",
        "n = length(s);",
        "logStdout(s);",
        "switch (s) { case \"a\": n = 1; }",
        "regExprSwitch (s) { case \"a*b\": n = 1; }",
    };
    for (const char* const row : rows) {
        const Harness::ScriptRun run = interruptBefore(row);
        EXPECT_TRUE(run.compiled) << row << run.log;
        EXPECT_FALSE(run.ok) << row;
        EXPECT_EQ(run.output.find("reached"), std::string::npos) << row;
        EXPECT_NE(run.log.find("script stopped: interrupted"), std::string::npos) << row << run.log;
    }
}

TEST(InterruptTest, StoresThatAreStoppedLeaveNoHalves) {
    const struct {
        const char* store;
        const char* length;
    } rows[] = {{"r = s", "0"}, {"room = s", "0"}, {"room = room + s", "600000"}};
    for (const auto& row : rows) {
        const std::string store = row.store;
        const std::string target = store.substr(0, store.find(' '));
        const Harness::ScriptRun run = interruptBefore(
            store + "; function END { logStdout(longToStr(length(" + target + "))); }");
        EXPECT_EQ(run.output, row.length) << row.store << run.log;
    }
}

}  // namespace
