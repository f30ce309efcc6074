#include <memory>
#include <optional>
#include <string>

#include "cli/Command.h"
#include "cli/records/RecordOptions.h"
#include "cli/script/ScriptOptions.h"
#include "scr/Interpreter.h"

namespace Cli {
namespace {

struct QueryOptions {
    ScriptOptions script;
    RecordOptions records;
    std::string text;  // the expression, or the file of the conditions
};

ExitStatus runWithoutScript(const QueryOptions& options) {
    return options.records.run(
        options.script, [](SCR::Interpreter& interpreter) { return interpreter.compile(""); });
}

}  // namespace

void addQueryCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<QueryOptions>();
    CLI::App* command =
        app.add_subcommand("query", "Print the records for which an expression holds");
    options->script.declare(*command);
    options->records.declare(*command, RecordOptions::Use::Needed);
    command->add_option("EXPRESSION", options->text, "An expression of type Bool")
        ->type_name("")
        ->required();
    command->footer(
        "Example:\n"
        "  kestrel query 'edrLong(seconds) > 600' --records calls.csv --header");
    command->callback([options, &action] {
        action = [options] {
            options->records.where(options->text);
            options->script.scriptName("query");
            return runWithoutScript(*options);
        };
    });
}

void addConditionsCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<QueryOptions>();
    CLI::App* command = app.add_subcommand(
        "conditions", "Print for each record the numbers of the conditions that hold");
    options->script.declare(*command);
    options->records.declare(*command, RecordOptions::Use::Needed);
    command
        ->add_option("FILE", options->text,
                     "Conditions, each ended by a semicolon; - is standard input")
        ->type_name("")
        ->required();
    command->footer(
        "A line for each record: numbers from 0 in the order of the file, between spaces. In a\n"
        "condition, text =~ pattern holds when the pattern matches the whole text.\n"
        "\n"
        "Example:\n"
        "  kestrel conditions alarms.ks --records calls.csv --header");
    command->callback([options, &action] {
        action = [options] {
            const std::optional<std::string> text =
                options->records.script(options->text, options->script.mostBytes());
            if (!text) return ExitStatus::Usage;
            options->records.conditions(*text);
            options->script.scriptName(options->text);
            return runWithoutScript(*options);
        };
    });
}

}  // namespace Cli
