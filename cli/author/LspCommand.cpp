#include <unistd.h>

#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "author/server/Server.h"
#include "cli/Command.h"
#include "cli/author/DeclaredFunctions.h"
#include "cli/records/RecordOptions.h"
#include "cli/script/ScriptOptions.h"
#include "records/script/RecordExtension.h"
#include "records/script/RecordManual.h"
#include "scr/HostExtension.h"
#include "scr/Interpreter.h"

namespace Cli {
namespace {

// Messages are read from the interpreter.
class QuietLog final : public SCR::Log {};

// Lets scripts call these functions, and those without a module also by their names alone.
void declare(SCR::Interpreter& interpreter, const std::vector<Author::FunctionEntry>& functions) {
    SCR::HostExtension& types = *SCR::HostExtension::insert(interpreter, "typesOfTheHost");
    std::set<std::string> modules;
    for (const Author::FunctionEntry& function : functions) modules.insert(function.module);
    for (const std::string& module : modules) {
        auto extension = std::make_unique<DeclaredFunctions>(module, functions);
        // Any address stands for a class.
        for (const std::string& type : extension->types()) types.declareType(&type, type);
        if (interpreter.insertExtension(extension.get())) extension.release();
    }
}

ExitStatus serve(ScriptOptions& options) {
    Author::ServerOptions server;
    server.functions = Author::entriesOf(Records::recordManual(), "");
    server.includePath = options.includePath();
    // Changed by the answering thread, used by the checking one.
    std::mutex mutex;
    std::vector<Author::FunctionEntry> declared;
    server.hostFunctions = [&](const std::vector<Author::FunctionEntry>& functions) {
        const std::lock_guard lock(mutex);
        declared.insert(declared.end(), functions.begin(), functions.end());
    };
    // On the checking thread alone.
    server.check = [&](const std::string& text, const std::string& path,
                       const Author::Checker::Tell& tell) {
        QuietLog log;
        Records::AnyRecord record;
        options.scriptName(path);
        const auto interpreter = options.makeInterpreter(log, recordZoneS);
        if (!interpreter) return std::vector<SCR::Diagnostic>();
        record.addTo(*interpreter);
        {
            const std::lock_guard lock(mutex);
            declare(*interpreter, declared);
        }
        tell(interpreter.get());
        interpreter->check(text);
        tell(nullptr);
        return interpreter->diagnostics();
    };
    const int status = Author::Server(std::move(server), STDIN_FILENO, STDOUT_FILENO).run();
    return status == 0 ? ExitStatus::Success : ExitStatus::Rejected;
}

}  // namespace

void addLspCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<ScriptOptions>();
    CLI::App* command = app.add_subcommand(
        "lsp", "Answer an editor's questions about scripts, by the Language Server Protocol");
    options->declare(*command);
    command->footer(
        "Speaks over standard input and output. Nothing of a script runs.\n"
        "\n"
        "Example, as the command of an editor:\n"
        "  kestrel lsp -I /opt/scripts/include");
    command->callback([options, &action] { action = [options] { return serve(*options); }; });
}

}  // namespace Cli
