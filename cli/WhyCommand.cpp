#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "cli/Command.h"
#include "cli/MessageText.h"
#include "cli/ScriptRun.h"
#include "cli/Trace.h"
#include "records/json/JsonRecord.h"
#include "scr/Interpreter.h"
#include "scr/Output.h"

namespace Cli {
namespace {

struct WhyOptions {
    ScriptRun run;
    std::int64_t record = 0;
};

using Result = Records::Shown::Result;

std::string resultOf(const Records::Shown& shown, bool isJson) {
    if (!isJson) {
        switch (shown.result) {
            case Result::Rejected:
                return "rejected: " + readable(shown.after) + '\n';
            case Result::Dropped:
                return "dropped\n";
            default:
                return "written: " + shown.after;
        }
    }
    const char* const name = shown.result == Result::Rejected  ? "rejected"
                             : shown.result == Result::Dropped ? "dropped"
                                                               : "written";
    std::string text = std::string("{\"event\":\"") + name +
                       "\",\"record\":" + std::to_string(shown.number) + ",\"before\":";
    Records::appendText(readable(shown.before), text);
    text += ",\"after\":";
    Records::appendText(readable(shown.after), text);
    return text + "}\n";
}

ExitStatus run(WhyOptions& options) {
    if (!options.run.read()) return ExitStatus::Usage;
    const bool isJson = options.run.script().isJson();
    Trace trace(options.run.source(), isJson);
    bool wasShown = false;
    const auto print = [](const std::string& text) { SCR::standardOutput().write(text); };
    if (options.record == 0) {
        trace.listen(true);
    } else {
        options.run.records().only(
            options.record,
            [&](const Records::Shown& shown) {
                wasShown = true;
                trace.listen(false);
                trace.finish();
                print(resultOf(shown, isJson));
            },
            [&](std::int64_t number) {
                if (number != options.record) return;
                if (!isJson) {
                    print("record " + std::to_string(number) + " of " +
                          options.run.records().input() + '\n');
                }
                trace.listen(true);
            });
    }
    ExitStatus status =
        options.run.run([&](SCR::Interpreter& interpreter) { interpreter.observe(&trace); });
    trace.listen(false);
    trace.finish();
    if (options.record == 0 || wasShown) {
        return options.record != 0 && status == ExitStatus::Rejected ? ExitStatus::Success : status;
    }
    if (status == ExitStatus::Success || status == ExitStatus::Rejected) {
        report("there is no record " + std::to_string(options.record));
        status = ExitStatus::Usage;
    }
    return status;
}

}  // namespace

void addWhyCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<WhyOptions>();
    CLI::App* command =
        app.add_subcommand("why", "Tell what a script does, statement by statement, on one record");
    options->run.declare(*command);
    command
        ->add_option("--record", options->record,
                     "Tell it for record N, after the script worked on those before")
        ->type_name("N")
        ->check(CLI::PositiveNumber)
        ->needs("--records");
    command->footer(
        "Without --records, tells it for the script's one execution. Nothing is written to files "
        "of records. With --json, each step is an object in a line.\n\nExample:\n"
        "  kestrel why rate.ks --records calls.csv --header --record 7");
    command->callback([options, command, &action] {
        options->run.complete();
        if (command->count("--records") != 0 && options->record == 0) {
            throw CLI::RequiredError("--record");
        }
        action = [options] { return run(*options); };
    });
}

}  // namespace Cli
