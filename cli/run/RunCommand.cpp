#include <memory>
#include <string>
#include <vector>

#include "cli/Command.h"
#include "cli/observe/Coverage.h"
#include "cli/observe/Observations.h"
#include "cli/records/ScriptRun.h"

namespace Cli {
namespace {

struct RunOptions {
    ScriptRun run;
    std::vector<std::string> coverage;  // files
};

ExitStatus run(RunOptions& options) {
    if (options.coverage.empty()) return options.run.run();
    if (!options.run.read()) return ExitStatus::Usage;
    Observations observations(SCR::Observation::countsCM);
    ExitStatus status =
        options.run.run([&](SCR::Interpreter& interpreter) { observations.observe(interpreter); });
    if (!observations.haveRun(status)) return status;
    const SourceText source = options.run.source();
    const Coverage coverage(observations, source);
    for (const std::string& path : options.coverage) {
        if (!coverage.write(path, source)) status = ExitStatus::InputOutput;
    }
    report("coverage: " + coverage.summary());
    return status;
}

}  // namespace

void addRunCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<RunOptions>();
    CLI::App* command = app.add_subcommand("run", "Compile a script and execute it");
    options->run.declare(*command);
    command
        ->add_option("--coverage", options->coverage,
                     "Write to FILE which lines, branches and cases were executed: a page if it "
                     "ends in .html, LCOV's format otherwise; may be repeated")
        ->type_name("FILE")
        ->allow_extra_args(false);
    command->footer(
        "Examples:\n"
        "  kestrel run -D customer=4711 rate.ks\n"
        "  kestrel run -e 'logStdout(\"hello\\n\");'\n"
        "  kestrel run rate.ks --records calls.csv --header --output rated.csv --stats");
    command->callback([options, &action] {
        options->run.complete();
        action = [options] { return run(*options); };
    });
}

}  // namespace Cli
