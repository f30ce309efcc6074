// What it costs a host to talk to a script: executions, calls, variables, interpreters.

#include <benchmark/benchmark.h>

#include <vector>

#include "scr/Batch.h"
#include "scr/HostExtension.h"
#include "scr/Program.h"
#include "scr/ScriptHandle.h"

namespace {

const FND::String ruleS =
    "Long cost = seconds * rate; if (cost > 1000) { cost = cost - zone; }"
    "price = cost + zone * 5;";

void declare(SCR::Interpreter& interpreter) {
    SCR::HostExtension& host = *SCR::HostExtension::insert(interpreter, "host");
    for (const char* const name : {"seconds", "rate", "zone", "price"}) host.variable<long>(name);
}

struct Rule {
    Rule() {
        declare(interpreter);
        interpreter.compile(ruleS +
                            "Long n; String s;"
                            "function Long add(Long a, Long b) { return a + b; }"
                            "function Long length(String s) { return strLength(s); }");
    }
    SCR::HostVariable<long> variable(const char* name) {
        return static_cast<SCR::HostExtension*>(interpreter.extension("host"))
            ->variable<long>(name);
    }
    SCR::Interpreter interpreter{nullptr};
};

// The records of a batch, and what becomes of them.
struct Records {
    static constexpr std::size_t size = 1000;
    Records() {
        for (std::size_t i = 0; i < size; ++i) {
            seconds[i] = static_cast<long>(i % 600);
            rate[i] = static_cast<long>(i % 7);
            zone[i] = static_cast<long>(i % 3);
        }
    }
    std::vector<long> seconds = std::vector<long>(size);
    std::vector<long> rate = std::vector<long>(size);
    std::vector<long> zone = std::vector<long>(size);
    std::vector<long> price = std::vector<long>(size);
};

template <class Execute>
void rule(benchmark::State& state, const Execute& execute) {
    Rule host;
    Records records;
    auto seconds = host.variable("seconds");
    auto rate = host.variable("rate");
    auto zone = host.variable("zone");
    auto price = host.variable("price");
    while (state.KeepRunningBatch(Records::size)) {
        for (std::size_t i = 0; i < Records::size; ++i) {
            seconds = records.seconds[i];
            rate = records.rate[i];
            zone = records.zone[i];
            if (!execute(host.interpreter)) state.SkipWithError("stopped");
            records.price[i] = price;
        }
        benchmark::DoNotOptimize(records.price.data());
    }
}
void ruleByExecute(benchmark::State& state) {
    rule(state, [](SCR::Interpreter& interpreter) { return interpreter.execute(); });
}
BENCHMARK(ruleByExecute);
void ruleByTryExecute(benchmark::State& state) {
    rule(state, [](SCR::Interpreter& interpreter) { return bool(interpreter.tryExecute()); });
}
BENCHMARK(ruleByTryExecute);

void ruleByBatch(benchmark::State& state) {
    Rule host;
    Records records;
    const SCR::Column columns[] = {
        SCR::input("seconds", records.seconds), SCR::input("rate", records.rate),
        SCR::input("zone", records.zone), SCR::output("price", records.price)};
    while (state.KeepRunningBatch(Records::size)) {
        if (!host.interpreter.executeBatch(columns, Records::size)) state.SkipWithError("stopped");
        benchmark::DoNotOptimize(records.price.data());
    }
}
BENCHMARK(ruleByBatch);

void setAndGetLong(benchmark::State& state) {
    Rule host;
    const auto n = host.interpreter.variable<long>("n");
    long i = 0;
    for (auto _ : state) {
        n.set(++i);
        benchmark::DoNotOptimize(*n.get());
    }
}
BENCHMARK(setAndGetLong);

void setString(benchmark::State& state) {
    Rule host;
    const auto s = host.interpreter.variable<std::string_view>("s");
    for (auto _ : state) s.set("a text of thirty-two characters..");
}
BENCHMARK(setString);

void callWithLongs(benchmark::State& state) {
    Rule host;
    const auto add = host.interpreter.function<long(long, long)>("add");
    long i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(*add(++i, 2));
}
BENCHMARK(callWithLongs);

void callWithString(benchmark::State& state) {
    Rule host;
    const auto length = host.interpreter.function<long(std::string_view)>("length");
    for (auto _ : state) {
        benchmark::DoNotOptimize(*length("a text of thirty-two characters.."));
    }
}
BENCHMARK(callWithString);

// Interpreters for the rule, and for one with a switch over patterns.
const FND::String patternsS =
    ruleS +
    "regExprSwitch (\"x\") { case \"[a-m]+.*z\": price = 1; case \".*(foo|bar)[0-9]+\": "
    "price = 2; }";

void interpreterFromText(benchmark::State& state) {
    // Another interpreter, as hosts with several have, keeps the memory of nodes.
    const Rule other;
    for (auto _ : state) {
        SCR::Interpreter interpreter(nullptr);
        declare(interpreter);
        interpreter.compile(state.range(0) != 0 ? patternsS : ruleS);
    }
}
BENCHMARK(interpreterFromText)->ArgName("patterns")->Arg(0)->Arg(1);

void interpreterFromProgram(benchmark::State& state) {
    const SCR::Program program(state.range(0) != 0 ? patternsS : ruleS, declare);
    for (auto _ : state) benchmark::DoNotOptimize(SCR::Interpreter(program).isValid());
}
BENCHMARK(interpreterFromProgram)->ArgName("patterns")->Arg(0)->Arg(1);

}  // namespace
