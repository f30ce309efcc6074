#include <cerrno>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "cli/Command.h"
#include "cli/RecordOptions.h"
#include "cli/ScriptOptions.h"
#include "cli/StderrLog.h"
#include "scr/Interpreter.h"
#include "scr/Output.h"

namespace Cli {
namespace {

struct RunOptions {
    ScriptOptions script;
    RecordOptions records;
    std::int64_t repeat = 1;
    std::string file;
    std::optional<std::string> text;
};

/// The prints of the script. When nobody reads them any more, the command ends like other commands.
class Printer final : public SCR::Output {
public:
    bool write(std::string_view text) override { return isAlive(output_.write(text)); }
    bool flush(bool mayWait) override { return isAlive(output_.flush(mayWait)); }

private:
    static bool isAlive(bool isWritten) {
        const int error = errno;
        if (!isWritten && error == EPIPE) endByClosedPipe();
        errno = error;
        return isWritten;
    }

    SCR::Output& output_ = SCR::standardOutput();
};

ExitStatus execute(SCR::Interpreter& interpreter, const std::string& text, std::int64_t turns) {
    if (!interpreter.compile(text)) {
        return interpreter.wasStopped() ? ExitStatus::Stopped : ExitStatus::NotCompiled;
    }
    for (std::int64_t turn = 0; turn < turns; ++turn) {
        if (!interpreter.execute()) return ExitStatus::Stopped;
    }
    return ExitStatus::Success;
}

ExitStatus run(const RunOptions& options) {
    const std::optional<std::string> text =
        options.text ? options.text
                     : options.records.script(options.file, options.script.mostBytes());
    if (!text) return ExitStatus::Usage;
    if (options.records.isGiven()) {
        bool isChecked = false;
        bool isRefused = false;
        const auto compile = [&](SCR::Interpreter& interpreter) {
            const std::string file = options.text ? "-e" : options.file;
            if (!isChecked && !options.records.mayShare(interpreter, *text, file, isRefused)) {
                return false;
            }
            isChecked = true;
            return interpreter.compile(*text);
        };
        const std::string expanded = options.script.expand(*text).value_or(*text);
        RecordOptions records = options.records;
        records.script(expanded);
        ExitStatus status = ExitStatus::Success;
        if (records.hasDirectory()) {
            Manifest manifest;
            manifest.script(expanded);
            manifest.options = options.script.given();
            if (options.text) {
                manifest.arguments = {"-e", *options.text};
            } else {
                manifest.arguments = {options.file};
            }
            for (const std::string& directory : options.script.includePath()) {
                manifest.arguments.insert(manifest.arguments.end(), {"-I", directory});
            }
            status = records.runInDirectory(std::move(manifest), options.script, compile);
        } else {
            status = records.run(options.script, compile);
        }
        return isRefused ? ExitStatus::Usage : status;
    }
    StderrLog log(options.script.messageStyle(options.script.scriptName()));
    Printer printer;
    const auto interpreter = options.script.makeInterpreter(log);
    if (!interpreter) return ExitStatus::Usage;
    interpreter->output(&printer);
    ExitStatus status = execute(*interpreter, *text, options.repeat);
    if (!interpreter->finish() && status == ExitStatus::Success) status = ExitStatus::Stopped;
    if (status == ExitStatus::Success && !interpreter->isValid()) status = ExitStatus::Rejected;
    return statusAfter(status, interpreter->outputFailures());
}

}  // namespace

void addRunCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<RunOptions>();
    CLI::App* command = app.add_subcommand("run", "Compile a script and execute it");
    options->script.declare(*command);
    options->records.declare(*command);
    CLI::Option* const repeat =
        command->add_option("--repeat", options->repeat, "Execute the script N times (default 1)")
            ->type_name("N")
            ->check([](const std::string& count) {
                return count.starts_with('-') ? count + " is negative" : std::string();
            });
    repeat->excludes("--records");
    CLI::Option* file =
        command->add_option("FILE", options->file, "The script; - is standard input")
            ->type_name("");
    command->add_option("-e", options->text, "The script's text itself, instead of FILE")
        ->type_name("TEXT")
        ->excludes(file);
    command->footer(
        "Examples:\n"
        "  kestrel run -D customer=4711 rate.ks\n"
        "  kestrel run -e 'logStdout(\"hello\\n\");'\n"
        "  kestrel run rate.ks --records calls.csv --header --output rated.csv --stats");
    command->callback([options, file, &action] {
        if (!options->text && file->count() == 0) throw CLI::RequiredError("FILE or -e TEXT");
        options->script.scriptName(options->text ? "-e" : options->file);
        action = [options] { return run(*options); };
    });
}

}  // namespace Cli
