#pragma once

#include "Test.h"

#include "Pieces.h"
#include "StdoutCapture.h"
#include "scr/Interpreter.h"
#include "scr/Log.h"

namespace Harness {

/// A log that keeps its messages.
class MemoryLog final : public SCR::Log {
public:
    void log(const FND::String& message, FND::Status::Severity severity) override {
        text += message + '\n';
        severities.push_back(severity);
    }

    std::string text;                               ///< the messages, each with a line end
    std::vector<FND::Status::Severity> severities;  ///< of the messages, in their order
};

/// What became of a script, from its compilation to the end of its interpreter ("END" included).
struct ScriptRun {
    bool compiled = false;  ///< what `compile` returned
    bool ok = false;        ///< it compiled, and every `execute` returned true
    bool valid = false;     ///< what `isValid` returned after the last `execute`
    std::string output;     ///< written to standard output
    std::string log;        ///< the messages, each with a line end
    std::vector<FND::Status::Severity> severities;
};

struct ScriptSetup {
    int repeat = 1;  ///< how often the script is executed
    /// Called on the interpreter before the script is compiled.
    std::function<void(SCR::Interpreter&)> prepare = [](SCR::Interpreter&) {};
    /// The same after it compiled.
    std::function<void(SCR::Interpreter&)> compiled = [](SCR::Interpreter&) {};
};

/// Compiles `text` on a fresh interpreter, executes it if it compiled, and destroys the
/// interpreter.
inline ScriptRun run(const std::string& text, const ScriptSetup& setup = {}) {
    ScriptRun result;
    MemoryLog log;
    const StdoutCapture capture;
    {
        SCR::Interpreter interpreter(&log);
        setup.prepare(interpreter);
        result.compiled = interpreter.compile(text);
        result.ok = result.compiled;
        if (result.compiled) setup.compiled(interpreter);
        for (int turn = 0; turn < setup.repeat && result.ok; ++turn) {
            result.ok = interpreter.execute();
        }
        result.valid = interpreter.isValid();
    }
    result.output = capture.text();
    result.log = log.text;
    result.severities = log.severities;
    return result;
}

}  // namespace Harness
