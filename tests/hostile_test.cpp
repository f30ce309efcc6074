// Runs the scripts of hostile/, each of which tries to take more than it is granted, in a process
// of its own. The first lines of a script say what it is granted and what it must log:
//
//     // limit memory=20000000
//     // log: ERROR: line 4: script stopped: limit `memory' of 20000000 passed
//
// Without a "log" line the script must run to its end. The process gets little more address space
// than the memory limit, so that allocations that escape the limit fail; allocations are also
// counted. @TMP@ stands for an empty folder.

#include <sys/resource.h>

#include "Allocations.h"
#include "Folder.h"
#include "Script.h"

namespace {

namespace fs = std::filesystem;

struct HostileScript {
    std::string name, text, log;
    SCR::Limits limits;
    bool isStopped = false;
};

HostileScript readScript(const fs::path& path) {
    HostileScript script;
    script.name = path.stem();
    std::ifstream file(path);
    script.text.assign(std::istreambuf_iterator<char>(file), {});
    std::istringstream lines(script.text);
    for (std::string line; std::getline(lines, line) && line.starts_with("// ");) {
        const std::size_t equals = line.find('=');
        if (line.starts_with("// limit ") && equals != std::string::npos) {
            const auto limit = SCR::limitOfName(line.substr(9, equals - 9));
            EXPECT_NE(limit, nullptr) << line;
            if (limit != nullptr) script.limits.*limit = std::stoll(line.substr(equals + 1));
        } else if (line.starts_with("// log: ")) {
            script.log = line.substr(8) + '\n';
        }
    }
    script.isStopped = script.log.find("script stopped") != std::string::npos;
    return script;
}

// Limits the address space to what is mapped now, the memory limit and some room for the rest.
void boundAddressSpace(const SCR::Limits& limits) {
    if (KESTREL_SANITIZED) return;
    constexpr rlim_t rest = 24 << 20;
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    rlimit bound{};
    bound.rlim_cur = bound.rlim_max =
        static_cast<rlim_t>(pages) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + rest +
        static_cast<rlim_t>(std::min<std::int64_t>(limits.memory, 20'000'000));
    setrlimit(RLIMIT_AS, &bound);
}

// The fault in a run of the script; empty when there is none.
std::string faultOf(const HostileScript& script) {
    boundAddressSpace(script.limits);
    const std::int64_t held = Allocations::startPeak();
    Harness::MemoryLog log;
    SCR::Interpreter interpreter(&log);
    interpreter.limits(script.limits);
    if (!interpreter.compile(script.text)) return "does not compile: " + log.text;
    for (int turn = 0; turn < 2; ++turn) {
        log.text.clear();
        if (interpreter.execute() == script.isStopped) return "gave the wrong result";
        if (log.text != script.log) return "logged: " + log.text;
        if (!script.isStopped) break;
    }
    constexpr std::int64_t besides = 8 << 20;
    if (const std::int64_t taken = Allocations::peak() - held;
        taken - besides > script.limits.memory) {
        return "took " + std::to_string(taken) + " bytes";
    }
    if (!interpreter.compile("function END { logStdout(\"\"); } Long n; n = 1;")) {
        return "the interpreter does not compile any more: " + log.text;
    }
    return interpreter.execute() ? "" : "the interpreter does not execute any more: " + log.text;
}

class HostileTest : public testing::TestWithParam<fs::path> {};

TEST_P(HostileTest, IsStopped) {
    const Harness::Folder folder;
    HostileScript script = readScript(GetParam());
    const std::string mark = "@TMP@";
    for (std::size_t at = 0; (at = script.text.find(mark, at)) != std::string::npos;) {
        script.text.replace(at, mark.size(), folder.path());
    }
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const std::string fault = faultOf(script);
        if (!fault.empty()) std::fprintf(stderr, "%s %s\n", script.name.c_str(), fault.c_str());
        _exit(fault.empty() ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "wait status " << status;
}

std::vector<fs::path> scripts() {
    std::vector<fs::path> found;
    for (const fs::directory_entry& entry : fs::directory_iterator(KESTREL_TEST_DATA "/hostile")) {
        if (entry.path().extension() == ".ks") found.push_back(entry.path());
    }
    std::sort(found.begin(), found.end());
    return found;
}

INSTANTIATE_TEST_SUITE_P(Scripts, HostileTest, testing::ValuesIn(scripts()),
                         [](const auto& each) { return each.param.stem().string(); });

}  // namespace
