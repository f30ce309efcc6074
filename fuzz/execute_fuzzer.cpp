#include <cstddef>
#include <cstdint>

#include "script.h"
#include "tests/Allocations.h"

/// Runs the input as a script within limits, three times, and then a valid script on the same
/// interpreter. It may take little more memory than the limit.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Fuzz::CountingLog log;
    SCR::Interpreter interpreter(&log);
    Fuzz::restrain(interpreter);
    const long held = Allocations::startPeak();
    const auto checkMemory = [&] {
        constexpr std::int64_t besides = 8 << 20;
        Fuzz::check(Allocations::peak() - held <= interpreter.limits().memory + besides);
    };
    const bool isCompiled =
        interpreter.compile(FND::String(reinterpret_cast<const char*>(data), size));
    checkMemory();
    if (!isCompiled) return 0;
    for (int turn = 0; turn < 3; ++turn) {
        log.errors = 0;
        const bool isDone = interpreter.execute();
        if (interpreter.wasStopped()) Fuzz::check(!isDone && log.errors > 0);
        Fuzz::check(interpreter.heapBytes() <= interpreter.limits().memory);
    }
    checkMemory();
    log.errors = 0;
    Fuzz::check(
        interpreter.compile("Long a{}; a{\"x\"} = 2; if (a{\"x\"} + 1 == 3) { a{\"y\"} = 4; }"));
    Fuzz::check(interpreter.execute() && !interpreter.wasStopped());
    return 0;
}
