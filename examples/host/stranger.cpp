// A host that runs a stranger's script. The script may read tariffs and write results, takes no
// more than it is granted, and runs in a time zone that is the same everywhere.

#include <cstdio>
#include <filesystem>
#include <string>

#include "scr/Interpreter.h"

namespace {

class StderrLog final : public SCR::Log {
public:
    void log(const FND::String& message, FND::Status::Severity) override {
        std::fprintf(stderr, "%s\n", message.c_str());
    }
};

constexpr const char* scriptS = R"(
    File file;
    if (fileOpen(file, "tariffs/day", "w")) logStdout("wrote a tariff\n");
    if (fileOpen(file, "results/../tariffs", "r")) logStdout("read a folder\n");
    if (fileOpen(file, "/proc/self/mem", "r+")) logStdout("reached memory\n");
    if (fileOpen(file, "results/midnight", "w")) {
        Date midnight = strToDate("2024-06-30 22:00:00");
        if (fileWriteStr(file, dateToStr(midnight, "%H:%M %L"))) logStdout("wrote a result\n");
    })";

}  // namespace

int main() {
    std::filesystem::create_directories("tariffs");
    std::filesystem::create_directories("results");
    StderrLog log;
    SCR::Interpreter interpreter(&log);
    SCR::Limits limits;
    limits.time = 1'000;
    limits.memory = 64 << 20;
    interpreter.limits(limits);
    SCR::Capabilities capabilities = SCR::Capabilities::none();
    capabilities.allow("files=results");
    capabilities.allow("files-ro=tariffs");
    if (!interpreter.capabilities(capabilities)) return 1;
    if (!interpreter.timeZone("CET-1CEST,M3.5.0,M10.5.0/3")) return 1;
    return interpreter.compile(scriptS) && interpreter.execute() ? 0 : 1;
}
