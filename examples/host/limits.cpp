// A host that tells how the scripts of strangers ended.
#include <cstdio>

#include "scr/HostExtension.h"
namespace {

constexpr const char* scriptsS[] = {"while (true) {}", "String s = \"x\"; while (true) s = s + s;",
                                    "price(1);", "prize(1);", "Long n = 1;"};

}  // namespace

int main() {
    for (const char* const text : scriptsS) {
        SCR::Interpreter interpreter(nullptr);
        interpreter.limits({.steps = 1000000, .memory = 1 << 20});
        SCR::HostExtension::insert(interpreter, "host")
            ->function("price", [](SCR::Interpreter& running, long) { running.fail("no price"); });
        SCR::Outcome ended = interpreter.tryCompile(text);
        if (ended) ended = interpreter.tryExecute();
        using Kind = SCR::Outcome::Kind;
        if (ended)
            std::printf("fine\n");
        else if (ended.kind() == Kind::Stopped)
            std::printf("stopped: %s\n", ended.limit().c_str());
        else if (ended.kind() == Kind::Failed)
            std::printf("failed: %s\n", ended.function().c_str());
        else
            std::printf("invalid: %s\n", ended.diagnostic().text.c_str());
    }
}
