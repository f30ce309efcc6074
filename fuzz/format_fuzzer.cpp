#include <cstddef>
#include <cstdint>
#include <string>

#include "author/Format.h"
#include "script.h"

/// Lays the input out: what comes of it is laid out already, and compiles if the input did.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const Author::Formatted once = Author::formatFile(text);
    Fuzz::check(once.at <= text.size());
    if (!once.fault.empty()) return 0;
    const Author::Formatted twice = Author::formatFile(once.text);
    Fuzz::check(twice.fault.empty() && twice.text == once.text);

    const auto compiles = [](const std::string& script) {
        Fuzz::CountingLog log;
        SCR::Interpreter interpreter(&log);
        Fuzz::restrain(interpreter);
        SCR::Limits limits = interpreter.limits();
        limits.source = 4 * limits.source;  // a layout may be longer than the text
        interpreter.limits(limits);
        return interpreter.check(script);
    };
    if (compiles(text)) Fuzz::check(compiles(once.text));
    return 0;
}
