#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/Command.h"
#include "cli/records/PartsDirectory.h"
#include "cli/records/RecordOptions.h"
#include "cli/script/ScriptOptions.h"
#include "scr/Interpreter.h"

namespace Cli {
namespace {

struct MergeOptions {
    std::string directory;
    MergeOutput output;
};

// The script and the options of the runs that made the parts.
struct Task {
    ScriptOptions script;
    RecordOptions records;
    std::string file;
    std::optional<std::string> text;

    // Takes them from a manifest; false after a report.
    bool take(const Manifest& manifest) {
        CLI::App app;
        script.declare(app);
        records.declare(app);
        app.add_option("FILE", file);
        app.add_option("-e", text);
        std::vector<std::string> words = manifest.arguments;
        words.insert(words.end(), manifest.options.begin(), manifest.options.end());
        std::reverse(words.begin(), words.end());
        try {
            app.parse(words);
        } catch (const CLI::ParseError& error) {
            report(std::string("the manifest: ") + error.what());
            return false;
        }
        script.scriptName(text ? "-e" : file);
        return true;
    }
};

ExitStatus merge(const MergeOptions& options) {
    PartsDirectory directory(options.directory);
    if (!directory.read()) {
        report(directory.error());
        return ExitStatus::Usage;
    }
    Task task;
    if (!task.take(directory.first())) return ExitStatus::Usage;
    const std::optional<std::string> text =
        task.text ? task.text : task.records.script(task.file, task.script.mostBytes());
    if (!text) return ExitStatus::Usage;
    const std::string expanded = task.script.expand(*text).value_or(*text);
    Manifest now;
    now.script(expanded);
    if (now.scriptDigest != directory.first().scriptDigest ||
        now.includes != directory.first().includes) {
        report(task.script.scriptName() + " was changed after the parts were made");
        return ExitStatus::Usage;
    }
    task.records.script(expanded);
    const auto compile = [&](SCR::Interpreter& interpreter) { return interpreter.compile(*text); };
    return task.records.merge(directory, options.output, task.script, compile);
}

}  // namespace

void addMergeCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<MergeOptions>();
    CLI::App* command =
        app.add_subcommand("merge", "Make one result of the parts that `run --out` left");
    command->add_option("DIR", options->directory, "The directory of the parts")
        ->type_name("")
        ->required();
    command
        ->add_option("--output", options->output.output,
                     "Where the records go; - (default) is standard output")
        ->type_name("FILE");
    command->add_option("--rejects", options->output.rejects, "Where the rejected records go")
        ->type_name("FILE");
    command
        ->add_flag("--stats{text}", options->output.stats,
                   "Print the counts of records at the end, as text or json: --stats=json")
        ->check(CLI::IsMember({"text", "json"}));
    command->footer(
        "Writes the records of all parts in their order, of records with one key of recordUnique\n"
        "only the first. Then the script runs END with the totals of all parts. The script, the\n"
        "options and the input are those of the runs, and are looked for from the same directory.\n"
        "\n"
        "Example:\n"
        "  kestrel merge rated --output rated.csv --stats");
    command->callback([options, &action] { action = [options] { return merge(*options); }; });
}

}  // namespace Cli
