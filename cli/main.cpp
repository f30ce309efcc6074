#include <poll.h>
#include <stdio_ext.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iostream>
#include <new>
#include <string>
#include <vector>

#include "cli/Command.h"
#include "scr/Interpreter.h"
#include "scr/Output.h"

namespace Cli {

namespace {

bool wasStoppedG = false;  // a script was stopped

}  // namespace

void writeOut(std::string_view text) { std::fwrite(text.data(), 1, text.size(), stdout); }

std::string checkNumber(const std::string& text, std::int64_t least) {
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, number);
    if (error == std::errc() && last == end && number >= least) return {};
    return text + " is no number from " + std::to_string(least) + " on";
}

void report(const std::string& message) {
    flushOutput(false);
    std::fprintf(stderr, "kestrel: %s\n", message.c_str());
}

ExitStatus statusAfter(ExitStatus status, const SCR::OutputFailures& failures) {
    bool isReported = false;
    for (const SCR::OutputFailure& failure : failures.first()) {
        if (failure.error == EINTR) continue;  // the script was stopped there, and reports that
        // Bytes that standard output did not take once are not tried again.
        if (failure.name == "standard output") __fpurge(stdout);
        report(failure.name + ": " + std::strerror(failure.error));
        isReported = true;
    }
    wasStoppedG = wasStoppedG || status == ExitStatus::Stopped;
    if (!isReported) return status;
    if (failures.first().size() == SCR::OutputFailures::mostCM) {
        report("outputs failed " + std::to_string(failures.count()) + " times in all");
    }
    return ExitStatus::InputOutput;
}

bool flushOutput(bool mayWait) {
    if (SCR::standardOutput().flush(mayWait)) return true;
    const int error = errno;
    if (error == EPIPE) endByClosedPipe();
    errno = error;
    return false;
}

void endByClosedPipe() { std::raise(SIGPIPE); }

namespace {

struct NamedCommand {
    const char* name;
    AddCommand add;
    bool listsOthers = false;  // it looks at the options of all
};

constexpr NamedCommand commandsS[] = {
    {"run", addRunCommand},         {"test", addTestCommand},
    {"query", addQueryCommand},     {"conditions", addConditionsCommand},
    {"check", addCheckCommand},     {"why", addWhyCommand},
    {"debug", addDebugCommand},     {"repl", addReplCommand},
    {"profile", addProfileCommand}, {"explain", addExplainCommand},
    {"fmt", addFormatCommand},      {"functions", addFunctionsCommand},
    {"match", addMatchCommand},     {"merge", addMergeCommand},
    {"encrypt", addEncryptCommand}, {"decrypt", addDecryptCommand},
    {"prompt", addPromptCommand},   {"completion", addCompletionCommand, true},
    {"man", addManCommand, true},
#ifdef KESTREL_LSP
    {"lsp", addLspCommand},
#endif
#ifdef KESTREL_HAS_NATS
    {"work", addWorkCommand},
#endif
};

// Adds the command that is named first, or all when there is none. A command is hundreds of small
// objects, so adding those that are not asked for took a third of the time in which a script
// starts.
void addCommands(CLI::App& app, Action& action, const char* first) {
    const auto* const named =
        std::find_if(std::begin(commandsS), std::end(commandsS), [&](const NamedCommand& command) {
            return first != nullptr && std::strcmp(command.name, first) == 0;
        });
    if (named != std::end(commandsS) && !named->listsOthers) {
        named->add(app, action);
        return;
    }
    for (const NamedCommand& command : commandsS) command.add(app, action);
}

// The arguments in reverse, as the parser takes them. A flag takes a value only after "=".
std::vector<std::string> argumentsOf(int argc, char** argv) {
    std::vector<std::string> arguments;
    for (int i = 1; i < argc; ++i) {
        const bool isFormat =
            std::strcmp(argv[i], "json") == 0 || std::strcmp(argv[i], "text") == 0;
        if (isFormat && !arguments.empty() && arguments.back() == "--stats") {
            arguments.back() += std::string("=") + argv[i];
        } else {
            arguments.emplace_back(argv[i]);
        }
    }
    std::reverse(arguments.begin(), arguments.end());
    return arguments;
}

ExitStatus perform(int argc, char** argv) {
    CLI::App app("Compile and run scripts of the Kestrel language.", "kestrel");
    app.set_version_flag("--version", [] {
        const bool hasNative = SCR::Interpreter::highestCodeTier() == SCR::CodeTier::Native;
        return std::string("kestrel " KESTREL_VERSION "\nscripts run in the ") +
               (hasNative ? "native" : "portable") + " tier";
    });
    app.require_subcommand(0, 1);
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    app.get_formatter()->label("Subcommands", "Commands");
    app.failure_message([](const CLI::App* /*app*/, const CLI::Error& error) {
        return std::string("kestrel: ") + error.what() + "\nRun with --help for more.\n";
    });
    app.footer(
        "Examples:\n"
        "  kestrel run rate.ks\n"
        "  kestrel check scripts/*.ks\n"
        "  kestrel match -f patterns < texts\n"
        "\n"
        "kestrel COMMAND --help describes a command.\n"
        "\n"
        "Exit status:\n"
        "  0   compiled and ran\n"
        "  1   rejected records that no --rejects took, or the script declared itself unusable\n"
        "  2   bad usage, or a script or an input that cannot be read\n"
        "  3   a script does not compile\n"
        "  4   stopped by a signal, a limit, or a failure under --on-error stop\n"
        "  74  reading or writing failed underway\n"
        "  75  worth trying again: no memory, files or threads to be had, or a changed input");
    Action action;
    addCommands(app, action, argc > 1 ? argv[1] : nullptr);
    try {
        app.parse(argumentsOf(argc, argv));
    } catch (const CLI::ParseError& error) {
        // Help and version end the parsing by an "error" with status 0.
        return app.exit(error) == 0 ? ExitStatus::Success : ExitStatus::Usage;
    }
    if (action) return action();
    report("no command given\nRun with --help for more.");
    return ExitStatus::Usage;
}

/// Writes out what standard output still holds. False when that, or any write before, failed. After
/// a script was stopped, waits for the reader for at most a second.
bool finishOutput() {
    constexpr int steps = 20;
    bool isFlushed = flushOutput(!wasStoppedG);
    for (int step = 0; wasStoppedG && !isFlushed && errno == EAGAIN && step < steps; ++step) {
        poll(nullptr, 0, 50);
        isFlushed = flushOutput(false);
    }
    const int error = isFlushed ? 0 : errno;
    if (!isFlushed) __fpurge(stdout);
    if (isFlushed && std::cout && std::ferror(stdout) == 0) return true;
    report(std::string("standard output: ") + (error == EAGAIN ? "nobody reads it"
                                               : error != 0    ? std::strerror(error)
                                                               : "an earlier write failed"));
    return error == EAGAIN;
}

}  // namespace
}  // namespace Cli

int main(int argc, char** argv) {
    Cli::ExitStatus status = Cli::ExitStatus::Success;
    try {
        status = Cli::perform(argc, argv);
    } catch (const std::bad_alloc&) {
        Cli::report("out of memory");
        status = Cli::ExitStatus::TryAgain;
    } catch (const std::exception& error) {
        Cli::report(error.what());
        status = Cli::ExitStatus::Stopped;
    }
    if (!Cli::finishOutput()) status = Cli::ExitStatus::InputOutput;
    return static_cast<int>(status);
}
