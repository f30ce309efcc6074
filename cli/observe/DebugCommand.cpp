#include <fcntl.h>
#include <unistd.h>

#include <memory>

#include "cli/Command.h"
#include "cli/observe/DebugConsole.h"
#include "cli/records/ScriptRun.h"
#ifdef KESTREL_LSP
#include "cli/observe/DebugAdapter.h"
#endif

namespace Cli {
namespace {

struct DebugOptions {
    ScriptRun run;
    bool isAdapter = false;
    bool hasScript = false;
};

ExitStatus runDebugger(DebugOptions& options) {
#ifdef KESTREL_LSP
    if (options.isAdapter) {
        // What the script prints must not mix with the messages.
        const int output = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
        // Nor may it read them.
        const int input = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
        if (const int none = open("/dev/null", O_RDONLY | O_CLOEXEC); none >= 0) {
            dup2(none, STDIN_FILENO);
            close(none);
        }
        const ExitStatus status =
            DebugAdapter(input, output, options.hasScript ? &options.run : nullptr).run();
        close(output);
        close(input);
        return status;
    }
#endif
    if (options.run.records().hasDirectory()) {
        report("--out: a debugger writes no files of records");
        return ExitStatus::Usage;
    }
    if (!options.run.read()) return ExitStatus::Usage;
    return DebugConsole().run(options.run);
}

}  // namespace

void addDebugCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<DebugOptions>();
    CLI::App* command = app.add_subcommand(
        "debug", "Stop a script where you want, look at its variables, and go on step by step");
    options->run.declare(*command);
#ifdef KESTREL_LSP
    command->add_flag("--dap", options->isAdapter,
                      "Speak the Debug Adapter Protocol with an editor, over standard input and "
                      "output");
#endif
    command->footer(
        "Reads commands from standard input; help lists them. Nothing is written to files of "
        "records. The script runs in the tree, not in code, and a limit of time counts the stops "
        "too.\n\nExamples:\n"
        "  kestrel debug rate.ks --records calls.csv --header\n"
        "  kestrel debug --dap");
    command->callback([options, command, &action] {
        options->hasScript = command->count("FILE") + command->count("-e") != 0;
        if (options->hasScript || !options->isAdapter) options->run.complete();
        action = [options] { return runDebugger(*options); };
    });
}

}  // namespace Cli
