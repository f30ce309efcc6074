#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "cli/Command.h"
#include "cli/script/ScriptFile.h"
#include "scr/parser/Crypt.h"

namespace Cli {
namespace {

/// Turns the text of a file into the text to be written; false when that fails.
using Conversion = bool (*)(const FND::String& from, FND::String& to);

void addConversion(CLI::App& app, Action& action, Conversion convert, const char* name,
                   const char* description, const char* fileDescription, const char* footer) {
    auto file = std::make_shared<std::string>("-");
    CLI::App* command = app.add_subcommand(name, description);
    command->add_option("FILE", *file, fileDescription)->type_name("");
    command->footer(footer);
    command->callback([file, convert, &action] {
        action = [file, convert] {
            const std::optional<std::string> text = readScript(*file);
            if (!text) return ExitStatus::Usage;
            FND::String converted;
            if (!convert(*text, converted)) {
                report((*file == "-" ? "standard input" : *file) + ": not a scrambled text");
                return ExitStatus::Usage;
            }
            std::fwrite(converted.data(), 1, converted.size(), stdout);
            return ExitStatus::Success;
        };
    });
}

}  // namespace

void addEncryptCommand(CLI::App& app, Action& action) {
    addConversion(app, action, SCR::Crypt::encrypt, "encrypt",
                  "Write a script in the scrambled form, which runs like the script itself",
                  "The script; - or nothing is standard input",
                  "The scrambled form hides a text from a glance and is no protection: it carries\n"
                  "all that is needed to read it, and everybody can turn it back with kestrel\n"
                  "decrypt.\n"
                  "\n"
                  "Example:\n"
                  "  kestrel encrypt rate.ks > rate.scrambled.ks");
}

void addDecryptCommand(CLI::App& app, Action& action) {
    addConversion(
        app, action, SCR::Crypt::decrypt, "decrypt",
        "Write the script that the scrambled form holds",
        "The scrambled script; - or nothing is standard input",
        "A text that is not in the scrambled form is refused with exit status 2. Nothing\n"
        "tells whether a scrambled text was changed.\n"
        "\n"
        "Example:\n"
        "  kestrel decrypt rate.scrambled.ks > rate.ks");
}

}  // namespace Cli
