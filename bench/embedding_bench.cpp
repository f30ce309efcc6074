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

template <class Execute>
void rule(benchmark::State& state, const Execute& execute) {
    Rule host;
    auto seconds = host.variable("seconds");
    auto rate = host.variable("rate");
    auto zone = host.variable("zone");
    auto price = host.variable("price");
    long i = 0;
    for (auto _ : state) {
        ++i;
        seconds = i % 600;
        rate = i % 7;
        zone = i % 3;
        if (!execute(host.interpreter)) state.SkipWithError("stopped");
        benchmark::DoNotOptimize(price.value());
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
    constexpr std::size_t size = 1000;
    Rule host;
    std::vector<long> seconds(size);
    std::vector<long> rate(size);
    std::vector<long> zone(size);
    std::vector<long> price(size);
    long i = 0;
    const SCR::Column columns[] = {SCR::input("seconds", seconds), SCR::input("rate", rate),
                                   SCR::input("zone", zone), SCR::output("price", price)};
    while (state.KeepRunningBatch(size)) {
        for (std::size_t at = 0; at < size; ++at) {
            ++i;
            seconds[at] = i % 600;
            rate[at] = i % 7;
            zone[at] = i % 3;
        }
        if (!host.interpreter.executeBatch(columns, size)) state.SkipWithError("stopped");
        benchmark::DoNotOptimize(price.data());
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
