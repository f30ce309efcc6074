#include <cstddef>
#include <cstdint>

#include "script.h"

/// Compiles the input as a script, twice on one interpreter, and then a valid script.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const FND::String text(reinterpret_cast<const char*>(data), size);
    Fuzz::CountingLog log;
    SCR::Interpreter interpreter(&log);
    Fuzz::restrain(interpreter);

    const bool isCompiled = interpreter.check(text);
    if (!isCompiled) Fuzz::check(log.errors > 0);
    Fuzz::check(interpreter.statementDepth() <= 1);
    const std::string messages = log.text;

    log.text.clear();
    Fuzz::check(interpreter.check(text) == isCompiled);
    Fuzz::check(log.text == messages);

    Fuzz::check(interpreter.check("Long a = 1; function Long f(Long b) { return a + b; } f(a);"));
    return 0;
}
