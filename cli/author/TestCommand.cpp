#include <fcntl.h>
#include <fnmatch.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "cli/Command.h"
#include "cli/author/TestCases.h"
#include "cli/observe/Coverage.h"
#include "cli/observe/Page.h"
#include "cli/script/MessageText.h"
#include "cli/script/SourceText.h"

namespace Cli {
namespace {

namespace fs = std::filesystem;

struct TestOptions {
    std::vector<std::string> paths;
    std::string filter;
    std::string junit;
    std::vector<std::string> coverage;
    std::vector<std::string> options;  // of each run
    bool updates = false;
    bool lists = false;
    int jobs = static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
    std::int64_t timeout = 60;  // in seconds
};

// A folder for one case. It is removed with all that is in it.
class TestFolder {
public:
    TestFolder() {
        std::string name = (fs::temp_directory_path() / "kestrel-test-XXXXXX").string();
        if (mkdtemp(name.data()) != nullptr) path_ = name;
    }
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;
    ~TestFolder() {
        std::error_code error;
        if (!path_.empty()) fs::remove_all(path_, error);
    }
    bool isMade() const { return !path_.empty(); }
    const std::string& path() const { return path_; }
    std::string path(const char* name) const { return path_ + "/" + name; }
    std::string read(const char* name) const {
        std::ifstream stream(path(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(stream), {});
    }
    void write(const char* name, const std::string& text) const {
        std::ofstream(path(name), std::ios::binary) << text;
    }

private:
    std::string path_;
};

void replaceAll(std::string& text, const std::string& from, const std::string& to) {
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
        text.replace(at, from.size(), to);
    }
}

// As in the files of cases: control bytes and those above 127 as escapes, a line end at the end.
std::string printable(const std::string& text) {
    std::string shown;
    for (const char byte : text) {
        const auto code = static_cast<unsigned char>(byte);
        char escape[8] = {byte};
        if ((code < 32 && byte != '\n' && byte != '\t') || code >= 127) {
            std::snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned>(code));
        }
        shown += escape;
    }
    return shown.empty() || shown.ends_with('\n') ? shown : shown + '\n';
}

std::vector<std::string> wordsOf(const std::string& text) {
    std::vector<std::string> words;
    bool isQuoted = false;
    bool isBetween = true;
    for (const char byte : text) {
        if (byte == ' ' && !isQuoted) {
            isBetween = true;
            continue;
        }
        if (isBetween) words.emplace_back();
        isBetween = false;
        if (byte == '\'') {
            isQuoted = !isQuoted;
        } else {
            words.back() += byte;
        }
    }
    return words;
}

struct Result {
    bool isGood = false;
    std::string report;                         // why not, for people
    std::map<std::string, std::string> actual;  // by section
    std::string logKind;
    double seconds = 0;
};

struct Job {
    std::string path;  // of the file of cases
    TestCase test;
    Result result;
};

class Runner {
public:
    Runner(const TestOptions& options, std::string command)
        : options_(options), command_(std::move(command)) {}

    void run(Job& job);
    Coverage& coverage() { return coverage_; }

private:
    int execute(const std::vector<std::string>& words, const std::string& folder,
                const TestFolder& temporary) const;
    void compare(Job& job, int status, const TestFolder& folder) const;

    const TestOptions& options_;
    const std::string command_;
    std::mutex lock_;
    Coverage coverage_;
};

// No exit status and no signal: the command took too long.
constexpr int lateS = 256;

// The exit status, or 128 and the number of the signal that ended the command, or `lateS`.
int Runner::execute(const std::vector<std::string>& words, const std::string& folder,
                    const TestFolder& temporary) const {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    const std::string out = temporary.path("stdout");
    const std::string messages = temporary.path("stderr");
    const pid_t child = fork();
    if (child == 0) {
        const auto redirect = [](int descriptor, const char* path, int flags) {
            const int file = open(path, flags | O_CLOEXEC, 0600);
            return file >= 0 && dup2(file, descriptor) >= 0;
        };
        constexpr int writing = O_WRONLY | O_CREAT | O_TRUNC;
        setpgid(0, 0);
        if (chdir(folder.c_str()) == 0 && redirect(STDIN_FILENO, "/dev/null", O_RDONLY) &&
            redirect(STDOUT_FILENO, out.c_str(), writing) &&
            redirect(STDERR_FILENO, messages.c_str(), writing)) {
            execv(arguments[0], arguments.data());
        }
        _exit(127);
    }
    if (child < 0) return 127;
    int status = 0;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(options_.timeout);
    for (int wait = 1; waitpid(child, &status, WNOHANG) == 0; wait = std::min(wait * 2, 20)) {
        if (std::chrono::steady_clock::now() > end) {
            kill(-child, SIGKILL);
            waitpid(child, &status, 0);
            return lateS;
        }
        poll(nullptr, 0, wait);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void Runner::run(Job& job) {
    const auto begin = std::chrono::steady_clock::now();
    TestCase& test = job.test;
    const TestFolder folder;
    if (!folder.isMade()) {
        job.result.report = "no folder can be made for it\n";
        return;
    }
    for (std::string* text : {&test.script, &test.output, &test.log, &test.options}) {
        replaceAll(*text, "@TMP@", folder.path("own"));
    }
    fs::create_directory(folder.path("own"));
    std::vector<std::string> words{command_, "run", "--log"};
    words.insert(words.end(), options_.options.begin(), options_.options.end());
    const std::vector<std::string> own = wordsOf(test.options);
    words.insert(words.end(), own.begin(), own.end());
    if (test.hasRecords) {
        folder.write("records", test.records);
        for (const char* const word : {"--records", "--output", "--rejects"}) {
            words.emplace_back(word);
            words.push_back(folder.path(words.back() == "--records"  ? "records"
                                        : words.back() == "--output" ? "written"
                                                                     : "rejects"));
        }
    }
    if (!test.checks.empty()) {
        folder.write("checks", test.checks);
        words.insert(words.end(), {"--checks", folder.path("checks")});
    }
    if (!options_.coverage.empty()) {
        words.insert(words.end(), {"--coverage", folder.path("coverage")});
    }
    const std::string parent = fs::path(job.path).parent_path().string();
    const std::string at = parent.empty() ? "." : parent;
    if (test.file.empty()) {
        folder.write("script", test.script);
        words.insert(words.end(), {"-I", ".", folder.path("script")});
    } else {
        words.push_back(test.file);
    }
    const int status = execute(words, at, folder);
    compare(job, status, folder);
    if (!options_.coverage.empty() && !test.file.empty()) {
        const std::lock_guard lock(lock_);
        coverage_.add(folder.path("coverage"), at == "." ? "" : at + "/");
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    job.result.seconds = taken.count();
}

void Runner::compare(Job& job, int status, const TestFolder& folder) const {
    const TestCase& test = job.test;
    Result& result = job.result;
    std::string log = folder.read("stderr");
    if (const std::size_t summary = log.rfind("kestrel: coverage: ");
        summary != std::string::npos && !options_.coverage.empty()) {
        log.resize(summary);
    }
    std::string rejects = folder.read("rejects");
    for (std::string* text : {&log, &rejects}) replaceAll(*text, folder.path() + "/", "");
    result.actual["output"] = folder.read("stdout");
    result.actual["log"] = log;
    result.logKind = status == 3 ? "error" : status == 4 ? "stopped" : "log";
    if (test.hasRecords) {
        result.actual["written"] = folder.read("written");
        result.actual["rejects"] = rejects;
    }
    std::string& report = result.report;
    const int expected = !test.compiles ? 3 : test.isStopped ? 4 : 0;
    const bool isRefused = status == 1 && expected == 0 && test.checks.empty();
    if (status != expected && !isRefused) {
        report += status == lateS ? "  it took longer than " + std::to_string(options_.timeout) +
                                        " s, which --timeout allows\n"
                  : status > 128 ? "  it was ended by signal " + std::to_string(status - 128) + '\n'
                                 : "  it ended with status " + std::to_string(status) + ", not " +
                                       std::to_string(expected) + '\n';
    }
    const auto check = [&](const char* name, const std::string& wanted) {
        const std::string shown = printable(wanted);
        const std::string actual = printable(result.actual[name]);
        if (shown == actual) return;
        report += std::string("  ") + name + ":\n";
        std::size_t left = 40;
        for (const std::string& line : differenceOf(shown, actual)) {
            if (left-- == 0) {
                report += "    ...\n";
                break;
            }
            report += "    " + line + '\n';
        }
    };
    check("output", test.output);
    if (test.hasWritten) check("written", test.written);
    if (test.hasRecords) check("rejects", test.rejects);
    check("log", test.log);
    result.isGood = report.empty();
}

// Takes what happened for what is expected. `lines` are those of the file, `jobs` its cases.
std::size_t update(std::vector<std::string>& lines, const std::vector<const Job*>& jobs) {
    std::size_t updated = 0;
    // From the end, so that the numbers of earlier lines stay right.
    for (auto each = jobs.rbegin(); each != jobs.rend(); ++each) {
        const Job& job = **each;
        const TestCase& test = job.test;
        if (job.result.isGood || !test.fault.empty() || test.isOfTable) continue;
        struct Change {
            std::size_t begin, end;
            std::vector<std::string> lines;
        };
        std::vector<Change> changes;
        for (const auto& [name, actual] : job.result.actual) {
            const TestCase::Section* const section = test.section(name);
            const bool isShown = !actual.empty() || section != nullptr;
            if (!isShown) continue;
            const std::string header =
                "--- " + (name == "log" ? job.result.logKind : std::string(name));
            Change change{test.end, test.end, {header == "--- output" ? "---" : header}};
            if (section != nullptr) {
                change.begin = section->header;
                change.end = section->end;
                if (name != "log") change.lines[0] = lines[section->header];
            }
            std::istringstream text(printable(actual));
            for (std::string line; std::getline(text, line);) change.lines.push_back(line);
            changes.push_back(std::move(change));
        }
        std::stable_sort(changes.begin(), changes.end(),
                         [](const Change& a, const Change& b) { return a.begin > b.begin; });
        for (const Change& change : changes) {
            const auto at = [&](std::size_t line) {
                return lines.begin() + static_cast<std::ptrdiff_t>(line);
            };
            // A blank line between sections stays.
            lines.erase(at(change.begin), at(std::max(change.begin, change.end)));
            lines.insert(at(change.begin), change.lines.begin(), change.lines.end());
        }
        ++updated;
    }
    return updated;
}

std::string junitOf(const std::vector<Job>& jobs) {
    std::size_t failures = 0;
    for (const Job& job : jobs) failures += job.result.isGood ? 0 : 1;
    std::string out =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n"
        "<testsuite name=\"kestrel\" tests=\"" +
        std::to_string(jobs.size()) + "\" failures=\"" + std::to_string(failures) + "\">\n";
    for (const Job& job : jobs) {
        char seconds[32];
        std::snprintf(seconds, sizeof seconds, "%.3f", job.result.seconds);
        out += "<testcase classname=\"" + escaped(job.path) + "\" name=\"" +
               escaped(job.test.title) + "\" file=\"" + escaped(job.path) + "\" line=\"" +
               std::to_string(job.test.line) + "\" time=\"" + seconds + "\"";
        if (job.result.isGood) {
            out += "/>\n";
        } else {
            out += "><failure>";
            std::istringstream report(job.result.report);
            for (std::string line; std::getline(report, line);) out += escaped(line) + '\n';
            out += "</failure></testcase>\n";
        }
    }
    return out + "</testsuite>\n</testsuites>\n";
}

// The files of cases at `path`, which is one or a folder of them; none after a report.
std::vector<std::string> filesAt(const std::string& path) {
    std::vector<std::string> files;
    std::error_code error;
    if (!fs::is_directory(path, error)) {
        if (fs::is_regular_file(path, error)) {
            files.push_back(path);
        } else {
            report(path + ": " + (error ? error.message() : "no file of cases"));
        }
        return files;
    }
    for (fs::recursive_directory_iterator at(path, error), end; !error && at != end;
         at.increment(error)) {
        if (at->path().extension() == ".cases") files.push_back(at->path().lexically_normal());
    }
    std::sort(files.begin(), files.end());
    if (files.empty()) report(path + ": no files *.cases");
    return files;
}

bool isWanted(const TestOptions& options, const Job& job) {
    if (options.filter.empty()) return true;
    const std::string name = job.path + ": " + job.test.title;
    return fnmatch(("*" + options.filter + "*").c_str(), name.c_str(), 0) == 0;
}

void runAll(Runner& runner, std::vector<Job>& jobs, int threads) {
    std::atomic<std::size_t> next{0};
    const auto work = [&] {
        for (std::size_t i = next++; i < jobs.size(); i = next++) {
            Job& job = jobs[i];
            if (job.test.fault.empty()) {
                runner.run(job);
            } else {
                job.result.report = "  " + job.test.fault + '\n';
            }
        }
    };
    std::vector<std::thread> others;
    for (int i = 1; i < threads; ++i) others.emplace_back(work);
    work();
    for (std::thread& other : others) other.join();
}

ExitStatus run(const TestOptions& options) {
    std::vector<Job> jobs;
    std::map<std::string, std::vector<std::string>> lines;
    for (const std::string& path : options.paths) {
        const std::vector<std::string> files = filesAt(path);
        if (files.empty()) return ExitStatus::Usage;
        for (const std::string& file : files) {
            lines[file] = linesOfFile(file);
            std::vector<TestCase> tests = casesOf(lines[file], file);
            if (tests.empty()) {
                report(file + ": no cases, which begin with a line === TITLE");
                return ExitStatus::Usage;
            }
            for (TestCase& test : tests) {
                Job job{file, std::move(test), {}};
                if (isWanted(options, job)) jobs.push_back(std::move(job));
            }
        }
    }
    const auto nameOf = [](const Job& job) {
        return job.path + ":" + std::to_string(job.test.line) + ": " + readable(job.test.title);
    };
    if (options.lists) {
        for (const Job& job : jobs) std::printf("%s\n", nameOf(job).c_str());
        return ExitStatus::Success;
    }
    setenv("TZ", "UTC0", 1);
    Runner runner(options, fs::read_symlink("/proc/self/exe").string());
    runAll(runner, jobs, std::min(options.jobs, static_cast<int>(jobs.size())));
    std::size_t failed = 0;
    for (const Job& job : jobs) {
        if (job.result.isGood) continue;
        ++failed;
        std::printf("FAILED %s\n", nameOf(job).c_str());
        std::istringstream text(job.result.report);
        for (std::string line; std::getline(text, line);) {
            std::printf("%s\n", readable(line).c_str());
        }
    }
    ExitStatus status = failed == 0 ? ExitStatus::Success : ExitStatus::Rejected;
    std::size_t updated = 0;
    for (auto& [file, text] : lines) {
        if (!options.updates) break;
        std::vector<const Job*> ofFile;
        for (const Job& job : jobs) {
            if (job.path == file) ofFile.push_back(&job);
        }
        const std::size_t changed = update(text, ofFile);
        updated += changed;
        if (changed == 0) continue;
        std::string whole;
        for (const std::string& line : text) whole += line + '\n';
        std::error_code error;
        if (!writeFile(file + ".new", whole)) return ExitStatus::InputOutput;
        fs::rename(file + ".new", file, error);
        if (error) {
            report(file + ": " + error.message());
            return ExitStatus::InputOutput;
        }
    }
    if (options.updates && updated == failed) status = ExitStatus::Success;
    std::printf("%zu cases, %zu failed%s\n", jobs.size(), failed,
                options.updates ? (", " + std::to_string(updated) + " updated").c_str() : "");
    if (!options.junit.empty() && !writeFile(options.junit, junitOf(jobs))) {
        status = ExitStatus::InputOutput;
    }
    for (const std::string& path : options.coverage) {
        if (!runner.coverage().write(path, {})) status = ExitStatus::InputOutput;
    }
    if (!options.coverage.empty()) {
        std::printf("coverage: %s\n", runner.coverage().summary().c_str());
    }
    return status;
}

}  // namespace

void addTestCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<TestOptions>();
    CLI::App* command =
        app.add_subcommand("test", "Run the cases of a project, and show what differs");
    command
        ->add_option("PATH", options->paths,
                     "Files of cases, or folders with files *.cases (default: .)")
        ->type_name("");
    command
        ->add_option("--filter", options->filter,
                     "Run the cases whose file or title has TEXT, in which * stands for anything")
        ->type_name("TEXT");
    command->add_flag("--list", options->lists, "Name the cases and run none");
    command->add_flag("--update", options->updates,
                      "Write what happened into the files as what is expected");
    command->add_option("--jobs", options->jobs, "Run N cases at once (default: as processors)")
        ->type_name("N")
        ->check(CLI::Range(1, 256));
    command->add_option("--timeout", options->timeout, "End a case after N seconds (default 60)")
        ->type_name("N")
        ->check(CLI::Range(1, 86400));
    command->add_option("--junit", options->junit, "Write a report in JUnit's format")
        ->type_name("FILE");
    command
        ->add_option("--coverage", options->coverage,
                     "Write to FILE what the cases executed of the scripts that they name: a page "
                     "if it ends in .html, LCOV's format otherwise; may be repeated")
        ->type_name("FILE")
        ->allow_extra_args(false);
    command
        ->add_option("--option", options->options,
                     "An option of `kestrel run` for each case, as --option=--sandbox; may be "
                     "repeated")
        ->type_name("OPTION")
        ->allow_extra_args(false);
    command->footer(
        "docs/tools.md describes the cases. The local zone is UTC.\n\nExamples:\n"
        "  kestrel test\n"
        "  kestrel test tests/rates.cases --filter mobile --update\n"
        "  kestrel test tests --junit report.xml --coverage coverage.html");
    command->callback([options, &action] {
        if (options->paths.empty()) options->paths.emplace_back(".");
        action = [options] { return run(*options); };
    });
}

}  // namespace Cli
