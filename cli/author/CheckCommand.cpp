#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/Command.h"
#include "cli/records/RecordOptions.h"
#include "cli/script/ScriptOptions.h"
#include "cli/script/StderrLog.h"
#include "records/script/RecordExtension.h"
#include "scr/ConditionList.h"
#include "scr/Interpreter.h"

namespace Cli {
namespace {

struct CheckOptions {
    ScriptOptions script;
    RecordOptions records;
    bool isDistributable = false;
    bool areConditions = false;
    bool failsOnWarnings = false;
    std::vector<std::string> files;
};

// `findings` collects what makes the script unfit for work on parts of the records, if that is
// asked for.
ExitStatus check(const std::string& text, const CheckOptions& options, StderrLog& log,
                 Records::RecordJob* job, const Records::Tables& tables,
                 std::vector<SCR::Finding>& findings) {
    const auto compile = [&](SCR::Interpreter& interpreter) {
        if (options.areConditions) return SCR::ConditionList(interpreter).check(text);
        return options.isDistributable ? interpreter.check(text, findings)
                                       : interpreter.check(text);
    };
    if (job != nullptr) {
        const auto make = [&](SCR::Log& to) {
            return options.script.makeInterpreter(to, recordZoneS);
        };
        const ExitStatus status = statusOf(
            job->check(log, make, compile,
                       options.areConditions ? "" : options.script.expand(text).value_or(text)));
        if (!job->error().empty()) report(job->error());
        return status;
    }
    Records::AnyRecord record(tables);
    const auto interpreter = options.script.makeInterpreter(log, recordZoneS);
    if (!interpreter) return ExitStatus::Usage;
    record.addTo(*interpreter);
    if (compile(*interpreter)) return ExitStatus::Success;
    return interpreter->wasStopped() ? ExitStatus::Stopped : ExitStatus::NotCompiled;
}

ExitStatus checkAll(CheckOptions& options) {
    std::unique_ptr<Records::RecordJob> job;
    if (options.records.isGiven()) {
        job = options.records.checkingJob(options.script);
        if (!job) return ExitStatus::Usage;
    }
    Records::Tables tables;
    if (!job) {
        const ExitStatus status = options.records.readTables(options.script, tables);
        if (status != ExitStatus::Success) return status;
    }
    ExitStatus worst = ExitStatus::Success;
    StderrLog log(options.script.messageStyle({}));
    for (const std::string& path : options.files) {
        const std::optional<std::string> text =
            options.records.script(path, options.script.mostBytes());
        std::vector<SCR::Finding> findings;
        options.script.scriptName(path);
        log.script(path == "-" ? "standard input" : path);
        const std::size_t warnings = log.warnings();
        ExitStatus status =
            text ? check(*text, options, log, job.get(), tables, findings) : ExitStatus::Usage;
        if (options.failsOnWarnings && log.warnings() > warnings) {
            status = std::max(status, ExitStatus::NotCompiled);
        }
        for (const SCR::Finding& finding : findings) {
            std::printf("%s:%d: %s\n", (finding.file.empty() ? path : finding.file).c_str(),
                        finding.line, finding.text.c_str());
        }
        if (!findings.empty()) status = std::max(status, ExitStatus::Rejected);
        worst = std::max(worst, status);
    }
    return worst;
}

}  // namespace

void addCheckCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<CheckOptions>();
    CLI::App* command =
        app.add_subcommand("check", "Compile scripts without running anything of them");
    options->script.declare(*command);
    options->records.declare(*command, RecordOptions::Use::Checked);
    command->add_flag("--distributable", options->isDistributable,
                      "List what carries state from record to record or makes it unsafe to work "
                      "on records again; exit status 1 if there is any");
    command
        ->add_flag("--conditions", options->areConditions,
                   "The files hold conditions, as for `kestrel conditions`, and no scripts")
        ->excludes("--distributable");
    command->add_flag("--werror", options->failsOnWarnings,
                      "Exit with status 3 when there is a warning");
    command->add_option("FILE", options->files, "The scripts; - is standard input")
        ->type_name("...")
        ->required();
    command->footer(
        "The functions of records are known. Without --records any name of a field is accepted.\n"
        "\n"
        "Examples:\n"
        "  kestrel check scripts/*.ks\n"
        "  kestrel check rate.ks --records calls.csv --header");
    command->callback([options, &action] { action = [options] { return checkAll(*options); }; });
}

}  // namespace Cli
