// A host whose script can be changed while it runs: a file is watched, and each thread takes the
// new program before its next record. A text that does not compile changes nothing.

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "scr/HostExtension.h"
#include "scr/Program.h"
#include "scr/ScriptHandle.h"

namespace {

namespace fs = std::filesystem;

SCR::Program load(const fs::path& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return SCR::Program(text.str(), [](SCR::Interpreter& interpreter) {
        SCR::HostExtension::insert(interpreter, "host")->variable<long>("amount");
    });
}

// Replaces the program whenever the file has changed.
class FileWatcher {
public:
    FileWatcher(fs::path path, SCR::Live& live) : path_(std::move(path)), live_(live) {}

    void look() {
        std::error_code error;
        const fs::file_time_type written = fs::last_write_time(path_, error);
        if (error || written == seen_) return;
        seen_ = written;
        const SCR::Outcome outcome = live_.replace(load(path_));
        if (!outcome) std::printf("kept the old one: %s\n", outcome.diagnostic().text.c_str());
    }

private:
    const fs::path path_;
    SCR::Live& live_;
    fs::file_time_type seen_;
};

// Writes a script as an editor does: at once, under a new time.
void save(const fs::path& path, const std::string& text) {
    static fs::file_time_type time = fs::file_time_type::clock::now();
    std::ofstream(path) << text;
    fs::last_write_time(path, time += std::chrono::seconds(1));
}

}  // namespace

int main() {
    const fs::path path =
        fs::temp_directory_path() / ("rule." + std::to_string(::getpid()) + ".ks");
    SCR::Live live(SCR::Program(), {"total"});
    FileWatcher watcher(path, live);

    save(path, "Long total; total = total + amount;");
    watcher.look();
    SCR::LiveRunner runner(live, nullptr);
    const auto run = [&](long amount) {
        runner.refresh();
        SCR::Interpreter& interpreter = *runner.interpreter();
        interpreter.variable<long>("amount").set(amount);
        runner.execute();
        std::printf("total %ld\n", *interpreter.variable<long>("total").get());
    };
    run(5);
    save(path, "Long total; total = total + 2 * amount;");
    watcher.look();
    run(5);
    save(path, "Long total; total = total + ;");
    watcher.look();
    run(5);

    // While a thread executes, another one replaces the program: no record is lost.
    std::atomic<long> records = 0;
    std::thread worker([&] {
        SCR::LiveRunner own(live, nullptr);
        while (live.version() < 20) records += own.execute() ? 1 : 0;
    });
    while (records == 0) std::this_thread::yield();
    while (live.version() < 20) {
        save(path, "Long total; total = total + " + std::to_string(live.version()) + ";");
        watcher.look();
    }
    worker.join();
    std::printf("%s\n", records > 0 ? "replaced while running" : "nothing ran");
    fs::remove(path);
}
