#include <cstdio>

#include "embedded_rule.h"
#include "scr/HostExtension.h"

int main() {
    SCR::Log log;
    SCR::Interpreter interpreter(&log);
    SCR::HostExtension& host = *SCR::HostExtension::insert(interpreter, "host");
    auto seconds = host.variable<long>("seconds");
    auto rate = host.variable<long>("rate");
    auto zone = host.variable<long>("zone");
    auto price = host.variable<long>("price");
    if (!interpreter.compile("Long cost = seconds * rate;"
                             "if (cost > 1000) { cost = cost - zone; }"
                             "price = cost + zone * 5;")) {
        return 1;
    }
    long sum = 0;
    for (long i = 0; i < executionsS; ++i) {
        seconds = i % 600;
        rate = i % 7;
        zone = i % 3;
        if (!interpreter.execute()) return 1;
        sum += price;
    }
    std::printf("%ld\n", sum);
}
