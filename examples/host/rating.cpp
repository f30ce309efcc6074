// A host that rates calls: the script holds tariffs of the host, and records come as columns.
#include <cstdio>
#include <map>
#include <vector>

#include "scr/Batch.h"
#include "scr/HostExtension.h"

namespace {

struct Tariff {
    FND::Decimal perMinute;
    long freeSeconds;
};

using Tariffs = std::map<FND::String, Tariff, std::less<>>;

constexpr const char* scriptS = R"(
    String zone;
    Long seconds;
    Decimal price;
    Tariff paid = tariff(zone);
    Long left = seconds - freeSeconds(paid);
    if (left < 0) left = 0;
    price = perMinute(paid) * longToDecimal(left) / 60.0;
)";

}  // namespace

int main() {
    Tariffs tariffs{{"DE", {FND::Decimal::fromString("0.12"), 60}},
                    {"PE", {FND::Decimal::fromString("0.9"), 0}}};
    SCR::Interpreter interpreter(nullptr);
    SCR::HostExtension& host = *SCR::HostExtension::insert(interpreter, "host");
    host.type<Tariff>("Tariff");
    host.function("tariff", [&](std::string_view zone) {
        const auto found = tariffs.find(zone);
        return found == tariffs.end() ? nullptr : SCR::Object(&found->second);
    });
    host.function("perMinute", [](SCR::Object<Tariff> tariff) { return tariff->perMinute; });
    host.function("freeSeconds", [](SCR::Object<Tariff> tariff) { return tariff->freeSeconds; });
    const SCR::Outcome made = interpreter.tryCompile(scriptS);
    if (!made) {
        std::printf("%s\n", made.diagnostic().text.c_str());
        return 1;
    }

    const std::vector<FND::String> zones{"DE", "XX", "PE"};
    const std::vector<long> seconds{90, 10, 60};
    std::vector<FND::Decimal> prices(zones.size());
    const SCR::Column columns[] = {SCR::input("zone", zones), SCR::input("seconds", seconds),
                                   SCR::output("price", prices)};
    for (std::size_t next = 0; next < zones.size();) {
        const SCR::BatchOutcome batch = interpreter.executeBatch(columns, zones.size(), next);
        next = batch.record();
        if (!batch) std::printf("record %zu: %s\n", next++, batch.diagnostic().text.c_str());
    }
    for (const FND::Decimal& price : prices) std::printf("%s\n", price.toString(2).c_str());
}
