// What observed scripts tell: counts, where they are, and their steps.

#include "scr/Observation.h"
#include "Script.h"
#include "scr/Batch.h"
#include "scr/CompareInterface.h"
#include "scr/ConditionList.h"
#include "scr/HostExtension.h"
#include "scr/Node.h"
#include "scr/ScriptHandle.h"
#include "scr/code/Hot.h"

namespace {

using SCR::Observation;
using SCR::ObservedSite;

// Where only counts are asked for, code puts off to tell its position.
constexpr struct Way {
    SCR::CodeTier tier;
    unsigned aspects;
} waysS[] = {{SCR::CodeTier::Tree, Observation::positionsCM},
             {SCR::CodeTier::Portable, Observation::positionsCM},
             {SCR::CodeTier::Portable, Observation::countsCM},
             {SCR::CodeTier::Native, Observation::positionsCM},
             {SCR::CodeTier::Native, Observation::countsCM}};

// "LINE:COUNT" for each site; conditions with both counts.
std::string countsOf(const Observation& observation) {
    std::string text;
    for (std::size_t site = 1; site < observation.sites().size(); ++site) {
        const ObservedSite& at = observation.sites()[site];
        constexpr const char* kinds = "fsic";
        text += std::string(text.empty() ? "" : " ") + kinds[static_cast<int>(at.kind)] +
                std::to_string(at.line) + ":" + std::to_string(observation.reached(site).all());
        if (at.kind == ObservedSite::Kind::Condition) {
            text += "/" + std::to_string(observation.otherwise(site).all());
        }
    }
    return text;
}

TEST(Observation, CountsWhatIsReachedInEveryTier) {
    const struct {
        std::string script, counts;
        bool isStopped = false;
    } rows[] = {
        {"Long a;\na =\n 1; a = 2;", "s2:1 s3:1"},
        {"Long a = 3;\nif (a > 1)\na = 1;\nelse\na = 2;", "s1:1 s2:1 i2:1/0 s3:1 s5:0"},
        {"Long a;\nwhile (a < 3) {\na = a + 1;\nif (a == 2) a = 2;\n}",
         "s2:1 i2:3/1 s3:3 s4:3 i4:1/2 s4:1"},
        {"Long i;\nfor (i = 0; i < 4; i = i + 1)\n{ }\ndo {\ni = i - 1;\n} while (i > 0);",
         "s2:1 i2:4/1 s4:1 s5:4 i6:3/1"},
        {"function Long f(Long a) {\nif (a > 1) { return 1; }\nreturn 2;\n}\n"
         "f(1); f(2);\nf(3);",
         "f1:3 s2:3 i2:2/1 s2:2 s3:1 s5:1 s5:1 s6:1"},
        // A label that another one falls into is not chosen.
        {"Long i;\nfor (i = 0; i < 6; i = i + 1) switch (i) {\ncase 0, 1:\ncase 2: i = i + 0;\n"
         "case 3: i = i;\nbreak;\ndefault: i = i;\n}",
         "s2:1 i2:6/1 s2:6 c3:1 c3:1 c4:1 s4:3 c5:1 s5:4 c7:2 s7:2"},
        {"function Long f(String t) {\nregExprSwitch (t) {\ncase \"a.*\": if (t == \"ab\") "
         "return 1;\ncase \"b\": return 2; }\nreturn 3;\n}\nf(\"ab\"); f(\"ac\"); f(\"c\");",
         "f1:3 s2:3 c3:2 s3:2 i3:1/1 s3:1 c4:0 s4:1 s5:1 s7:1 s7:1 s7:1"},
        // What a stopped script did not reach is not counted, however deep it was.
        {"function f(Long a) {\nwhile (true) {\na = a + 1;\n}\na = 7;\n}\nfunction g {\n"
         "if (true) {\nf(1);\nf(2);\n}\nf(3);\n}\ng();\ng();",
         "f1:1 s2:1 i2:99/0 s3:99 s5:0 f7:1 s8:1 i8:1/0 s9:1 s10:0 s12:0 s14:1 s15:0", true},
        // An argument calls the function as well.
        {"Long n;\nfunction Long in(Long a) {\nreturn a + 1;\n}\nfunction Long out(Long a) {\n"
         "return in(a);\n}\nin(0);\nwhile (true) {\nn = in(out(n));\nn = n + 1;\n}",
         "f2:50 s3:50 f5:25 s6:25 s8:1 s9:1 i9:25/0 s10:25 s11:24", true},
        // The first turn has not come from the condition.
        {"Long a;\nfunction f {\na = a + 1;\ndo {\nif (a < 50) a = a + 1;\n} while (a > 0);\n"
         "a = 7;\n}\nf();\na = 8;",
         "f2:1 s3:1 s4:1 s5:99 i5:49/50 s5:49 i6:99/0 s7:0 s9:1 s10:0", true},
    };
    for (const auto& row : rows) {
        for (const Way& way : waysS) {
            SCOPED_TRACE(row.script + "\ntier " + std::to_string(static_cast<int>(way.tier)));
            SCR::Code::Hot::makeAfter(1);
            Observation observation(way.aspects | Observation::countsCM);
            const Harness::ScriptRun run =
                Harness::run(row.script, {.prepare = [&](SCR::Interpreter& interpreter) {
                                 SCR::Limits limits;
                                 limits.steps = 100;
                                 interpreter.limits(limits);
                                 interpreter.codeTier(way.tier);
                                 interpreter.observe(&observation);
                             }});
            EXPECT_EQ(run.ok, !row.isStopped) << run.log;
            EXPECT_EQ(countsOf(observation), row.counts);
        }
    }
}

TEST(Observation, TellsWhereTheScriptIs) {
    const std::string script =
        "Long n;\nfunction inner(Long a) {\nlook();\n}\nfunction Long outer(Long a) {\n"
        "inner(a);\nlook();\nreturn a;\n}\n"
        "for (n = 0; n < 3; n = n + outer(1)) {\nlook();\n}\nlook();";
    for (const Way& way : waysS) {
        SCR::Code::Hot::makeAfter(1);
        Observation observation(way.aspects);
        std::string seen;
        const auto look = [&] {
            std::vector<std::size_t> stack;
            observation.where(stack);
            for (const std::size_t site : stack) {
                seen += std::to_string(observation.sites()[site].line) + " ";
            }
            seen += "; ";
        };
        const Harness::ScriptRun run =
            Harness::run(script, {.prepare = [&](SCR::Interpreter& interpreter) {
                             auto extension = std::make_unique<SCR::HostExtension>("look");
                             extension->function("look", look);
                             ASSERT_TRUE(interpreter.insertExtension(extension.release()));
                             interpreter.codeTier(way.tier);
                             interpreter.observe(&observation);
                         }});
        EXPECT_TRUE(run.ok) << run.log;
        std::string turn = "11 ; 3 6 10 ; 7 10 ; ";
        EXPECT_EQ(seen, turn + turn + turn + "13 ; ");
        std::vector<std::size_t> stack;
        observation.where(stack);
        EXPECT_TRUE(stack.empty());
    }
}

class Steps final : public Observation {
public:
    Steps() : Observation(eventsCM) { listen(true); }
    void statement(std::size_t site) override { tell("", site); }
    void condition(std::size_t site, bool holds) override { tell(holds ? "+" : "-", site); }
    void chosen(std::size_t site) override { tell("case ", site); }
    void value(std::size_t site, const FND::String& value) override { tell("", site, "=" + value); }
    void entered(std::size_t site) override { tell(">", site); }
    void left(std::size_t site) override { tell("<", site); }
    std::string text;

private:
    void tell(const std::string& before, std::size_t site, const std::string& after = "") {
        text += before + sites()[site].text + after + "|";
    }
};

TEST(Observation, TellsEachStep) {
    const struct {
        std::string script, steps;
    } rows[] = {
        {"Long a = 2; String s; s = \"x\\ny\";", ">|Long a = 2|a=2|s = \"x\\ny\";|s=\"x\\ny\"|"},
        {"Decimal d = 2.50; Bool b = d > 1.0 and d < 2.0;",
         ">|Decimal d = 2.50|d=2.5|Bool b = d > 1.0 and d < 2.0|d=2.5|d > 1.0=true|d=2.5|"
         "d < 2.0=false|b=false|"},
        {"function Long f(Long n) { return n + 1; } if (f(1) == 2) f(2);",
         ">|if (f(1) == 2)|n=1|>f|return n + 1|n + 1=2|<f|f(1)=2|+f(1) == 2|f(2);|n=2|>f|"
         "return n + 1|n + 1=3|<f|"},
        {"switch (2) { case 1, 2: case 3: break; }", ">|switch (2)|2=2|case 2|"},
    };
    for (const auto& row : rows) {
        Steps steps;
        const Harness::ScriptRun run = Harness::run(
            row.script,
            {.prepare = [&](SCR::Interpreter& interpreter) { interpreter.observe(&steps); }});
        EXPECT_TRUE(run.ok) << run.log;
        EXPECT_EQ(steps.text, row.steps) << row.script;
    }
}

// However a host calls the script, and also when that is stopped: once, and when the last message
// has been told.
TEST(Observation, TellsTheEndOfEachRun) {
    struct Calls final : Observation {
        Calls() : Observation(stepsCM) { listen(true); }
        void entered(std::size_t /*site*/) override { text += ">"; }
        void left(std::size_t /*site*/) override { text += "<"; }
        void message(const SCR::Diagnostic& /*diagnostic*/) override { text += "!"; }
        void ended() override { text += "."; }
        std::string text;
    } calls;
    struct List final : SCR::CompareInterface {
        bool condition(SCR::BoolNode* given) override {
            node.reset(given);
            return true;
        }
        bool comparePattern(SCR::Interpreter&, SCR::ParserStack&) override { return false; }
        std::unique_ptr<SCR::BoolNode> node;
    } list;
    Harness::MemoryLog log;
    SCR::Interpreter interpreter(&log);
    SCR::Limits limits;
    limits.steps = 100;
    interpreter.limits(limits);
    interpreter.codeTier(SCR::CodeTier::Tree);
    interpreter.observe(&calls);
    ASSERT_TRUE(
        interpreter.compile("Bool stops; function Bool f { while (stops) {} return true; } f();"
                            "function END { logStdout(\"\"); }"));
    const auto stops = interpreter.variable<bool>("stops");
    const auto f = interpreter.function<bool()>("f");
    SCR::ConditionList conditions(interpreter);
    ASSERT_TRUE(conditions.compile("f() or f();"));
    ASSERT_TRUE(interpreter.compileConditions("f();", list));
    bool value = false;
    const struct {
        const char* name;
        std::function<bool()> call;
        const char* whole = "><.";
        const char* stopped = ">!.";
    } rows[] = {
        {"execute", [&] { return interpreter.execute(); }, ">><.", ">>!."},
        {"batch", [&] { return bool(interpreter.executeBatch({}, 1)); }, ">><.", ">>!."},
        {"extend", [&] { return interpreter.extend("f();"); }, ".>><.", ".>>!."},
        {"function", [&] { return bool(f()); }, ">."},
        {"query",
         [&] { return interpreter.compileQuery("f()") && interpreter.evaluateQuery(value); },
         ".><.", ".>!."},
        {"conditions", [&] { return conditions.holds(0, value); }},
        {"condition", [&] { return interpreter.evaluate(*list.node, value); }},
    };
    for (const auto& row : rows) {
        for (const bool isStopped : {true, false}) {
            SCOPED_TRACE(std::string(row.name) + (isStopped ? ", stopped" : ""));
            ASSERT_TRUE(stops.set(isStopped));
            calls.text.clear();
            EXPECT_EQ(row.call(), !isStopped) << log.text;
            EXPECT_EQ(calls.text, isStopped ? row.stopped : row.whole);
        }
    }
    calls.text.clear();
    EXPECT_TRUE(interpreter.finish());
    EXPECT_EQ(calls.text, ">.");
}

}  // namespace
