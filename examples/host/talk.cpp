// A host that talks to a script: outcomes, its variables and functions, and batches of records.

#include <cstdio>
#include <string>
#include <unordered_map>
#include <vector>

#include "scr/Batch.h"
#include "scr/HostExtension.h"
#include "scr/ScriptHandle.h"

namespace {

const FND::String scriptS = R"(
    Decimal perMinute;
    String open[];
    Long calls{};
    Long seconds;
    Decimal price;
    function Decimal rate(Long seconds, String caller) {
        calls{caller} = calls{caller} + 1;
        return longToDecimal((seconds + 59) / 60) * perMinute;
    }
    price = rate(seconds, "batch");
    while (seconds < 0) {}
)";

// What went wrong, as a host may show it.
bool show(const SCR::Outcome& outcome) {
    using Kind = SCR::Outcome::Kind;
    switch (outcome.kind()) {
        case Kind::Stopped:
            std::printf("stopped by the limit %s\n", outcome.limit().c_str());
            break;
        case Kind::Failed:
            std::printf("%s failed\n", outcome.function().c_str());
            break;
        case Kind::Invalid:
        case Kind::Refused:
            std::printf("%s\n", outcome.diagnostic().text.c_str());
            break;
        case Kind::Finished:
        case Kind::Returned:
            break;
    }
    return static_cast<bool>(outcome);
}

bool talk(SCR::Interpreter& interpreter) {
    auto perMinute = interpreter.variable<double>("perMinute");
    auto open = interpreter.variable<std::vector<std::string>>("open");
    auto rate = interpreter.function<FND::Decimal(long, std::string_view)>("rate");
    if (!perMinute || !open || !rate) return false;

    perMinute.set(0.12);
    open.set({"Ann", "Bob"});
    const SCR::Result<FND::Decimal> price = rate(61, "Ann");
    if (!price) return show(price.outcome());
    std::printf("%s\n", price->toString(2).c_str());

    using Counts = std::unordered_map<std::string, long>;
    const SCR::Result<Counts> calls = interpreter.variable<Counts>("calls").get();
    std::printf("%ld by Ann\n", calls->at("Ann"));
    return true;
}

bool runBatch(SCR::Interpreter& interpreter) {
    const std::vector<long> seconds{30, 61, -1, 600};
    std::vector<FND::Decimal> prices(seconds.size());
    const SCR::Column columns[] = {SCR::input("seconds", seconds), SCR::output("price", prices)};
    std::size_t next = 0;
    while (next < seconds.size()) {
        const SCR::BatchOutcome batch = interpreter.executeBatch(columns, seconds.size(), next);
        next = batch.record();
        if (!batch) std::printf("record %zu: ", next++);
        show(batch);
    }
    for (const FND::Decimal& price : prices) std::printf("%s ", price.toString(2).c_str());
    std::printf("\n");
    return true;
}

}  // namespace

int main() {
    SCR::Interpreter interpreter(nullptr);
    interpreter.limits({.steps = 10'000});
    if (!show(interpreter.tryCompile(scriptS))) return 1;
    if (!talk(interpreter) || !runBatch(interpreter)) return 1;
    show(interpreter.function<long(long)>("rate").outcome());
    show(interpreter.tryCompile("Long n = ;"));
}
