#include <cstdio>

#include "scr/builtin/BuiltIn.h"
#include "scr/builtin/BuiltInNode.h"

namespace SCR {

namespace {

struct ScriptUsable final : BuiltInNode<ScriptUsable, VoidType(BoolType)> {
    static void value(Interpreter& interpreter, bool usable) { interpreter.isValid(usable); }
};

struct LogStdout final : BuiltInNode<LogStdout, VoidType(StringType)> {
    static void value(Interpreter& /*interpreter*/, const FND::String& text) {
        std::fwrite(text.data(), 1, text.size(), stdout);
    }
};

constexpr BuiltIn systemBuiltInsS[] = {
    {.number = 19,
     .signature = "Void scriptUsable(Bool usable)",
     .factory = ScriptUsable::factory,
     .manual = "Tells the host program whether it may use this script. A script is usable until it "
               "says otherwise, and the last call counts; the script itself goes on either way.",
     .example = "scriptUsable(true); true"},
    {.number = 20,
     .signature = "Void logStdout(String text)",
     .factory = LogStdout::factory,
     .effects = Effect::StandardOutput,
     .manual = "Writes the bytes of `text` to standard output as they are, without a line end of "
               "its own. The output is buffered as the host's is, and a failure is not reported.",
     .example = R"(logStdout(""); true)"},
};

}  // namespace

std::span<const BuiltIn> systemBuiltIns() { return systemBuiltInsS; }

}  // namespace SCR
