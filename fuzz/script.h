#pragma once

#include <cstdio>
#include <string>

#include "Check.h"
#include "scr/Interpreter.h"
#include "scr/Log.h"

/// Shared by the doors that run scripts.
namespace Fuzz {

/// Keeps the messages and counts the errors among them.
class CountingLog final : public SCR::Log {
public:
    void log(const FND::String& message, FND::Status::Severity severity) override {
        if (severity >= FND::Status::Error) ++errors;
        text += message + '\n';
    }
    int errors = 0;
    std::string text;
};

/// Cuts `interpreter` off from the outside world and limits it so that one input takes
/// milliseconds. What it prints is dropped.
inline void restrain(SCR::Interpreter& interpreter) {
    static const bool isQuiet = std::freopen("/dev/null", "w", stdout) != nullptr;
    check(isQuiet);
    SCR::Limits limits;
    limits.steps = 2'000;
    limits.depth = 100;
    limits.time = 2'000;
    limits.string = 1 << 16;
    limits.elements = 1 << 12;
    limits.memory = 1 << 22;
    limits.nesting = 100;
    limits.source = 1 << 16;
    limits.states = 1'000;
    interpreter.limits(limits);
    interpreter.capabilities(SCR::Capabilities::none());
}

}  // namespace Fuzz
