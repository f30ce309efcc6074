// Functions, fields, variables and constants that hosts bind to scripts.

#include "scr/HostExtension.h"
#include "scr/run/RunControl.h"

#include "Allocations.h"
#include "Script.h"
#include "scr/CompareInterface.h"

namespace {

using SCR::FieldAlias;
using SCR::HostExtension;
using SCR::HostVariable;
using SCR::Interpreter;

long freeFunction(long a, long b) noexcept { return a - b; }

struct Counter {
    long operator()() { return ++count; }
    long count = 0;
};

// A record with two fields, for the field functions.
struct Record {
    FND::String values[2];

    static long idOf(const FND::String& name) {
        return name == "name" ? 0 : name == "sum.total" ? 1 : -1;
    }
    FND::String& operator[](FieldAlias field) { return values[field.id()]; }
};

// Names of every kind; `record` must outlive the interpreter.
void fill(HostExtension& host, Record& record) {
    host.function("minus", freeFunction);
    host.function("count", Counter());
    host.function("join", [](std::string_view a, const FND::String& b, FND::String c) {
        return FND::String(a) + b + c;
    });
    host.function("view", [](std::string_view text) { return text.substr(0, 2); });
    host.function("small", [](short value) { return value; });
    host.function("big", []() { return std::numeric_limits<unsigned long>::max(); });
    host.function("half", [](const FND::Decimal& value) { return value / FND::Decimal(2); });
    host.function("later", [](FND::DateTime date) { return date; });
    host.function("same", [](const FND::Identifier& id) -> const FND::Identifier& { return id; });
    host.function("either", [](bool a, bool b) { return a || b; });
    host.function("optional", [](long a, std::optional<int> b, std::optional<std::string_view> c) {
        return std::to_string(a) + "," + (b ? std::to_string(*b) : "-") + "," +
               FND::String(c.value_or("-"));
    });
    host.function("all", [](std::string_view sign, SCR::Rest<FND::String> parts) {
        FND::String text;
        for (const FND::String& part : parts) text.append(sign).append(part);
        return text;
    });
    host.function("sum", [](const SCR::Rest<long>& numbers) {
        long sum = 0;
        for (std::size_t i = 0; i < numbers.size(); ++i) sum += numbers[i];
        return sum;
    });
    host.function("divide", [](long a, long b, long& quotient, FND::String& text) {
        quotient = 1;
        if (b == 0) throw std::invalid_argument("division by zero");
        quotient = a / b;
        text += "!";
    });
    host.function("throwText", [](std::string_view what) -> FND::String { throw what; });
    host.function("throwDate", []() -> FND::DateTime { throw std::runtime_error("no date"); });
    host.function("valid",
                  [](Interpreter& interpreter, bool valid) { interpreter.isValid(valid); });
    host.constant("LIMIT", 40);
    host.constant("GREETING", "hello");
    host.constant("YES", true);
    host.constant("PRICE", FND::Decimal::fromString("1.25"));
    host.fieldIds(Record::idOf);
    host.field(
        "edrString", [&](FieldAlias field) -> const FND::String& { return record[field]; },
        [&](FieldAlias field, std::string_view value) { record[field] = value; });
    host.field(
        "edrLong",
        [&](FieldAlias field, std::optional<long> factor) {
            return std::stol(record[field]) * factor.value_or(1);
        },
        [&](const FieldAlias& field, std::optional<long> factor, short value) {
            record[field] = std::to_string(value * factor.value_or(1));
            return true;
        });
    host.function("edrMissingInput", [&](FieldAlias field) { return record[field].empty(); });
}

Harness::ScriptRun runWith(
    const std::string& text, Record& record,
    const std::function<void(HostExtension&)>& change = [](HostExtension&) {}) {
    Harness::ScriptSetup setup;
    setup.prepare = [&](Interpreter& interpreter) {
        HostExtension& host = *HostExtension::insert(interpreter, "host");
        fill(host, record);
        change(host);
    };
    return Harness::run(text, setup);
}

// Makes the functions that fail give null values.
void giveNull(HostExtension& host) {
    for (const char* const name :
         {"small", "big", "optional", "divide", "throwText", "throwDate", "edrLong"}) {
        static_cast<SCR::FctDescr*>(host.variable(name))->nullOnFailure(true);
    }
}

TEST(HostExtension, VariablesActAsTheirValues) {
    Interpreter interpreter(nullptr);
    HostExtension& host = *HostExtension::insert(interpreter, "host");
    auto n = host.variable<long>("n");
    auto d = host.variable<FND::Decimal>("d");
    auto s = host.variable<FND::String>("s");
    n = 5;
    n += n;
    n *= 3U;
    n -= short{2};
    n /= 4;
    d = n;
    d += 1;
    d *= FND::Decimal::fromString("0.5");
    s = "ab";
    s += std::string_view("cd");
    s += s;
    ASSERT_TRUE(interpreter.compile("n = n + 1; s = s + \"!\";") && interpreter.execute());
    EXPECT_TRUE(n == 8 && 8 == n && n != 7L && n > short{7} && n <= 8 && n == n);
    EXPECT_TRUE(d == 4 && d < 5 && d == FND::Decimal(4) && d != n);
    EXPECT_TRUE(s == "abcdabcd!" && s != std::string_view("a") && s > "ab" && s == s.value());
}

TEST(HostExtension, CallsAndFields) {
    const struct {
        const char* script;  // ends in the argument of `show`
        const char* shown;
        const char* log = "";
    } cases[] = {
        {"longToStr(minus(50, 8))", "42"},
        {"longToStr(count() + count() * 10)", "21"},
        {"join(GREETING, \" \", \"you\")", "hello you"},
        {"view(\"abc\") + view(\"xyz\")", "abxy"},
        {"longToStr(small(-32768))", "-32768"},
        {"longToStr(small(32768))", "0", "small: value out of range '32768'\n"},
        {"longToStr(big())", "0", "big: value out of range '18446744073709551615'\n"},
        {"decimalToStr(half(PRICE), 3)", "0.625"},
        {"boolText(later(MAX_DATE) == MAX_DATE)", "yes"},
        {"boolText(same(NULL_NEXID) == NULL_NEXID)", "yes"},
        {"boolText(either(false, YES))", "yes"},
        {"optional(1)", "1,-,-"},
        {"optional(1, 2, \"x\")", "1,2,x"},
        {"all(\",\")", ""},
        {"all(\",\", GREETING, view(\"abc\"), view(\"xyz\"))", ",hello,ab,xy"},
        {"longToStr(sum(count(), count(), count(), 40))", "46"},
        {"optional(1, 3000000000)", "", "optional: value out of range '3000000000'\n"},
        // A value that was evaluated first stays, whatever a later argument changes.
        {"join(text, change(\"new\"), text)", "oldnewnew"},
        // Out-parameters are stored after the call, and only if it returned normally.
        {"divided(7, 2)", "3old!"},
        {"divided(7, 0)", "-1old", "divide: division by zero\n"},
        // The index of an element that is an out-parameter is evaluated once.
        {"placed()", "7 0 7 0 7 4"},
        {"throwText(\"x\")", "", "throwText: unknown exception\n"},
        {"dateToStr(throwDate())", "INVALID", "throwDate: no date\n"},
        {"edrString(name)", "Ann"},
        {"boolText(edrMissingInput(name)) + boolText(edrMissingInput(sum.total))", "noyes"},
        {"twice(7)", "14 28"},
        {"written(70000)", "", "edrLong: value out of range '70000'\n"},
        {"longToStr(edrLong(name))", "0", "edrLong: stol\n"},
        // A field's name means the field, even if a variable has the same name.
        {"named(\"Bob\")", "Bob"},
    };
    const std::string prologue = R"(
        String text = "old";
        function String boolText(Bool value) { if (value) { return "yes"; } return "no"; }
        function String change(String value) { text = value; return value; }
        function String divided(Long a, Long b) {
            Long quotient = -1;
            divide(a, b, quotient, text);
            return longToStr(quotient) + text;
        }
        Long at; Long list[]; Long lists[]{};
        function Long next { at = at + 1; return at; }
        function String key { return longToStr(next()); }
        function String placed {
            at = 0;
            divide(7, 1, list[next()], text);
            divide(7, 1, lists[next()]{key()}, text);
            divide(7, 1, list[next()], text);
            return longToStr(list[1]) + " " + longToStr(list[2]) + " " +
                   longToStr(lists[2]{"3"} + lists[3]{"2"}) + " " + longToStr(list[3]) + " " +
                   longToStr(list[4]) + " " + longToStr(at);
        }
        function String written(Long value) { edrLong(sum.total) = value; return edrString(sum.total); }
        function String twice(Long value) {
            edrLong(sum.total, 2) = value;
            return edrString(sum.total) + " " + longToStr(edrLong(sum.total, 2));
        }
        function String named(String name) { edrString(name) = name; return edrString(name); }
    )";
    for (const auto& c : cases) {
        SCOPED_TRACE(c.script);
        Record record{{"Ann", ""}};
        const std::string script = prologue + "logStdout(" + c.script + ");";
        const auto run = runWith(script, record, giveNull);
        EXPECT_TRUE(run.ok);
        EXPECT_EQ(run.output, c.shown);
        EXPECT_EQ(run.log, c.log);
        if (c.log == std::string()) continue;
        const auto stopped = runWith(script, record);
        EXPECT_FALSE(stopped.ok);
        EXPECT_EQ(stopped.output, "");
        EXPECT_EQ(stopped.log.substr(stopped.log.find("script stopped: ") + 16), c.log);
    }
}

TEST(HostExtension, FunctionsAreDescribedForAuthors) {
    Harness::MemoryLog log;
    SCR::Interpreter interpreter(&log);
    auto* const host = SCR::HostExtension::insert(interpreter, "host");
    host->function("area", [](long width, std::optional<FND::Decimal>) { return width; });
    host->function("fill", [](std::string_view, SCR::ArrayRef<long>, bool&) {});
    host->function("all", [](FND::DateTime, SCR::Rest<FND::String>) { return FND::String(); });
    host->constant("LIMIT", 5L);
    EXPECT_TRUE(host->describe("area", " width, height", "The \"area\" \\.", "area(1)\n== 1"));
    EXPECT_TRUE(host->describe("all", "day", "Joins."));
    EXPECT_FALSE(host->describe("area", "width", "Too few."));
    EXPECT_FALSE(host->describe("all", "", "Too few."));
    EXPECT_FALSE(host->describe("LIMIT", "", "No function."));
    EXPECT_EQ(
        log.text,
        "ERROR: extension `host': the description has another number of parameters than Long "
        "area(Long,[Decimal])\n"
        "ERROR: extension `host': the description has another number of parameters than String "
        "all(Date,[String...])\n"
        "ERROR: extension `host': there is no function `LIMIT' to describe\n");
    EXPECT_EQ(host->functionsAsJson(),
              R"json([
{"module":"","name":"all","signature":"String all(Date day, ...)","manual":"Joins.","example":""},
{"module":"","name":"area","signature":"Long area(Long width, [Decimal height])","manual":"The \"area\" \\.","example":"area(1)\u000a== 1"},
{"module":"","name":"fill","signature":"Void fill(String a1, change Long[] a2, out Bool a3)","manual":"","example":""}
]
)json");
}

TEST(HostExtension, WrongCallsDoNotCompile) {
    const struct {
        const char *script, *message;
    } cases[] = {
        {"minus(1);", "missing parameter in call to `Long minus(Long,Long)'"},
        {"optional(1,2,\"\",4);",
         "to many arguments in call to `String optional(Long,[Long,String])'"},
        {"join(1, \"\", \"\");", "expected String not Long as argument 1"},
        {"Long i; String s; divide(1, 2, 3, s);", "expected left value as argument 3"},
        {"edrString(other) = \"\";", "unknown field `other'"},
        {"edrLong(name) = \"\";", "expected String not Long as argument 1"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.script);
        Record record;
        const auto run = runWith(c.script, record);
        EXPECT_FALSE(run.compiled);
        EXPECT_NE(run.log.find(c.message), std::string::npos) << run.log;
    }
}

// Functions over containers: read and changed in place, whatever else the call's arguments are.
TEST(HostExtension, ContainersArePassedByReference) {
    using SCR::ArrayRef;
    using SCR::ArrayView;
    Harness::MemoryLog log;
    Interpreter interpreter(&log);
    HostExtension& host = *HostExtension::insert(interpreter, "host");
    host.function("split", [](std::string_view text, ArrayRef<FND::String> parts) {
        parts.clear();
        for (const char byte : text) parts.append(FND::String(40, byte));
        return parts.size();
    });
    host.function("total", [](ArrayView<long> all) {
        long sum = 0;
        for (const long value : all) sum += value;
        return sum;
    });
    host.functionOver<long, FND::Decimal, FND::String>(
        "last", []<class T>(ArrayView<T> all) { return all[all.size() - 1]; });
    host.functionOver<long, FND::String>("fill", []<class T>(ArrayRef<T> all, const T& value) {
        for (unsigned long i = 0; i < all.size(); ++i) all.set(i, value);
    });
    host.function("append", [](ArrayView<long> from, ArrayRef<long> to) {
        const unsigned long count = from.size();
        for (unsigned long i = 0; i < count; ++i) to.append(from[i]);
    });
    host.function("count", [](SCR::HashRef<long> counts, const FND::String& key) {
        if (long* const count = counts.at(key)) ++*count;
        long sum = 0;
        counts.forEach([&](const FND::String&, long value) { sum += value; });
        return sum * 10 + static_cast<long>(counts.keys().size());
    });
    host.function("width", [](ArrayView<SCR::Array> rows, long row) {
        return ArrayView<long>(rows[static_cast<unsigned long>(row)]).size();
    });
    host.function("grow", [](ArrayRef<long> all) { return all.resize(1UL << 40); });
    host.function("flood", [](ArrayRef<FND::String> all) {
        while (all.append(FND::String(1000, 'x'))) {
        }
    });
    const FND::String start =
        "Long a[]; String s[]; Decimal d[]; Long h{}; Long n[][]; a[2] = 3; a[9000] = 4; ";
    const struct {
        const char* script;
        const char* log;
    } rows[] = {
        {"check(total(a) == 7 and last(a) == 4 and size(a) == 9001);", ""},
        {"d[0] = 1.5; check(last(d) == 1.5); s[0] = \"b\"; check(last(s) == \"b\");", ""},
        {"fill(s, \"c\"); fill(a, 1); check(total(a) == 9001);", ""},
        // Arguments that lie in what is changed.
        {"s[0] = \"a long text that has memory of its own\";"
         "check(split(s[0], s) == 38 and strLength(s[37]) == 40);",
         ""},
        {"a[9000] = 0; append(a, a); check(size(a) == 18002 and total(a) == 6);", ""},
        {"append(a, n[3]); check(total(n[3]) == 7 and width(n, 3) == 9001 and width(n, 9) == 0);",
         ""},
        {"function Long drop { arrayClear(n); return 0; } n[1][0] = 5; fill(n[1], drop());"
         "check(size(n) == 2 and size(n[1]) == 0);",
         ""},
        {"append(a, n[-1]); check(total(n[-1]) == 0);", ""},
        {"count(h, \"b\"); check(count(h, \"a\") == 22 and h{\"b\"} == 1);", ""},
        {"check(grow(a) == false);", "array: no room for more elements\n"},
        {"flood(s);", "ERROR: line 1: script stopped: limit `memory' of 3000000 passed\n"},
        {"total(s);",
         "ERROR: line 1: expected Array of Long not of String as argument 1 in "
         "`Long total(Array)'\n"},
        {"last(h);",
         "ERROR: line 1: expected Array not Hash as argument 1 in `Long last(Array)'\n"},
        {"last(n);",
         "ERROR: line 1: expected Array of Long, Decimal or String not of Array as "
         "argument 1 in `Long last(Array)'\n"},
    };
    host.function("check", [](bool isRight) {
        if (!isRight) throw std::runtime_error("wrong");
    });
    SCR::Limits limits;
    limits.memory = 3'000'000;
    interpreter.limits(limits);
    for (const auto& row : rows) {
        log.text.clear();
        if (interpreter.compile(start + row.script)) interpreter.execute();
        EXPECT_EQ(log.text, row.log) << row.script;
    }
}

TEST(HostExtension, CopiesOfFunctionsAreAsForbiddenAsTheyAre) {
    // Gives a copy of another one's value.
    struct Copies final : SCR::Extension {
        FND::String extensionName() const override { return "copies"; }
        SCR::Variable* variable(const FND::String& name) override {
            return name == "copied" ? copied.get() : nullptr;
        }
        std::unique_ptr<SCR::Variable> copied;
    };
    Harness::MemoryLog log;
    Interpreter interpreter(&log);
    interpreter.capabilities(SCR::Capabilities::none());
    HostExtension* const host = HostExtension::insert(interpreter, "host");
    host->function("run", [] { return 1; })->effects(SCR::Effect::Shell);
    host->field(
            "port", [] { return 1; }, [](long) {})
        ->effects(SCR::Effect::Shell);
    auto* const copies = new Copies;
    ASSERT_TRUE(interpreter.insertExtension(copies));
    for (const char* const name : {"system", "run", "port"}) {
        copies->copied.reset(interpreter.getVariable("", name)->clone());
        log.text.clear();
        const std::string call = name == std::string("system") ? "copied(\"id\");" : "copied();";
        EXPECT_FALSE(interpreter.compile(call)) << name;
        EXPECT_EQ(log.text,
                  "ERROR: line 1: call of `" + std::string(name) + "' is not allowed (shell)\n");
    }
}

TEST(HostExtension, VariablesAreShared) {
    Harness::MemoryLog log;
    Interpreter interpreter(&log);
    HostExtension& host = *HostExtension::insert(interpreter, "host");
    auto amount = host.variable<long>("amount", 5);
    auto text = host.variable<FND::String>("text");
    auto price = host.variable<FND::Decimal>("price", FND::Decimal(2));
    auto date = host.variable<FND::DateTime>("date");
    auto id = host.variable<FND::Identifier>("id");
    auto flag = host.variable<bool>("flag");
    ASSERT_TRUE(
        interpreter.compile("amount = amount + 1; price = price * 6; "
                            "text = text + \"x\"; date = MAX_DATE; "
                            "id = INVALID_NEXID; flag = amount > 6;"))
        << log.text;
    EXPECT_TRUE(interpreter.execute());
    EXPECT_EQ(amount, 6);
    EXPECT_FALSE(flag);
    EXPECT_EQ(price.value(), FND::Decimal(12));
    EXPECT_EQ(date.value(), FND::DateTime::max());
    EXPECT_EQ(id.value(), FND::INVALID_IDENTIFIER);
    amount = 10;
    text = "ab";
    EXPECT_TRUE(interpreter.execute());
    EXPECT_EQ(amount, 11);
    EXPECT_TRUE(flag);
    EXPECT_EQ(text.value(), "abx");

    // A second handle refers to the same variable; assigning a handle assigns the value.
    auto again = host.variable<long>("amount", 77);
    EXPECT_EQ(again, 11);
    auto other = host.variable<long>("other", 3);
    again = other;
    EXPECT_EQ(amount, 3);

    EXPECT_EQ(log.text, "");
}

TEST(HostExtension, NamesAreIdentifiersAndGivenOnce) {
    for (const bool isFilledFirst : {false, true}) {
        SCOPED_TRACE(isFilledFirst);
        Harness::MemoryLog log;
        Interpreter interpreter(&log);
        interpreter.addGlobalConstant("VERSION", "1");
        auto* const host = new HostExtension("host");
        if (!isFilledFirst) {
            EXPECT_TRUE(interpreter.insertExtension(host));
        }
        EXPECT_EQ(host->function("", freeFunction), nullptr);
        EXPECT_FALSE(host->constant("1st", 1));
        EXPECT_EQ(host->field(
                      "a b", [](long) { return 1L; }, [](long, long) {}),
                  nullptr);
        EXPECT_FALSE(host->variable<long>("a::b").isDeclared());
        EXPECT_TRUE(host->constant("a.b", 2));
        auto amount = host->variable<long>("amount");
        EXPECT_TRUE(amount.isDeclared());
        EXPECT_EQ(host->function("amount", freeFunction), nullptr);
        auto mistyped = host->variable<bool>("amount");
        mistyped = true;
        EXPECT_FALSE(mistyped.isDeclared());
        EXPECT_TRUE(host->constant("if", 30));
        EXPECT_NE(host->function("strLength", [] { return 400; }), nullptr);
        EXPECT_TRUE(host->constant("VERSION", 5000));
        if (isFilledFirst) {
            EXPECT_EQ(log.text, "");
            EXPECT_TRUE(interpreter.insertExtension(host));
        }
        const FND::String refused = "ERROR: extension `host': ";
        const FND::String warned = "WARNING: extension `host': scripts reach ";
        const FND::String hidden[] = {warned + "`strLength' by `host::strLength' only\n",
                                      warned + "`VERSION' by `host::VERSION' only\n"};
        EXPECT_EQ(log.text,
                  refused + "`' is no identifier\n" + refused + "`1st' is no identifier\n" +
                      refused + "`a b' is no identifier\n" + refused + "`a::b' is no identifier\n" +
                      refused + "the name `amount' is taken\n" + refused +
                      "the name `amount' is taken\n" + warned + "`if' by `host::if' only\n" +
                      hidden[isFilledFirst ? 1 : 0] + hidden[isFilledFirst ? 0 : 1]);
        ASSERT_TRUE(interpreter.compile(
            "amount = a.b + host::if + host::strLength() + host::VERSION + strLength(VERSION);"));
        EXPECT_TRUE(interpreter.execute());
        EXPECT_EQ(amount, 5433);

        log.text.clear();
        EXPECT_EQ(HostExtension::insert(interpreter, "host"), nullptr);
        EXPECT_EQ(HostExtension::insert(interpreter, "no name"), nullptr);
        HostExtension nameless("");
        EXPECT_FALSE(interpreter.insertExtension(&nameless));
        EXPECT_FALSE(interpreter.insertExtension(nullptr));
        EXPECT_EQ(log.text,
                  "ERROR: there is an extension `host' already\n"
                  "ERROR: extension `no name': `no name' is no identifier\n"
                  "ERROR: extension `': `' is no identifier\n");
    }
}

TEST(HostExtension, NothingCompilesWhileTheInterpreterExecutes) {
    struct Conditions : SCR::CompareInterface {
        bool condition(SCR::BoolNode* condition) override {
            delete condition;
            return true;
        }
        bool comparePattern(Interpreter& /*interpreter*/, SCR::ParserStack& /*stack*/) override {
            return false;
        }
    } conditions;
    Harness::MemoryLog log;
    Interpreter interpreter(&log);
    HostExtension& host = *HostExtension::insert(interpreter, "host");
    long compiled = 0;
    host.function("compile", [&](Interpreter& running) {
        compiled += running.compile("Long other;") ? 1 : 0;
        compiled += running.check("Long other;") ? 1 : 0;
        compiled += running.compileQuery("true") ? 1 : 0;
        compiled += running.compileConditions("true;", conditions) ? 1 : 0;
        return true;
    });
    auto runs = host.variable<long>("runs");
    const auto refusalsWhile = [](const std::string& act) {
        const std::string refusal = "ERROR: can not compile while the interpreter " + act + "\n";
        return refusal + refusal + refusal + refusal;
    };
    const std::string refusals = refusalsWhile("executes");
    ASSERT_TRUE(
        interpreter.compile("function BEGIN { compile(); runs = runs + 1; } "
                            "compile(); runs = runs + 1;"));
    EXPECT_EQ(log.text, refusalsWhile("compiles"));
    for (int run = 2; run <= 3; ++run) {
        log.text.clear();
        EXPECT_TRUE(interpreter.execute());
        EXPECT_EQ(runs, run);
        EXPECT_EQ(log.text, refusals);
    }
    log.text.clear();
    ASSERT_TRUE(interpreter.compileQuery("compile()"));
    for (int run = 0; run < 2; ++run) {
        bool value = false;
        EXPECT_TRUE(interpreter.evaluateQuery(value));
        EXPECT_TRUE(value);
    }
    EXPECT_EQ(log.text, refusals + refusals);
    EXPECT_EQ(compiled, 0);
}

TEST(HostExtension, CallsDoNotAllocate) {
    Harness::MemoryLog log;
    Interpreter interpreter(&log);
    HostExtension& host = *HostExtension::insert(interpreter, "host");
    Record record{{"a name that takes memory of its own", ""}};
    host.fieldIds(Record::idOf);
    host.field(
        "edrString", [&](FieldAlias field) -> const FND::String& { return record[field]; },
        [&](FieldAlias field, std::string_view value) { record[field] = value; });
    host.function("mark", [](FND::String& text) { text.back() = '!'; });
    host.function("tail", [](std::string_view text, std::optional<long> from) {
        return text.substr(static_cast<std::size_t>(from.value_or(1)));
    });
    ASSERT_TRUE(
        interpreter.compile("String text; Long i; text = edrString(name); "
                            "for (i = 0; i < 100; i = i + 1) { mark(text); "
                            "edrString(sum.total) = tail(edrString(name)); }"));
    EXPECT_TRUE(interpreter.execute());
    const long before = Allocations::madeCM;
    EXPECT_TRUE(interpreter.execute());
    EXPECT_EQ(Allocations::madeCM, before);
    EXPECT_EQ(record.values[1], record.values[0].substr(1));
}

}  // namespace
