#include <cstdio>
#include <string>

#include "scr/HostExtension.h"

int main() {
    SCR::Log log;
    SCR::Interpreter interpreter(&log);
    auto* host = SCR::HostExtension::insert(interpreter, "host");
    host->function("print", [](std::string_view text) { std::puts(std::string(text).c_str()); });
    auto amount = host->variable<long>("amount", 7);
    if (!interpreter.compile("amount = amount * 6; print(\"7 * 6 = \" + longToStr(amount));"))
        return 1;
    return interpreter.execute() && amount == 42 ? 0 : 1;
}
