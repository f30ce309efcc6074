// The time of a statement, by its kind: each runs 1000 times in a loop of the script, whose own
// cost the first one shows. Also the time of executing a script at all.
#include <benchmark/benchmark.h>

#include "scr/Interpreter.h"

namespace {

struct Statement {
    const char* name;
    const char* text;
};

constexpr const char* declarationsS =
    "Long a = 5; Long b = 7; Long c; Bool p; String s; String t = \"text\"; Decimal x = 1.25;"
    "Decimal y = 3.5; Long n[]; Long h{}; String w[]; Date d; n[3] = 1; h{\"text\"} = 1; w[3] = t;"
    "function Long twice(Long k) { return k + k; }";

constexpr Statement statementsS[] = {
    {"nothing", ""},
    {"constant", "a = 5;"},
    {"sum of variables", "c = a + b;"},
    {"nested sums", "c = (a + b) * 3 - (a - b);"},
    {"quotient by a variable", "c = a / b;"},
    {"remainder by a constant", "c = a % 10;"},
    {"if", "if (a < b) { c = a; }"},
    {"and", "p = a < b and b > 3;"},
    {"decimal sum", "x = x + 0.01;"},
    {"decimal product", "y = x * 1.19;"},
    {"decimal quotient", "y = x / 3;"},
    {"array element", "c = n[3];"},
    {"array store", "n[3] = a;"},
    {"hash element", "c = h{t};"},
    {"hash store", "h{t} = a;"},
    {"string", "s = t;"},
    {"concatenation", "s = t + \"-\" + t;"},
    {"string comparison", "p = t == \"next\";"},
    {"number to string", "s = longToStr(a);"},
    {"function call", "c = twice(a);"},
    {"switch", "switch (a) { case 1: c = 1; break; case 5: c = 2; break; default: c = 3; }"},
    {"string switch", "switch (t) { case \"tent\": c = 1; break; case \"text\": c = 2; break; }"},
};

void runStatement(benchmark::State& state, const char* text) {
    constexpr std::int64_t turns = 1000;
    SCR::Log log;
    SCR::Interpreter interpreter(&log);
    const FND::String script =
        FND::String(declarationsS) + "Long i; for (i = 0; i < 1000; i = i + 1) {" + text + "}";
    if (!interpreter.compile(script)) state.SkipWithError("does not compile");
    for (auto _ : state) interpreter.execute();
    state.SetItemsProcessed(state.iterations() * turns);
}

void execute(benchmark::State& state) {
    SCR::Log log;
    SCR::Interpreter interpreter(&log);
    interpreter.compile("Long a; a = 1;");
    for (auto _ : state) interpreter.execute();
}
BENCHMARK(execute);

const bool isRegisteredS = [] {
    for (const Statement& statement : statementsS) {
        benchmark::RegisterBenchmark(statement.name, [&statement](benchmark::State& state) {
            runStatement(state, statement.text);
        });
    }
    return true;
}();

}  // namespace
