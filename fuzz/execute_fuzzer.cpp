#include <cstddef>
#include <cstdint>

#include "script.h"

/// Runs the input as a script within limits, three times, and a sound script on the same
/// interpreter after it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Fuzz::CountingLog log;
    SCR::Interpreter interpreter(&log);
    Fuzz::restrain(interpreter);
    if (!interpreter.compile(FND::String(reinterpret_cast<const char*>(data), size))) return 0;
    for (int turn = 0; turn < 3; ++turn) {
        log.errors = 0;
        const bool isDone = interpreter.execute();
        if (interpreter.wasStopped()) Fuzz::check(!isDone && log.errors > 0);
        Fuzz::check(interpreter.heapBytes() <= interpreter.limits().memory);
    }
    log.errors = 0;
    Fuzz::check(
        interpreter.compile("Long a{}; a{\"x\"} = 2; if (a{\"x\"} + 1 == 3) { a{\"y\"} = 4; }"));
    Fuzz::check(interpreter.execute() && !interpreter.wasStopped());
    return 0;
}
