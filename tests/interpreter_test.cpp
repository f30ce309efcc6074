#include "scr/Interpreter.h"

#include "Script.h"
#include "SmallStack.h"
#include "scr/Extension.h"
#include "scr/FctDescr.h"
#include "scr/Function.h"
#include "scr/Observation.h"
#include "scr/Variable.h"
#include "scr/builtin/base/BuiltIn.h"
#include "scr/parser/Parser.h"

namespace {

using Harness::MemoryLog;

class InterpreterTest : public testing::Test {
protected:
    MemoryLog log_;
    SCR::Interpreter interpreter_{&log_};
};

TEST_F(InterpreterTest, AFreshOneIsValidAndHasItsLibrary) {
    EXPECT_TRUE(interpreter_.isValid());
    EXPECT_NE(interpreter_.extension("main"), nullptr);
    EXPECT_EQ(interpreter_.extension("mai"), nullptr);
    EXPECT_FALSE(interpreter_.execute());
    EXPECT_FALSE(interpreter_.popStatement());
    EXPECT_EQ(interpreter_.topStatement(), nullptr);
    EXPECT_FALSE(interpreter_.addStatement(nullptr));
    EXPECT_FALSE(SCR_parseMapping(interpreter_, ""));
}

TEST_F(InterpreterTest, EachCompileReplacesTheScript) {
    EXPECT_TRUE(interpreter_.addGlobalConstant("host", "h"));
    EXPECT_FALSE(interpreter_.addGlobalConstant("host", "again"));
    EXPECT_TRUE(interpreter_.compile("function f {} Long x; String s = host;"));
    EXPECT_EQ(interpreter_.compiledLines(), 2);
    EXPECT_TRUE(interpreter_.execute());
    EXPECT_FALSE(interpreter_.compile("f();"));
    EXPECT_EQ(interpreter_.compiledLines(), 0);
    EXPECT_FALSE(interpreter_.execute());
    EXPECT_FALSE(interpreter_.compile("x = 1;"));
    EXPECT_TRUE(interpreter_.compile("String s = host;"));
    EXPECT_TRUE(interpreter_.execute());
    EXPECT_EQ(log_.text,
              "ERROR: line 1: unknown identifier `f'\nERROR: line 1: unknown identifier `x'\n");
}

// More names than are compared one by one; a fault takes back everything that it came after.
TEST_F(InterpreterTest, AScriptIsExtendedOrStaysAsItWas) {
    EXPECT_FALSE(interpreter_.extend("Long early = 1;"));
    ASSERT_TRUE(interpreter_.compile("Long n = 1; function Long f { return n; }"));
    const auto value = [&](const FND::String& text) {
        SCR::Expression expression(interpreter_, text);
        FND::String result;
        if (expression) expression.evaluate(result);
        return expression ? expression.type() + ' ' + result
                          : expression.messages().at(0).headline();
    };
    EXPECT_EQ(value("f()"), "Long 0");  // nothing of it was executed
    for (int i = 0; i < 20; ++i) {
        const std::string name = "v" + std::to_string(i);
        EXPECT_TRUE(
            interpreter_.extend("Long " + name + " = " + std::to_string(i) + "; n = n + 1;"));
        EXPECT_FALSE(interpreter_.extend("Long w = 1; function Long g { return 1; } w = ;"));
        EXPECT_FALSE(interpreter_.extend("Long x = 1; while (x == 1) { String y = x;"));
    }
    EXPECT_EQ(value("f() + v19"), "Long 39");
    EXPECT_EQ(value("w").substr(0, 12), "unknown name");
    EXPECT_TRUE(interpreter_.extend("String w[]; function Long g { return v7; } w[1] = \"a\";"));
    EXPECT_EQ(value("w"), "String[] 2 elements");
    // Names are declared once more, but not twice at once; what is older keeps the older ones.
    EXPECT_FALSE(interpreter_.extend("String v7; function Long g { return 1; } Long v7;"));
    EXPECT_EQ(value("g() == v7"), "Bool true");
    EXPECT_TRUE(
        interpreter_.extend("String v7 = \"x\"; Long f; function Long n(Long k) { if (k "
                            "== 0) { return 0; } return g() + n(k - 1); }"));
    EXPECT_TRUE(
        interpreter_.extend("function Long g { return 100; } if (true) { String s = "
                            "\"block\"; v7 = v7 + s; }"));
    EXPECT_EQ(value("v7"), "String \"xblock\"");
    EXPECT_EQ(value("n(2) + g()"), "Long 114");
    EXPECT_EQ(value("f()").substr(0, 3), "`f`");
    EXPECT_TRUE(interpreter_.extend("function Long n { return f; } f = 3;"));
    EXPECT_TRUE(interpreter_.execute());  // the script, and nothing that was added
    EXPECT_EQ(value("n()"), "Long 3");
    EXPECT_FALSE(interpreter_.extend("return;"));
}

TEST(InterpreterLifeTest, EndRunsOnlyAfterASuccessfulCompile) {
    const FND::String script = "function END { logStdout(\"end\"); }";
    const struct {
        std::function<void(SCR::Interpreter&)> use;
        const char* output;
    } rows[] = {
        {[&](auto& interpreter) { interpreter.compile(script); }, "end"},
        {[&](auto& interpreter) { interpreter.compile(script + " }"); }, ""},
        {[&](auto& interpreter) { interpreter.check(script); }, ""},
        {[&](auto& interpreter) { interpreter.compile(script), interpreter.compile(""); }, ""},
        {[&](auto& interpreter) { interpreter.compile(script), interpreter.finish(); }, "end"},
    };
    for (const auto& row : rows) {
        const Harness::StdoutCapture capture;
        {
            SCR::Interpreter interpreter(nullptr);
            row.use(interpreter);
        }
        EXPECT_EQ(capture.text(), row.output) << &row - rows;
    }
}

TEST(InterpreterLifeTest, FinishTellsWhetherEndWasStopped) {
    const struct {
        const char* script;
        bool isFinished;
    } rows[] = {
        {"", true}, {"function END { }", true}, {"function END { while (true) {} }", false}};
    for (const auto& row : rows) {
        SCR::Interpreter interpreter(nullptr);
        interpreter.limits({.steps = 100});
        EXPECT_TRUE(interpreter.finish()) << "nothing is compiled";
        ASSERT_TRUE(interpreter.compile(row.script));
        EXPECT_EQ(interpreter.finish(), row.isFinished) << row.script;
        EXPECT_TRUE(interpreter.finish()) << row.script;
    }
}

TEST(InterpreterLifeTest, TheTableIsSharedFromTheFirstToTheLast) {
    ASSERT_EQ(SCR::MainExtension::tableSize(), 0U);
    auto first = std::make_unique<SCR::Interpreter>(nullptr);
    const std::size_t size = SCR::MainExtension::tableSize();
    SCR::Variable* const descriptor = first->getVariable("", "strLength");
    ASSERT_NE(descriptor, nullptr);
    EXPECT_EQ(first->getVariable("", "strlength"), nullptr);
    auto second = std::make_unique<SCR::Interpreter>(nullptr);
    EXPECT_EQ(second->getVariable("", "strLength"), descriptor);
    first.reset();
    EXPECT_EQ(SCR::MainExtension::tableSize(), size);
    EXPECT_EQ(second->getVariable("", "strLength"), descriptor);
    second.reset();
    EXPECT_EQ(SCR::MainExtension::tableSize(), 0U);
}

TEST_F(InterpreterTest, NothingIsBoundToAFunctionThatDidNotCompile) {
    for (const char* script : {"function Bool f(Long a) { for (a = 0; a < 3; a = a + 1) y; }",
                               "function Bool f(Long a) { do { y; } while (true); }",
                               "function Bool f(Long a, Long b, 5) {}"}) {
        EXPECT_FALSE(interpreter_.compile(script));
        EXPECT_FALSE(interpreter_.compileQuery("f(1)"));
        EXPECT_FALSE(interpreter_.compileQuery("f()"));
    }
}

TEST_F(InterpreterTest, ALimitStopsAndLeavesTheInterpreterUsable) {
    const struct {
        std::int64_t SCR::Limits::*limit;
        std::int64_t value;
        const char *script, *log;
    } rows[] = {
        {&SCR::Limits::steps, 10, "Long i;\nfor (i = 0; i < 11; i = i + 1) {}",
         "ERROR: line 2: script stopped: limit `steps' of 10 passed\n"},
        {&SCR::Limits::steps, 11, "Long i;\nfor (i = 0; i < 11; i = i + 1) {}", ""},
        {&SCR::Limits::steps, 2, "function f {}\nf(); f();\nf();",
         "ERROR: line 3: script stopped: limit `steps' of 2 passed\n"},
    };
    for (const auto& row : rows) {
        SCR::Limits limits;
        limits.*row.limit = row.value;
        interpreter_.limits(limits);
        log_.text.clear();
        const bool isStopped = *row.log != '\0';
        EXPECT_TRUE(interpreter_.compile(row.script)) << row.script;
        for (int turn = 0; turn < 2; ++turn) {
            EXPECT_EQ(interpreter_.execute(), !isStopped) << row.script;
            EXPECT_EQ(interpreter_.wasStopped(), isStopped) << row.script;
            EXPECT_EQ(log_.text, row.log) << row.script;
            log_.text.clear();
        }
    }
    interpreter_.limits(SCR::Limits());
    EXPECT_TRUE(interpreter_.compile("Long i; while (i < 5000) i = i + 1;"));
    EXPECT_TRUE(interpreter_.execute());
}

TEST_F(InterpreterTest, ASandboxCompilesNoForbiddenCall) {
    using SCR::Capabilities;
    const struct {
        bool Capabilities::*missing;
        const char *script, *log;
    } rows[] = {
        {&Capabilities::files, "\nFile f; fileOpen(f, \"/dev/null\", \"r\");",
         "ERROR: line 2: call of `fileOpen' is not allowed (files)\n"},
        {&Capabilities::shell, "String s; system(\"true\", s);",
         "ERROR: line 1: call of `system' is not allowed (shell)\n"},
        {&Capabilities::env, "sysGetEnv(\"HOME\") == \"\";",
         "ERROR: line 1: call of `sysGetEnv' is not allowed (env)\n"},
        {&Capabilities::sleep, "sleep(0);",
         "ERROR: line 1: call of `sleep' is not allowed (sleep)\n"},
        {&Capabilities::use, "use none;",
         "ERROR: line 1: can not use none: extension libraries are not allowed\n"},
        {&Capabilities::include, "include \"/dev/null\";\n",
         "include of `/dev/null' is not allowed\n"},
    };
    for (const auto& row : rows) {
        Capabilities capabilities;
        capabilities.*row.missing = false;
        interpreter_.capabilities(capabilities);
        log_.text.clear();
        EXPECT_FALSE(interpreter_.compile(row.script)) << row.script;
        EXPECT_EQ(log_.text, row.log);
    }
    interpreter_.capabilities(Capabilities::none());
    for (const SCR::BuiltIn* row : SCR::builtIns()) {
        constexpr SCR::Effect open = SCR::Effect::Clock | SCR::Effect::StandardOutput |
                                     SCR::Effect::Mutex | SCR::Effect::LocalZone;
        const bool isOpen = row->effects == SCR::Effect::None || has(row->effects, open);
        EXPECT_EQ(Capabilities::none().lacking(row->effects) == nullptr, isOpen) << row->number;
        if (isOpen) continue;
        EXPECT_FALSE(interpreter_.compile(FND::String(row->example) + ";")) << row->example;
    }
}

// Limits near the ends of their type are what they say.
TEST(LimitsTest, OddValuesHoldAsWell) {
    const FND::String script =
        "function wrong { wrong(); } Long i; String s; Long a[]; function Long next(Long n) { "
        "return n + 1; }"
        "for (i = 0; i < 3; i = next(i)) { s = s + \"x\"; a[i] = i; }"
        "regExprSwitch (s) { case \"x{1,50}y\": s = \"\"; case \"x*\": i = 100; }"
        "if (length(s) != 3 or arraySize(a) != 3 or i != 100) wrong();";
    using SCR::Limits;
    for (std::int64_t Limits::*const limit :
         {&Limits::steps, &Limits::depth, &Limits::time, &Limits::string, &Limits::elements,
          &Limits::memory, &Limits::nesting, &Limits::source, &Limits::states}) {
        for (const std::int64_t value :
             {Limits::none, Limits::none - 1, Limits::none / 1000, Limits::none / 1'000'000 + 1,
              std::int64_t{1} << 60, std::int64_t{1} << 57, std::int64_t{1} << 40}) {
            MemoryLog log;
            SCR::Interpreter interpreter(&log);
            Limits limits;
            limits.*limit = value;
            interpreter.limits(limits);
            EXPECT_TRUE(interpreter.compile(script) && interpreter.execute())
                << value << " " << log.text;
        }
        for (const std::int64_t value : {std::int64_t{0}, std::int64_t{1}}) {
            MemoryLog log;
            SCR::Interpreter interpreter(&log);
            Limits limits;
            limits.*limit = value;
            interpreter.limits(limits);
            const bool isDone = interpreter.compile(script) && interpreter.execute();
            EXPECT_TRUE(!isDone || !log.text.empty() || limit == &Limits::depth ||
                        limit == &Limits::time)
                << value << log.text;
        }
    }
}

// `depth` times `open` and `close` around `middle`; "@" is the number of the turn, or the depth.
FND::String nested(const FND::String& before, const FND::String& open, FND::String middle,
                   const FND::String& close, const FND::String& after, int depth) {
    const auto numbered = [](FND::String text, int number) {
        const std::size_t at = text.find('@');
        return at == text.npos ? text : text.replace(at, 1, std::to_string(number));
    };
    FND::String text = before;
    for (int i = 0; i < depth; ++i) text += numbered(open, i);
    text += numbered(middle, depth);
    for (int i = 0; i < depth; ++i) text += close;
    return text + after;
}

TEST(NestingTest, DeepTextsRunOrAreRefusedOnASmallStack) {
#ifndef NDEBUG
    if (!KESTREL_SANITIZED) GTEST_SKIP() << "frames are too large where nothing is optimised";
#endif
    const FND::String open = nested("", "longAbs(", "", "", "", 150);
    const FND::String close = FND::String(150, ')');
    const struct {
        FND::String before, open, middle, close, after;
        bool nests;      // great depths are refused; otherwise all are handled
        int levels = 1;  // of the text to each turn
    } rows[] = {
        {"", "{", "", "}", "", true},
        {"Long a = ", "(", "1", ")", ";", true},
        {"Long b; Long a = ", "-", "b", "", ";", true},
        {"Long a; ", "a = ", "1", "", ";", true},
        {"", "if (false) {} else ", "{}", "", "", true},
        {"", "while (false) ", "{}", "", "", true},
        {"Long a = ", "longAbs(", "1", ")", ";", true},
        {"Long b; Long a = ", "longAbs(", "1", " + b + b + b)", ";", true, 2},
        {"Long a", "[]", "", "", ";", true},
        {"Long a[]; Long b = ", "a[", "0", "]", ";", true},
        {"Long b; Long a = b", " + 1 - b * b", "", "", ";", false},
        {"Long b; Long a = b", " * 3 / 1 % 5", "", "", ";", false},
        {"Decimal b; Decimal a = b", " + 1 - b", "", "", ";", false},
        {"Decimal b; Decimal a = b", " * 3 / 1.0", "", "", ";", false},
        {"String b; String a = b", " + b", "", "", ";", false},
        {"function String f { return \"x\"; } String a = f()", " + a + f()", "", "", ";", false},
        {"Bool b; Bool a = b", " or b == false and b", "", "", ";", false},
        {"String s = ", "\"x\"", "", "", ";", false},
        {"Long a; switch (0) {", "case @: a = a + 1; ", "", "", "}", false},
        {"function f(Long n) { if (n > 0) f(n - 1); } f(", "", "@", "", ");", false},
        // Calls deep in expressions at the end of the stack.
        {"function Long leaf(Long n) { return " + open + "n" + close + "; } function f(Long n) {" +
             "Long a = " + open + "leaf(n)" + close + "; if (n > 0) f(n - 1); } f(",
         "", "@", "", ");", false},
    };
    for (const auto& row : rows) {
        const struct {
            int depth;
            std::int64_t nesting;
        } sizes[] = {{300, SCR::Limits().nesting},
                     {100000, SCR::Limits().nesting},
                     {100000, SCR::Limits::none}};
        for (const auto& size : sizes) {
            Harness::onSmallStack(std::size_t{512} << 10, [&] {
                MemoryLog log;
                SCR::Interpreter interpreter(&log);
                interpreter.limits({.depth = SCR::Limits::none, .nesting = size.nesting});
                const bool isCompiled =
                    interpreter.compile(nested(row.before, row.open, row.middle, row.close,
                                               row.after, size.depth / row.levels));
                EXPECT_EQ(isCompiled, size.depth == 300 || !row.nests)
                    << row.before << row.open << log.text;
                if (!isCompiled) {
                    EXPECT_NE(log.text.find("parser stack overflow"), std::string::npos)
                        << log.text;
                } else if (!interpreter.execute()) {
                    EXPECT_EQ(log.text,
                              "ERROR: line 1: script stopped: calls are nested too deep for the "
                              "stack\n")
                        << row.open;
                }
                EXPECT_TRUE(interpreter.compile("Long a = 1;")) << row.open;
                EXPECT_TRUE(interpreter.execute()) << row.open;
            });
        }
    }
}

}  // namespace
