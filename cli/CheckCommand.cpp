#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/Command.h"
#include "cli/ScriptFile.h"
#include "cli/ScriptOptions.h"
#include "cli/StderrLog.h"
#include "scr/Interpreter.h"

namespace Cli {
namespace {

struct CheckOptions {
    ScriptOptions script;
    std::vector<std::string> files;
};

ExitStatus checkFile(const std::string& path, const CheckOptions& options) {
    const std::optional<std::string> text = readScript(path);
    if (!text) return ExitStatus::Usage;
    StderrLog log;
    SCR::Interpreter interpreter(&log);
    if (!options.script.apply(interpreter)) return ExitStatus::Usage;
    if (interpreter.check(*text)) return ExitStatus::Success;
    // Messages do not name the script; where there are several, the user needs the name.
    if (options.files.size() > 1) std::printf("%s: does not compile\n", path.c_str());
    return ExitStatus::NotCompiled;
}

}  // namespace

void addCheckCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<CheckOptions>();
    CLI::App* command =
        app.add_subcommand("check", "Compile scripts without running anything of them");
    options->script.declare(*command);
    command->add_option("FILE", options->files, "The scripts; - is standard input")
        ->type_name("...")
        ->required();
    command->footer(
        "Example:\n"
        "  kestrel check scripts/*.ks");
    command->callback([options, &action] {
        action = [options] {
            ExitStatus worst = ExitStatus::Success;
            for (const std::string& path : options->files) {
                worst = std::max(worst, checkFile(path, *options));
            }
            return worst;
        };
    });
}

}  // namespace Cli
