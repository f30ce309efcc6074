// Built-ins that work for long notice that the script has to stop.

#include "Script.h"
#include "scr/Extension.h"
#include "scr/FctDescr.h"
#include "scr/HostExtension.h"
#include "scr/Node.h"

namespace {

using SCR::Interpreter;

// Asks for an interruption, but does not notice it as the call of a host's function would.
struct StopNow final : SCR::VoidNode {
    explicit StopNow(Interpreter& running) : interpreter(running) {}
    void result() override { interpreter.interrupt(); }
    static SCR::Node* make(Interpreter& running, SCR::ParserStack& /*stack*/,
                           const SCR::FctDescr& /*descriptor*/) {
        return new StopNow(running);
    }
    Interpreter& interpreter;
};

struct StopExtension final : SCR::Extension {
    FND::String extensionName() const override { return "stop"; }
    SCR::Variable* variable(const FND::String& name) override {
        return name == "stopNow" ? &stopNow : nullptr;
    }
    SCR::FctDescr stopNow{"stopNow", SCR::TypeCode::Void, 0, 0, StopNow::make};
};

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
                            host.insertExtension(new StopExtension);
                            SCR::HostExtension::insert(host, "host")->function("reached", [] {
                                std::printf("reached");
                            });
                        }});
}

TEST(InterruptTest, WorkOnLongStringsAndManyElementsIsCounted) {
    const std::vector<std::string> rows = Harness::pieces(
        R"(r = strPad("", "b", 300000, false);|r = s;|fields[0] = s;|r = s + "b";|room = room + s;|)"
        R"(s = s + s + s;|r = strToUpper(s);|r = strToLower(s);|r = strStrToHexStr(s);|)"
        R"(r = strHexStrToStr(s);|n = strSearch(s, "b");|n = strSearch(s, "ab", 1);|)"
        R"(r = strMatch(s, "a+");|n = strSearchRegExpr(s, "b");|n = strSplit(fields, s, ",");|)"
        R"(n = strSplit(fields, strPad("", ",", 100000, true), ",");|b = s == same;|b = s < same;|)"
        R"(b = strStartsWith(s, same);|b = strEndsWith(s, same);|r = strStrip(s, STRIP_BOTH);|)"
        R"(r = substr(s, 1, 290000);|r = replace(s, 1, 1, "b");|h{s} = 1;|n = h{s};|)"
        R"(b = hashContains(h, s);|b = hashRemove(h, s);|n = hashKeys(h, fields);|hashClear(h);|)"
        R"(arrayClear(fields);|n = strToLong(s);|x = strToDecimal(s);|d = strToDate(s);|)"
        R"(r = dateToStr(d, s);|n = length(s);|logStdout(s);|switch (s) { case "a": n = 1; }|)"
        R"(regExprSwitch (s) { case "a*b": n = 1; })");
    for (const std::string& row : rows) {
        const Harness::ScriptRun run = interruptBefore(row);
        EXPECT_TRUE(run.compiled) << row << run.log;
        EXPECT_FALSE(run.ok) << row;
        EXPECT_EQ(run.output.find("reached"), std::string::npos) << row;
        EXPECT_NE(run.log.find("script stopped: interrupted"), std::string::npos) << row << run.log;
    }
}

// The processor time of the calling thread, or of another one.
double millisecondsOf(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return 1e3 * static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_nsec);
}

// An interruption during such work takes effect before the end of the work.
TEST(InterruptTest, WorkIsStoppedInItsMidst) {
#ifdef NDEBUG
    constexpr double bound = 5;
#else
    constexpr double bound = 100;
#endif
    const std::vector<std::string> rows = Harness::pieces(
        R"(r = s;|r = strToUpper(s);|b = s == same;|b = s < same;|b = strStartsWith(s, same);|)"
        R"(b = strEndsWith(s, same);|n = strSearch(s, part);|r = strMatch(s, "a+");|)"
        R"(n = strSearchRegExpr(s, "b+");|r = strStrip(s, STRIP_LEADING, "a");|)"
        R"(r = strStrip(s, STRIP_TRAILING, "a");|n = h{s};|b = hashContains(h, s);|)"
        R"(switch (s) { case "a": n = 1; }|regExprSwitch (s) { case "(aa)*b": n = 1; }|)"
        R"(n = strToLong(zeros);|n = strHexToLong(zeros);|x = strToDecimal(zeros);|)"
        R"(n = strToLong(blanks);|x = strToDecimal(blanks);)");
    Harness::MemoryLog log;
    SCR::Interpreter interpreter(&log);
    auto number = SCR::HostExtension::insert(interpreter, "host")->variable<long>("number");
    std::string script = R"(
        String s; String same; String part; String zeros; String blanks; String r;
        Long n; Bool b; Long h{}; Decimal x;
        if (length(s) == 0) {
            s = strPad("", "a", 40000000, true); same = s + ""; h{s} = 1;
            part = strPad("", "a", 20000000, true) + "b";
            zeros = strPad("", "0", 40000000, true); blanks = strPad("", " ", 40000000, true);
        } else { switch (number) { )";
    for (std::size_t i = 0; i < rows.size(); ++i) {
        script += "case " + std::to_string(i) + ": while (true) { " + rows[i] + " }\n";
    }
    ASSERT_TRUE(interpreter.compile(script + "} }")) << log.text;
    ASSERT_TRUE(interpreter.execute()) << log.text;
    clockid_t clock{};
    ASSERT_EQ(pthread_getcpuclockid(pthread_self(), &clock), 0);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        number = static_cast<long>(i);
        log.text.clear();
        double asked = 0;
        std::thread interrupter([&] {
            const double start = millisecondsOf(clock);
            while (millisecondsOf(clock) < start + 7) std::this_thread::yield();
            asked = millisecondsOf(clock);
            interpreter.interrupt();
        });
        EXPECT_FALSE(interpreter.execute()) << rows[i];
        const double stopped = millisecondsOf(clock);
        interrupter.join();
        EXPECT_LT(stopped - asked, bound) << rows[i];
        EXPECT_NE(log.text.find("script stopped: interrupted"), std::string::npos) << rows[i];
    }
}

TEST(InterruptTest, StoresThatAreStoppedLeaveNoHalves) {
    const struct {
        const char *store, *length;
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
