// A host with records in memory: a script rates calls, a condition finds the expensive ones.

#include <cstdio>
#include <string>
#include <vector>

#include "scr/ConditionList.h"
#include "scr/HostExtension.h"

namespace {

struct Call {
    FND::String place;
    long seconds;
    FND::Decimal price{};
};

class StderrLog final : public SCR::Log {
public:
    void log(const FND::String& message, FND::Status::Severity) override {
        std::fprintf(stderr, "%s\n", message.c_str());
    }
};

constexpr const char* scriptS = R"(
    Decimal total;
    Long calls;
    price = perMinute(place) * round(longToDecimal(edrLong(seconds)) / 60, 0, ROUND_UP);
    if (price > 0) {
        total = total + price;
        calls = calls + 1;
    }
    summary = "total " + decimalToStr(total, 2) + " of " + longToStr(calls) + " calls";
)";

}  // namespace

int main() {
    std::vector<Call> calls{{"Berlin", 175}, {"Lima", 240}, {"Oslo", 0}};
    const Call* current = nullptr;

    StderrLog log;
    SCR::Interpreter interpreter(&log);
    SCR::HostExtension& host = *SCR::HostExtension::insert(interpreter, "host");

    // Two ways to reach a record: variables that the host fills, and fields that scripts ask for.
    auto place = host.variable<FND::String>("place");
    auto price = host.variable<FND::Decimal>("price");
    auto summary = host.variable<FND::String>("summary");
    host.fieldIds([](const FND::String& name) { return name == "seconds" ? 0L : -1L; });
    host.function("edrLong", [&](SCR::FieldAlias) { return current->seconds; });
    host.function("perMinute", [](std::string_view to) {
        return FND::Decimal::fromString(to == "Lima" ? "1.875" : "1.2");
    });

    if (!interpreter.compile(scriptS)) return 1;
    SCR::ConditionList conditions(interpreter);
    if (!conditions.compile("price > 5.0; place =~ \"B.*\";")) return 1;

    for (Call& call : calls) {
        current = &call;
        place = call.place;
        if (!interpreter.execute()) return 1;
        call.price = price;
        bool isDear = false;
        if (!conditions.holds(0, isDear)) return 1;
        std::printf("%s %s%s\n", call.place.c_str(), call.price.toString(2).c_str(),
                    isDear ? " dear" : "");
    }
    std::printf("%s\n", summary.value().c_str());
    return 0;
}
