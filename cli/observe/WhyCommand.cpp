#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "cli/Command.h"
#include "cli/observe/Trace.h"
#include "cli/records/ScriptRun.h"
#include "cli/script/MessageText.h"
#include "records/json/JsonRecord.h"
#include "scr/Interpreter.h"
#include "scr/Output.h"

namespace Cli {
namespace {

struct WhyOptions {
    ScriptRun run;
    std::int64_t record = 0;
};

using Outcome = Records::Shown::Result;

std::string resultOf(const Records::Shown& shown, bool isJson) {
    const std::string before = shown.before.substr(0, shown.before.size() - 1);
    const std::string name = shown.result == Outcome::Rejected  ? "rejected"
                             : shown.result == Outcome::Dropped ? "dropped"
                                                                : "written";
    if (!isJson) {
        std::string text = "read: " + readable(before) + '\n' + name;
        if (shown.result == Outcome::Dropped) return text + '\n';
        const bool isRejected = shown.result == Outcome::Rejected;
        return text + ": " + (isRejected ? readable(shown.after) + '\n' : shown.after);
    }
    std::string text =
        "{\"event\":\"" + name + "\",\"record\":" + std::to_string(shown.number) + ",\"before\":";
    Records::appendText(readable(before), text);
    text += ",\"after\":";
    const std::size_t end = shown.after.find_last_not_of('\n');
    Records::appendText(readable(shown.after.substr(0, end + 1)), text);
    return text + "}\n";
}

// The prints of the script while its steps are told.
class TracedPrints final : public SCR::Output {
public:
    TracedPrints(const Trace& trace, bool isJson) : trace_(trace), isJson_(isJson) {}
    bool write(std::string_view text) override {
        if (!trace_.listens()) return true;
        if (!isJson_) return SCR::standardOutput().write(text);
        std::string event = "{\"event\":\"print\",\"text\":";
        std::string printed;
        for (std::size_t end = 0; end != std::string_view::npos && !text.empty();) {
            end = text.find('\n');
            printed += readable(text.substr(0, end)) + (end != std::string_view::npos ? "\n" : "");
            text.remove_prefix(std::min(end, text.size() - 1) + 1);
        }
        Records::appendText(printed, event);
        return SCR::standardOutput().write(event + "}\n");
    }

private:
    const Trace& trace_;
    const bool isJson_;
};

ExitStatus run(WhyOptions& options) {
    if (!options.run.read()) return ExitStatus::Usage;
    const bool isJson = options.run.script().isJson();
    Trace trace(options.run.source(), isJson);
    TracedPrints prints(trace, isJson);
    bool wasShown = false;
    const auto print = [](const std::string& text) { SCR::standardOutput().write(text); };
    if (options.record == 0) {
        trace.listen(true);
    } else {
        options.run.records().only(
            options.record, {[&](Records::CurrentRecord& record, const Records::FieldNames&) {
                                 record.rejecting = [&](const Records::Rejection& rejection) {
                                     if (trace.listens()) trace.failed(rejection.text());
                                 };
                             },
                             [&](std::int64_t number) {
                                 if (number != options.record) return;
                                 if (!isJson) {
                                     print("record " + std::to_string(number) + " of " +
                                           options.run.records().input() + '\n');
                                 }
                                 trace.listen(true);
                             },
                             [&](const Records::Shown& shown) {
                                 wasShown = true;
                                 trace.listen(false);
                                 trace.finish();
                                 print(resultOf(shown, isJson));
                             }});
    }
    ExitStatus status = options.run.run([&](SCR::Interpreter& interpreter) {
        interpreter.observe(&trace);
        interpreter.output(&prints);
    });
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
        ->check([](const std::string& text) { return checkNumber(text, 1); })
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
