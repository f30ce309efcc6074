// Compares Kestrel with other embeddable engines: the same work in each, whose outputs must agree,
// in turns, the median of several rounds, processor time. Prints the seconds that Kestrel takes and
// their ratio to each peer's: below 1 Kestrel is faster.
//
// With --itself it compares Kestrel with limits, and in its other tiers, instead.
//
// usage: kestrel_compare [--itself] [--rounds N] [--records N] [--save FILE] [--against FILE]
//                        [WORKLOAD...]
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "Inputs.h"
#include "Program.h"
#include "Results.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* workloadsS = KESTREL_BENCH_WORKLOADS;
constexpr const char* programsS = KESTREL_BENCH_PROGRAMS;
constexpr const char* kestrelS = KESTREL_BENCH_KESTREL;

struct Options {
    int rounds = 5;
    long records = 2'000'000;
    std::string save;
    std::string against;
    std::vector<std::string> workloads;
    bool comparesItself = false;  // with its other tiers and limits, not with peers
};

/// A workload: a folder of scripts, and programs named after it.
struct Workload {
    const char* name;
    const char* folder;                // with peer.lua and so on
    std::vector<std::string> command;  // ours, after the command's name
    bool isProgram = false;            // ours is a program too
    const char* peers = "peer";        // the scripts' name without extension
};

const Workload workloadTableS[] = {
    {"integer loop", "integer_loop", {"run", "@/script.ks"}},
    {"nested for", "nested_for", {"run", "@/script.ks"}},
    {"function calls", "calls", {"run", "@/script.ks"}},
    {"strings", "strings", {"run", "@/script.ks"}},
    {"hash counting", "hash_count", {"run", "@/script.ks"}},
    {"sieve", "sieve", {"run", "@/script.ks"}},
    {"decimals", "decimals", {"run", "@/script.ks"}},
    {"switch", "switch", {"run", "@/script.ks"}},
    {"regExprSwitch", "regexpr_switch", {"run", "regexpr_switch.ks"}},
    {"regexpr search", "regexpr_search", {"run", "@/script.ks"}},
    {"dates", "dates", {"run", "@/script.ks"}},
    {"record job in script", "record_job", {"run", "@/script.ks"}},
    {"record job --records",
     "record_job",
     {"run", "@/records.ks", "--records", "calls.csv", "--fields",
      "caller,called,seconds,rate,price"}},
    {"compile 200000 lines", "", {"run", "generated.ks"}, false, "generated"},
    {"embedded rule", "embedded", {}, true},
    {"capture by pattern", "text_capture", {"run", "@/script.ks"}},
    {"replace by pattern", "text_replace", {"run", "@/script.ks"}},
    {"sort texts", "text_sort", {"run", "@/script.ks"}},
    {"sort decimals", "decimal_sort", {"run", "@/script.ks"}},
    {"SHA-256", "sha256", {"run", "@/script.ks"}},
    {"dates into a zone", "zones", {"run", "@/script.ks"}},
    {"ranges of addresses", "ranges", {"run", "@/script.ks"}},
};

/// A way to run the peers' scripts.
struct Interpreter {
    const char* name;
    const char* extension;
    std::vector<std::string> command;
};

const Interpreter interpretersS[] = {
    {"Lua", ".lua", {"lua5.4"}},
    {"LuaJIT", ".lua", {"luajit"}},
    {"AngelScript", ".as", {std::string(programsS) + "/angelscript_host"}},
    {"Python", ".py", {"/usr/bin/python3"}},
    {"mawk", ".awk", {"mawk", "-f"}},
    {"Miller", ".sh", {"sh"}},
};

/// A program of a workload: the name of its file is the folder's and the suffix.
struct PeerProgram {
    const char* name;
    const char* folder;
    const char* suffix;
};

constexpr PeerProgram peerProgramsS[] = {
    {"Lua", "embedded", "_lua"},
    {"LuaJIT", "embedded", "_luajit"},
    {"AngelScript", "embedded", "_angelscript"},
    {"libgcc _Decimal128", "decimals", "_libgcc"},
    {"128-bit integers", "decimals", "_integers"},
    {"C++ by hand", "record_job", "_cpp"},
    {"RE2::Set", "regexpr_switch", "_re2"},
    {"PCRE2 JIT", "regexpr_switch", "_pcre2"},
    {"RE2", "regexpr_search", "_re2"},
    {"PCRE2 JIT", "regexpr_search", "_pcre2"},
    {"C library", "dates", "_libc"},
};

/// Kestrel itself in another way, which `kestrel run` takes as options.
struct Variant {
    const char* name;
    std::vector<std::string> options;
};

const Variant variantsS[] = {
    {"with limits",
     {"--limit", "steps=1000000000000", "--limit", "time=1000000000", "--limit",
      "memory=8000000000"}},
    {"portable", {"--tier", "portable"}},
    {"tree", {"--tier", "tree"}},
};

struct Contender {
    std::string name;
    std::vector<std::string> command;
    std::vector<double> seconds;
    bool isSkipped = false;
};

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// Ours first, then the available peers, or our own other ways.
std::vector<Contender> contendersOf(const Workload& workload, bool comparesItself) {
    const std::string scripts = std::string(workloadsS) + "/" + workload.folder;
    Contender ours{"Kestrel", {}, {}, false};
    if (workload.isProgram) {
        ours.command = {std::string(programsS) + "/" + workload.folder + "_kestrel"};
    } else {
        ours.command = {kestrelS};
        for (std::string argument : workload.command) {
            if (argument.front() == '@') argument.replace(0, 1, scripts);
            ours.command.push_back(argument);
        }
    }
    std::vector<Contender> contenders{ours};
    if (comparesItself) {
        for (const Variant& variant : variantsS) {
            if (workload.command.empty() || workload.command.front() != "run") break;
            Contender other{variant.name, ours.command, {}, false};
            other.command.insert(other.command.end(), variant.options.begin(),
                                 variant.options.end());
            contenders.push_back(other);
        }
        return contenders;
    }
    for (const Interpreter& interpreter : interpretersS) {
        const std::string name = std::string(workload.peers) + interpreter.extension;
        const std::string script = *workload.folder != '\0' ? scripts + "/" + name : name;
        if (!fs::exists(script)) continue;
        if (!hasProgram(interpreter.command.front())) {
            std::printf("%s: no %s, skipped\n", workload.name, interpreter.name);
            continue;
        }
        Contender peer{interpreter.name, interpreter.command, {}, false};
        peer.command.push_back(script);
        contenders.push_back(peer);
    }
    for (const PeerProgram& program : peerProgramsS) {
        if (workload.folder != std::string_view(program.folder)) continue;
        const std::string file = std::string(programsS) + "/" + program.folder + program.suffix;
        if (!hasProgram(file)) {
            std::printf("%s: no %s, skipped\n", workload.name, program.name);
            continue;
        }
        contenders.push_back({program.name, {file}, {}, false});
    }
    return contenders;
}

// Measures a workload and prints its line; false when a contender failed or gave another output.
bool compare(const Workload& workload, const Options& options, const Results& before,
             Results& results) {
    std::vector<Contender> contenders = contendersOf(workload, options.comparesItself);
    bool isGood = true;
    std::string expected;
    // The first round only warms up and compares the outputs.
    for (int round = -1; round < options.rounds; ++round) {
        for (Contender& contender : contenders) {
            if (contender.isSkipped) continue;
            const ProgramRun run = runProgram(contender.command, ".");
            if (run.lacksLibrary) {
                std::printf("%s: no library for %s, skipped\n", workload.name,
                            contender.name.c_str());
                contender.isSkipped = true;
                continue;
            }
            if (!run.hasSucceeded) {
                std::printf("%s: %s failed\n", workload.name, contender.name.c_str());
                return false;
            }
            if (round >= 0) {
                contender.seconds.push_back(run.seconds);
            } else if (&contender == &contenders.front()) {
                expected = run.output;
            } else if (run.output != expected) {
                std::printf("%s: %s gives another output\n", workload.name, contender.name.c_str());
                isGood = false;
            }
        }
    }
    const double ours = median(contenders.front().seconds);
    std::printf("%-21s %7.3f s", workload.name, ours);
    for (const Contender& contender : contenders) {
        if (contender.isSkipped) continue;
        const double seconds = median(contender.seconds);
        results[{workload.name, contender.name}] = seconds;
        if (&contender == &contenders.front()) {
            const auto earlier = before.find({workload.name, contender.name});
            if (earlier != before.end()) std::printf("  (x %.2f)", seconds / earlier->second);
        } else {
            std::printf("  %s %.2f", contender.name.c_str(), ours / seconds);
        }
    }
    std::printf("\n");
    std::fflush(stdout);
    return isGood;
}

bool parse(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (!argument.starts_with("--")) {
            options.workloads.push_back(argument);
            continue;
        }
        if (argument == "--itself") {
            options.comparesItself = true;
            continue;
        }
        if (++i == argc) return false;
        if (argument == "--rounds") {
            options.rounds = std::atoi(argv[i]);
        } else if (argument == "--records") {
            options.records = std::atol(argv[i]);
        } else if (argument == "--save") {
            options.save = fs::absolute(argv[i]);
        } else if (argument == "--against") {
            options.against = fs::absolute(argv[i]);
        } else {
            return false;
        }
    }
    return options.rounds > 0;
}

bool isWanted(const Workload& workload, const Options& options) {
    const auto& wanted = options.workloads;
    return wanted.empty() || std::find(wanted.begin(), wanted.end(), workload.name) != wanted.end();
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parse(argc, argv, options)) {
        std::fprintf(stderr,
                     "usage: kestrel_compare [--itself] [--rounds N] [--records N] [--save FILE] "
                     "[--against FILE] [WORKLOAD...]\n");
        return 2;
    }
    setenv("TZ", "UTC", 1);
    const fs::path work = fs::path(programsS) / "work";
    fs::create_directories(work);
    fs::current_path(work);
    constexpr long lines = 200'000;
    if (!writeInputs(".", options.records, lines)) {
        std::fprintf(stderr, "kestrel_compare: cannot write to %s\n", work.c_str());
        return 1;
    }
    const Results before = options.against.empty() ? Results() : loadResults(options.against);
    Results results;
    bool isGood = true;
    std::printf("Kestrel's processor time, median of %d rounds, and its ratio to each peer's\n",
                options.rounds);
    for (const Workload& workload : workloadTableS) {
        if (isWanted(workload, options) && !compare(workload, options, before, results)) {
            isGood = false;
        }
    }
    if (!options.save.empty() && !saveResults(options.save, results)) isGood = false;
    return isGood ? 0 : 1;
}
