#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "scr/code/Hot.h"
#include "script.h"
#include "tests/Allocations.h"

namespace {

/// What a script does in one tier.
struct TierRun {
    bool isCompiled = false;
    std::array<bool, 3> isDone{};
    std::string log;
    std::string output;

    bool operator==(const TierRun&) const = default;
};

struct KeptOutput final : SCR::Output {
    bool write(std::string_view text) override {
        kept += text;
        return true;
    }
    std::string kept;
};

// Runs the text three times, and then a valid script on the same interpreter. It may take little
// more memory than the limit.
TierRun runIn(SCR::CodeTier tier, const FND::String& text) {
    Fuzz::CountingLog log;
    KeptOutput output;
    SCR::Interpreter interpreter(&log);
    interpreter.output(&output);
    Fuzz::restrain(interpreter);
    interpreter.codeTier(tier);
    const long held = Allocations::startPeak();
    const auto checkMemory = [&] {
        constexpr std::int64_t besides = 8 << 20;
        Fuzz::check(Allocations::peak() - held <= interpreter.limits().memory + besides);
    };
    TierRun run;
    run.isCompiled = interpreter.compile(text);
    checkMemory();
    for (bool& isDone : run.isDone) {
        if (!run.isCompiled) break;
        log.errors = 0;
        isDone = interpreter.execute();
        if (interpreter.wasStopped()) Fuzz::check(!isDone && log.errors > 0);
        Fuzz::check(interpreter.heapBytes() <= interpreter.limits().memory);
    }
    run.log = log.text;
    run.output = output.kept;
    checkMemory();
    log.errors = 0;
    Fuzz::check(
        interpreter.compile("Long a{}; a{\"x\"} = 2; if (a{\"x\"} + 1 == 3) { a{\"y\"} = 4; }"));
    Fuzz::check(interpreter.execute() && !interpreter.wasStopped());
    return run;
}

// Time passes differently in each tier, and code takes memory.
bool isComparable(const TierRun& run) {
    return run.log.find("limit `time'") == std::string::npos &&
           run.log.find("limit `memory'") == std::string::npos;
}

}  // namespace

/// Runs the input as a script within limits in each tier, from the first run of each loop on. All
/// do the same.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    SCR::Code::Hot::makeAfter(1);
    const FND::String text(reinterpret_cast<const char*>(data), size);
    const TierRun expected = runIn(SCR::CodeTier::Tree, text);
    if (!expected.isCompiled) return 0;
    for (const SCR::CodeTier tier : {SCR::CodeTier::Portable, SCR::CodeTier::Native}) {
        const TierRun run = runIn(tier, text);
        if (isComparable(run) && isComparable(expected)) Fuzz::check(run == expected);
    }
    return 0;
}
