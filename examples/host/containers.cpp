// A host whose functions take arrays of scripts.

#include <algorithm>
#include <cstdio>

#include "scr/HostExtension.h"

int main() {
    SCR::Log log;
    SCR::Interpreter interpreter(&log);
    SCR::HostExtension& host = *SCR::HostExtension::insert(interpreter, "host");
    host.function("squares", [](SCR::ArrayView<long> from, SCR::ArrayRef<long> to) {
        const unsigned long count = from.size();
        for (unsigned long i = 0; i < count; ++i) to.set(i, from[i] * from[i]);
        return to.resize(count);
    });
    host.functionOver<long, FND::Decimal, FND::String>(
        "largest", []<class T>(SCR::ArrayView<T> all) {
            return all.size() > 0 ? *std::max_element(all.begin(), all.end()) : T();
        });
    auto result = host.variable<long>("result");
    const bool isDone = interpreter.compile(
                            "Long a[]; a[0] = 3; a[1] = -5; a[2] = 2;"
                            "if (squares(a, a)) result = largest(a);") &&
                        interpreter.execute();
    std::printf("%ld\n", result.value());
    return isDone && result == 25 ? 0 : 1;
}
