#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iostream>
#include <new>
#include <string>

#include "cli/Command.h"

namespace Cli {

void report(const std::string& message) {
    std::fflush(stdout);
    std::fprintf(stderr, "kestrel: %s\n", message.c_str());
}

namespace {

constexpr AddCommand commandsS[] = {addRunCommand,     addQueryCommand,     addConditionsCommand,
                                    addCheckCommand,   addFunctionsCommand, addMatchCommand,
                                    addEncryptCommand, addDecryptCommand};

ExitStatus perform(int argc, char** argv) {
    CLI::App app("Compile and run scripts of the Kestrel language.", "kestrel");
    app.set_version_flag("--version", "kestrel " KESTREL_VERSION);
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
        "  1   ran, but declared itself unusable or left records rejected\n"
        "  2   bad usage, or a script that cannot be read\n"
        "  3   a script does not compile\n"
        "  4   stopped by a limit or an interruption\n"
        "  74  reading or writing failed underway");
    Action action;
    for (const AddCommand addCommand : commandsS) addCommand(app, action);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // Help and version end the parsing by an "error" of status 0.
        return app.exit(error) == 0 ? ExitStatus::Success : ExitStatus::Usage;
    }
    if (action) return action();
    report("no command given\nRun with --help for more.");
    return ExitStatus::Usage;
}

/// Writes out what standard output still holds. False when that, or any write before, failed.
bool finishOutput() {
    errno = 0;
    const bool flushed = static_cast<bool>(std::cout.flush()) && std::fflush(stdout) == 0;
    if (flushed && std::ferror(stdout) == 0) return true;
    report(std::string("standard output: ") +
           (errno != 0 ? std::strerror(errno) : "an earlier write failed"));
    return false;
}

}  // namespace
}  // namespace Cli

int main(int argc, char** argv) {
    Cli::ExitStatus status = Cli::ExitStatus::Success;
    try {
        status = Cli::perform(argc, argv);
    } catch (const std::bad_alloc&) {
        Cli::report("out of memory");
        status = Cli::ExitStatus::Stopped;
    } catch (const std::exception& error) {
        Cli::report(error.what());
        status = Cli::ExitStatus::Stopped;
    }
    if (!Cli::finishOutput()) status = Cli::ExitStatus::InputOutput;
    return static_cast<int>(status);
}
