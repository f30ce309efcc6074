// Outcomes, handles of variables and functions, batches, programs and their replacement.

#include <thread>

#include "Script.h"
#include "scr/Batch.h"
#include "scr/ConditionList.h"
#include "scr/HostExtension.h"
#include "scr/Program.h"
#include "scr/ScriptHandle.h"

namespace {

using Harness::MemoryLog;
using Kind = SCR::Outcome::Kind;
using SCR::Interpreter;

FND::Decimal decimal(const char* text) { return FND::Decimal::fromString(text); }

// What an outcome tells, in one line.
FND::String told(const SCR::Outcome& outcome) {
    const char* const kinds[] = {"finished", "returned", "stopped", "failed", "invalid", "refused"};
    FND::String text = kinds[static_cast<int>(outcome.kind())];
    if (!outcome.limit().empty()) text += " " + outcome.limit();
    if (!outcome.function().empty()) text += " " + outcome.function();
    if (!outcome.diagnostic().text.empty()) text += ": " + outcome.diagnostic().text;
    return text;
}

// Has a statement that ends the script.
class LeaveExtension final : public SCR::Extension {
public:
    FND::String extensionName() const override { return "leave"; }
    SCR::Variable* variable(const FND::String& name) override {
        return name == "leave" ? &leave_ : nullptr;
    }

private:
    struct Leave final : SCR::VoidNode {
        std::int32_t execute() override { return returned; }
        void result() override {}
    };
    static SCR::Node* make(Interpreter&, SCR::ParserStack&, const SCR::FctDescr&) {
        return new Leave;
    }
    SCR::FctDescr leave_{"leave", SCR::TypeCode::Void, 0, 0, make};
};

struct Fixture {
    Fixture() {
        interpreter.insertExtension(new LeaveExtension);
        host->function("refuse", [](long what) -> long {
            if (what == 0) throw std::runtime_error("none");
            return what;
        });
        host->function("give", [](Interpreter& running) { running.fail("no more"); });
        host->function("call", [this](long what) { return onCall ? onCall(what) : 0L; });
    }
    MemoryLog log;
    Interpreter interpreter{&log};
    SCR::HostExtension* host = SCR::HostExtension::insert(interpreter, "host");
    std::function<long(long)> onCall;
};

TEST(Outcome, TellsHowACallEnded) {
    const struct {
        const char* script;
        const char* compiled;
        const char* executed;
    } rows[] = {
        {"Long a;", "finished", "finished"},
        {"leave(); refuse(0);", "finished", "returned"},
        {"Long a = ;", "invalid: ERROR: line 1: parse error",
         "refused: ERROR: no script is compiled"},
        {"\nwhile (true) {}", "finished",
         "stopped steps: ERROR: line 2: script stopped: limit `steps' of 1000 passed"},
        {"function f { f(); } f();", "finished",
         "stopped depth: ERROR: line 1: script stopped: limit `depth' of 50 passed"},
        {"refuse(0);", "finished", "failed refuse: ERROR: line 1: script stopped: refuse: none"},
        {"give();", "finished", "failed give: ERROR: line 1: script stopped: give: no more"},
        {"function BEGIN { refuse(0); }",
         "failed refuse: ERROR: line 1: script stopped: refuse: none",
         "refused: ERROR: no script is compiled"},
        {"function END { refuse(0); }", "finished", "finished"},
    };
    for (const auto& row : rows) {
        Fixture fixture;
        fixture.interpreter.limits({.steps = 1000, .depth = 50});
        EXPECT_EQ(told(fixture.interpreter.tryCompile(row.script)), row.compiled) << row.script;
        EXPECT_EQ(told(fixture.interpreter.tryExecute()), row.executed) << row.script;
        const bool fails = FND::String(row.script).find("END") != FND::String::npos;
        EXPECT_EQ(fixture.interpreter.tryFinish().function(), fails ? "refuse" : "") << row.script;
    }
}

TEST(Outcome, OfQueriesConditionsAndCallsWithinCalls) {
    Fixture fixture;
    Interpreter& interpreter = fixture.interpreter;
    EXPECT_EQ(told(interpreter.tryQuery().outcome()), "refused: ERROR: no query is compiled");
    EXPECT_EQ(interpreter.tryCompileQuery("call(1) == 1 +").kind(), Kind::Invalid);
    ASSERT_TRUE(interpreter.tryCompile("Long n = call(0);"));
    ASSERT_TRUE(interpreter.tryCompileQuery("refuse(n) == 1"));
    EXPECT_EQ(interpreter.tryQuery().outcome().function(), "refuse");
    SCR::ConditionList conditions(interpreter);
    EXPECT_EQ(conditions.tryCompile("1;").kind(), Kind::Invalid);
    ASSERT_TRUE(conditions.tryCompile("n == 0; refuse(n) == 2;"));
    EXPECT_TRUE(*conditions.tryHolds(0));
    EXPECT_EQ(conditions.tryAll().outcome().function(), "refuse");
    EXPECT_EQ(*conditions.tryFirst(), 0);
    // What a call within a call comes to does not touch the outer one, and it cannot compile.
    FND::String inner;
    fixture.onCall = [&](long) {
        inner = told(interpreter.tryCompile("")) + ", " + told(interpreter.tryQuery().outcome());
        return 5L;
    };
    EXPECT_EQ(told(interpreter.tryExecute()), "finished");
    EXPECT_EQ(inner,
              "refused: ERROR: can not compile while the interpreter executes, "
              "failed refuse: ERROR: script stopped: refuse: none");
    ASSERT_TRUE(interpreter.tryCompile(""));
    EXPECT_EQ(conditions.tryAll().outcome().kind(), Kind::Refused);
}

template <class T>
void roundTrip(Interpreter& interpreter, const char* name, const T& value) {
    auto handle = interpreter.variable<T>(name);
    ASSERT_TRUE(handle) << told(handle.outcome());
    EXPECT_EQ(told(handle.set(value)), "finished") << name;
    EXPECT_EQ(*handle.get(), value) << name;
}

TEST(ScriptVariable, ExchangesEveryType) {
    Fixture fixture;
    Interpreter& interpreter = fixture.interpreter;
    fixture.host->variable<long>("shared", 3);
    ASSERT_TRUE(interpreter.compile(
        "Long n; Bool b; String s; Decimal d; Date t; Nexid x; Long all[]; Decimal by{};"
        "String lists{}[]; Bool flags[]; const Long C = 4; function Long f(Long p) { return p; }"
        "Nxid a; n = n + 1;"));
    roundTrip(interpreter, "n", -5L);
    roundTrip<short>(interpreter, "n", 7);
    roundTrip(interpreter, "b", true);
    roundTrip<FND::String>(interpreter, "s", "a text that is no short one");
    roundTrip<std::string_view>(interpreter, "s", "view");
    roundTrip(interpreter, "d", decimal("1.25"));
    roundTrip(interpreter, "d", 0.1);
    roundTrip(interpreter, "t", FND::DateTime(1000));
    roundTrip<std::optional<FND::Decimal>>(interpreter, "d", std::nullopt);
    roundTrip<std::optional<FND::DateTime>>(interpreter, "t", std::nullopt);
    roundTrip<std::optional<FND::DateTime>>(interpreter, "t", FND::DateTime(5));
    roundTrip<std::optional<FND::Identifier>>(interpreter, "x", std::nullopt);
    roundTrip(interpreter, "all", std::vector<int>{3, 1, 2});
    roundTrip(interpreter, "all", std::vector<long>{});
    roundTrip(interpreter, "flags", std::vector<bool>{true, false});
    roundTrip(interpreter, "by", std::unordered_map<FND::String, double>{{"a", 1.5}, {"", 2}});
    roundTrip(
        interpreter, "lists",
        std::unordered_map<FND::String, std::vector<FND::String>>{{"k", {"v", "w"}}, {"e", {}}});
    EXPECT_EQ(*interpreter.variable<long>("host::shared").get(), 3);
    EXPECT_EQ(*interpreter.variable<long>("C").get(), 4);

    auto n = interpreter.variable<long>("n");
    ASSERT_TRUE(n.set(300));
    const struct {
        SCR::Outcome outcome;
        const char* message;
    } refused[] = {
        {interpreter.variable<FND::String>("n").outcome(), "`n' is Long, not String"},
        {interpreter.variable<long>("lists").outcome(), "`lists' is String{}[], not Long"},
        {interpreter.variable<std::vector<bool>>("all").outcome(), "`all' is Long[], not Bool[]"},
        {interpreter.variable<long>("none").outcome(), "there is no variable `none'"},
        {interpreter.variable<long>("f").outcome(), "`f' is a function"},
        {interpreter.variable<long>("a").outcome(), "`a' is Nxid, not Long"},
        {interpreter.variable<signed char>("n").get().outcome(),
         "`n': the number does not fit the integer type"},
        {interpreter.variable<unsigned long>("n").set(~0UL), "`n': the number does not fit a Long"},
        {interpreter.variable<long>("C").set(5), "`C': it is a constant"},
        {interpreter.variable<double>("d").set(0.0 / 0.0),
         "`d': no Decimal has the number's value"},
        {SCR::ScriptVariable<long>().set(1), ""},
    };
    for (const auto& row : refused) {
        EXPECT_EQ(row.outcome.kind(), Kind::Refused) << row.message;
        if (*row.message == '\0') continue;
        EXPECT_EQ(told(row.outcome), FND::String("refused: ERROR: ") + row.message);
    }
    // A Decimal of more digits than a double has is read only by who asks for it.
    ASSERT_TRUE(interpreter.variable<FND::Decimal>("d").set(decimal("0.1234567890123456789")));
    EXPECT_FALSE(interpreter.variable<double>("d").get());
    EXPECT_DOUBLE_EQ(interpreter.variable<SCR::Rounded>("d").get()->value, 0.12345678901234568);
    // The limit of elements holds.
    interpreter.limits({.elements = 2});
    EXPECT_FALSE(interpreter.variable<std::vector<long>>("all").set({1, 2, 3}));
    // A handle dies with its script, and so with its interpreter.
    EXPECT_TRUE(interpreter.execute());
    EXPECT_EQ(*n.get(), 301);
    ASSERT_TRUE(interpreter.compile("Long n;"));
    EXPECT_EQ(told(n.get().outcome()), "refused: ERROR: the script of this handle is gone");
    EXPECT_FALSE(interpreter.compile("Long n"));
    EXPECT_FALSE(interpreter.variable<long>("n"));
    {
        Interpreter other(nullptr);
        ASSERT_TRUE(other.compile("Long n;"));
        n = other.variable<long>("n");
        EXPECT_TRUE(n);
    }
    EXPECT_FALSE(n.set(1));
}

TEST(ScriptFunction, CallsAndChecks) {
    Fixture fixture;
    Interpreter& interpreter = fixture.interpreter;
    interpreter.limits({.steps = 1000, .depth = 20});
    ASSERT_TRUE(interpreter.compile(
        "function Decimal rate(Long n, Decimal by) { if (n < 0) { give(); } "
        "return longToDecimal(n) * by; }"
        "function String join(String parts[], String with) { String all; Long i; all = \"\";"
        "  for (i = 0; i < size(parts); i = i + 1) { all = all + parts[i] + with; } return all; }"
        "function Long deep(Long n) { return call(n); }"
        "function loop { while (true) {} } function Long none { while (false) { return 1; } }"));
    const auto rate = interpreter.function<FND::Decimal(int, double)>("rate");
    EXPECT_EQ(*rate(3, 1.5), decimal("4.5"));
    EXPECT_EQ(told(rate(-1, 1.5).outcome()),
              "failed give: ERROR: line 1: script stopped: give: no more");
    const auto join =
        interpreter.function<FND::String(const std::vector<std::string_view>&, std::string_view)>(
            "join");
    EXPECT_EQ(*join({"a", "b"}, "-"), "a-b-");
    EXPECT_EQ(interpreter.function<void()>("loop")().limit(), "steps");
    EXPECT_EQ(*interpreter.function<long()>("none")(), 0);
    EXPECT_EQ(told(interpreter.function<long(long, FND::Decimal)>("rate").outcome()),
              "refused: ERROR: the function is `Decimal rate(Long, Decimal)', not "
              "`Long rate(Long, Decimal)'");
    EXPECT_FALSE(interpreter.function<FND::Decimal(long)>("rate"));
    EXPECT_FALSE(interpreter.function<FND::Decimal(long)>("rates"));
    EXPECT_FALSE(interpreter.function<void(long)>("deep"));
    // From a function of the host, as deep as the limit allows.
    const auto deep = interpreter.function<long(long)>("deep");
    fixture.onCall = [&](long n) { return n == 0 ? 7 : *deep(n - 1); };
    EXPECT_EQ(*deep(5), 7);
    EXPECT_EQ(deep(500).outcome().limit(), "");
    EXPECT_NE(fixture.log.text.find("limit `depth'"), FND::String::npos);
}

// Code keeps variables in registers; what a log does to them meanwhile is seen all the same.
TEST(ScriptFunction, IsCalledByALog) {
    constexpr const char* texts[] = {
        "for (i = 0; i < 2000; i = i + 1) { if (i < 800) { x = i; n[0] = i; } n[i] = 1; }",
        ("for (i = 0; i < 2000; i = i + 1) { for (j = 0; j < 3; j = j + 1) { x = i; } "
         "h{longToStr(i)} = 1; }"),
        "while (i < 2000) { i = i + 1; x = i; if (n[i] == 7) { j = 1; } }"};
    struct CallingLog final : SCR::Log {
        void log(const FND::String& /*text*/, FND::Status::Severity /*severity*/) override {
            if (call) call();
        }
        std::function<void()> call;
    };
    for (const char* const text : texts) {
        std::string values;
        for (const auto tier :
             {SCR::CodeTier::Tree, SCR::CodeTier::Portable, SCR::CodeTier::Native}) {
            CallingLog log;
            SCR::Interpreter interpreter(&log);
            interpreter.codeTier(tier);
            SCR::Limits limits;
            limits.elements = 1000;
            interpreter.limits(limits);
            ASSERT_TRUE(
                interpreter.compile(std::string("Long x; Long i; Long j; Long n[]; Long h{};"
                                                "function mark { x = -1; i = 3000; }") +
                                    text));
            auto mark = interpreter.function<void()>("mark");
            log.call = [&] { mark(); };
            EXPECT_TRUE(interpreter.execute());
            log.call = nullptr;
            long x = 0;
            EXPECT_TRUE(interpreter.variable<long>("x").get(x));
            values += std::to_string(x) + " ";
        }
        EXPECT_EQ(values, "-1 -1 -1 ") << text;
    }
}

TEST(ScriptHandle, RefusesASecondThread) {
    Fixture fixture;
    Interpreter& interpreter = fixture.interpreter;
    ASSERT_TRUE(
        interpreter.compile("String s = \"x\"; function Long f(Long n) { return n; } call(1);"));
    const auto s = interpreter.variable<FND::String>("s");
    const auto f = interpreter.function<long(long)>("f");
    int refusals = 0;
    fixture.onCall = [&](long) {
        std::thread([&] {
            SCR::ConditionList conditions(interpreter);
            bool value = false;
            refusals = !s.get() + !s.set("y") + !f(1) + !interpreter.tryCompile("") +
                       !interpreter.compile("") + !interpreter.execute() +
                       !interpreter.tryExecute() + !interpreter.finish() +
                       !interpreter.evaluateQuery(value) + !interpreter.variable<long>("s") +
                       !interpreter.executeBatch({}, 1) + !conditions.compile("true;");
        }).join();
        return 0L;
    };
    EXPECT_TRUE(interpreter.execute());
    EXPECT_EQ(refusals, 12);
    EXPECT_EQ(fixture.log.text, "");
    // Two threads that do not care: each call is made or refused.
    fixture.onCall = nullptr;
    std::atomic<long> done = 0;
    const auto work = [&] {
        for (int i = 0; i < 1000; ++i)
            done += bool(s.set("a text that is no short one")) + bool(f(i));
    };
    std::thread other(work);
    work();
    other.join();
    EXPECT_GE(done, 1000);
}

TEST(Batch, ExecutesRecordsAndTellsWhichFailed) {
    Fixture fixture;
    Interpreter& interpreter = fixture.interpreter;
    interpreter.limits({.steps = 100});
    ASSERT_TRUE(interpreter.compile(
        "Long n; String name; Decimal price; String shown; Long i; Bool odd; const Long C = 1;"
        "odd = false; shown = name + \":\" + longToStr(n); if (n == 1) { leave(); }"
        "for (i = 0; i < n; i = i + 1) { odd = odd == false; } price = price * 2.0;"));
    std::vector<long> n{0, 1, 2, 80, 1000, 3};
    const std::string_view names[] = {"a", "b", "c", "d", "e", "f"};
    std::vector<FND::Decimal> prices(6, FND::Decimal(1));
    std::vector<FND::String> shown(6);
    bool odd[6] = {};
    const SCR::Column columns[] = {SCR::input("n", n),          SCR::input("name", names),
                                   SCR::input("price", prices), SCR::output("price", prices),
                                   SCR::output("shown", shown), SCR::output("odd", odd)};
    auto batch = interpreter.executeBatch(columns, 6);
    EXPECT_EQ(batch.limit(), "steps");
    EXPECT_EQ(batch.record(), 4U);
    batch = interpreter.executeBatch(columns, 6, 5);
    EXPECT_TRUE(batch);
    EXPECT_EQ(batch.record(), 6U);
    EXPECT_EQ(shown, (std::vector<FND::String>{"a:0", "b:1", "c:2", "d:80", "", "f:3"}));
    EXPECT_EQ(prices[1], FND::Decimal(1));
    EXPECT_EQ(prices[5], FND::Decimal(2));
    EXPECT_TRUE(odd[5]);
    const struct {
        SCR::Column column;
        const char* message;
    } refused[] = {
        {SCR::input("m", n), "column `m': there is no such variable"},
        {SCR::input("name", n), "column `name': the variable is String, not Long"},
        {SCR::input("C", n), "column `C': it is a constant"},
        {SCR::output("n", std::span(n).first(2)), "column `n': it has 2 of 6 values"},
    };
    for (const auto& row : refused) {
        EXPECT_EQ(told(interpreter.executeBatch({&row.column, 1}, 6)),
                  FND::String("refused: ERROR: ") + row.message);
    }
}

TEST(Program, IsSharedByInterpreters) {
    const FND::String text =
        "Long n; String s; n = n + 1; regExprSwitch (s) { case \"a.*\": n = n + 10; break; case "
        "\"b+\": n "
        "= n + 20; }"
        "n = n + strSearchRegExpr(s, \"x[yz]\", 0); function BEGIN { n = 100; }";
    const SCR::Program program(text + " Long unused;", [](Interpreter& interpreter) {
        SCR::HostExtension::insert(interpreter, "host")->constant("A", "a");
    });
    ASSERT_TRUE(program) << told(program.outcome());
    EXPECT_FALSE(program.diagnostics().empty());
    EXPECT_FALSE(program.findings().empty());
    const auto work = [&](const char* s, long expected) {
        Interpreter interpreter(program);
        ASSERT_TRUE(interpreter.isValid());
        EXPECT_TRUE(interpreter.variable<FND::String>("s").set(s));
        for (int i = 0; i < 3; ++i) EXPECT_TRUE(interpreter.execute());
        EXPECT_EQ(*interpreter.variable<long>("n").get(), expected) << s;
    };
    std::thread other(work, "axy", 100 + 3 * (1 + 10 + 1));
    work("bb", 100 + 3 * (1 + 20 - 1));
    other.join();

    // One that had another constant builds its own automaton.
    const auto shows = [](const char* pattern) {
        return [pattern](Interpreter& interpreter) {
            SCR::HostExtension::insert(interpreter, "host")->constant("P", pattern);
        };
    };
    const SCR::Program named(
        "Long n; regExprSwitch (\"ab\") { case P: n = 1; break; default: n = 2; }", shows("a."));
    Interpreter differs(nullptr);
    shows("b.")(differs);
    ASSERT_TRUE(differs.compile(named) && differs.execute());
    EXPECT_EQ(*differs.variable<long>("n").get(), 2);
    EXPECT_TRUE(differs.compile("Long m;")) << "and leaves the program";

    const SCR::Program broken("Long n");
    EXPECT_EQ(broken.outcome().kind(), Kind::Invalid);
    EXPECT_FALSE(Interpreter(broken).isValid());
    EXPECT_EQ(Interpreter(nullptr).tryCompile(SCR::Program()).kind(), Kind::Refused);
}

TEST(Live, ReplacesProgramsAndKeepsState) {
    const FND::String declarations = "Long total; Long rows[]; Long by{}[];";
    const FND::String step =
        declarations + "total = total + 1; rows[total] = total; by{\"k\"}[1] = total;";
    const Harness::StdoutCapture capture;
    {
        SCR::Live live(
            SCR::Program(step + "function END { logStdout(\"end \" + longToStr(total)); }"),
            {"total", "rows", "by", "none"});
        SCR::LiveRunner runner(live, nullptr);
        for (int i = 0; i < 2; ++i) EXPECT_TRUE(runner.execute());
        EXPECT_EQ(live.replace(SCR::Program("total = ")).kind(), Kind::Invalid);
        EXPECT_TRUE(runner.execute());
        EXPECT_EQ(runner.version(), 1U);
        // Compiles, but does not start.
        ASSERT_TRUE(live.replace(
            SCR::Program("function BEGIN { while (true) {} }",
                         [](Interpreter& interpreter) { interpreter.limits({.steps = 10}); })));
        EXPECT_EQ(runner.refresh().limit(), "steps");
        EXPECT_TRUE(runner.execute());
        EXPECT_EQ(runner.version(), 1U);
        ASSERT_TRUE(
            live.replace(SCR::Program(step + "function BEGIN { total = 0; } String rest;"
                                             "if (total != by{\"k\"}[1]) { total = -1; }")));
        EXPECT_TRUE(runner.execute());
        EXPECT_EQ(*runner.interpreter()->variable<long>("total").get(), 5);
        EXPECT_EQ(*runner.interpreter()->variable<std::vector<long>>("rows").get(),
                  (std::vector<long>{0, 1, 2, 3, 4, 5}));
        // Another type starts anew.
        ASSERT_TRUE(live.replace(SCR::Program("String total;")));
        EXPECT_TRUE(runner.execute());
        EXPECT_EQ(*runner.interpreter()->variable<FND::String>("total").get(), "");
    }
    EXPECT_EQ(capture.text(), "end 4");
    SCR::Live empty{SCR::Program()};
    EXPECT_EQ(SCR::LiveRunner(empty, nullptr).execute().kind(), Kind::Refused);
}

}  // namespace
