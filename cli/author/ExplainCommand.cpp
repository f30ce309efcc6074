#include <algorithm>
#include <cctype>
#include <cstdio>
#include <memory>
#include <string>

#include "cli/Command.h"
#include "cli/author/ExplainPage.h"
#include "scr/message/Codes.h"

namespace Cli {
namespace {

struct ExplainOptions {
    std::string code;
    bool isMarkdown = false;
};

void printBlock(const char* title, std::string_view script) {
    if (script.empty()) return;
    std::printf("\n%s:\n\n", title);
    while (!script.empty()) {
        const std::size_t end = std::min(script.find('\n'), script.size());
        std::printf("    %.*s\n", static_cast<int>(end), script.data());
        script.remove_prefix(std::min(end + 1, script.size()));
    }
}

// The texts in the log, each between `before` and `after`.
void printLogTexts(SCR::MessageCode code, const char* before, const char* after) {
    if (!SCR::logTexts(code).empty()) std::printf("\nIn the log:\n\n");
    for (const SCR::LogText& logged : SCR::logTexts(code)) {
        std::printf("%s%s%s\n", before, std::string(logged.text).c_str(), after);
    }
}

void printPage(const SCR::MessagePage& page) {
    const std::string title(page.title);
    const std::string text(page.text);
    std::printf("%s: %s: %s\n\n%s\n", SCR::codeName(page.code).c_str(),
                page.severity >= FND::Status::Error ? "error" : "warning", title.c_str(),
                text.c_str());
    printBlock("Wrong", page.wrong);
    printBlock("Right", page.right);
    printLogTexts(page.code, "    ", "");
}

// The place of a page in the manual, as it is made of its heading.
std::string anchor(const SCR::MessagePage& page) {
    std::string words;
    for (const char byte : SCR::codeName(page.code) + " " + std::string(page.title)) {
        if (std::isalnum(static_cast<unsigned char>(byte)) != 0) {
            words += static_cast<char>(std::tolower(static_cast<unsigned char>(byte)));
        } else if (byte == ' ') {
            words += '-';
        }
    }
    return words;
}

void printManual() {
    std::printf(
        "<!-- Made by `kestrel explain --markdown`; do not edit. -->\n\n"
        "# Messages\n\n"
        "`kestrel` shows each message with a code; `kestrel explain K0002` prints what this page "
        "says\nabout it. Hosts get messages in their log by other texts, which stand under \"In "
        "the "
        "log\": after\n`ERROR: ` and the place for what a script is wrong in, such as `ERROR: "
        "rates.ks: line 3: parse error`.\nA capital letter on its own stands for what the script "
        "gives: a name, a type, a number. The line in\nthe log is where the compiler noticed the "
        "fault, which may be one later than the fault itself.\n\n");
    for (const SCR::MessagePage& page : SCR::messagePages()) {
        const std::string code = SCR::codeName(page.code);
        std::printf("- [%s](#%s): %s\n", code.c_str(), anchor(page).c_str(),
                    std::string(page.title).c_str());
    }
    for (const SCR::MessagePage& page : SCR::messagePages()) {
        const auto block = [](const char* title, std::string_view script) {
            if (script.empty()) return;
            std::string text(script);
            if (text.back() != '\n') text += '\n';
            std::printf("\n%s:\n\n```kestrel\n%s```\n", title, text.c_str());
        };
        const std::string title(page.title);
        const std::string text(page.text);
        std::printf("\n## %s: %s\n\n%s%s\n", SCR::codeName(page.code).c_str(), title.c_str(),
                    page.severity >= FND::Status::Error ? "" : "A warning. ", text.c_str());
        block("Wrong", page.wrong);
        block("Right", page.right);
        printLogTexts(page.code, "- `` ", " ``");
    }
}

ExitStatus explain(const ExplainOptions& options) {
    if (options.isMarkdown) {
        printManual();
        return ExitStatus::Success;
    }
    if (options.code.empty()) {
        for (const SCR::MessagePage& page : SCR::messagePages()) {
            const std::string title(page.title);
            std::printf("%s  %s\n", SCR::codeName(page.code).c_str(), title.c_str());
        }
        return ExitStatus::Success;
    }
    if (printExplanation(options.code)) return ExitStatus::Success;
    report("there is no message " + options.code + "; kestrel explain lists them");
    return ExitStatus::Usage;
}

}  // namespace

bool printExplanation(std::string code) {
    if (code.starts_with('k')) code[0] = 'K';
    for (const SCR::MessagePage& page : SCR::messagePages()) {
        if (SCR::codeName(page.code) != code) continue;
        printPage(page);
        return true;
    }
    return false;
}

void addExplainCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<ExplainOptions>();
    CLI::App* command = app.add_subcommand("explain", "Explain a message by its code");
    command->add_option("CODE", options->code, "The code, such as K0002; without it, a list of all")
        ->type_name("");
    command->add_flag("--markdown", options->isMarkdown, "Print all pages, as in docs/messages.md");
    command->footer("Example:\n  kestrel explain K0002");
    command->callback([options, &action] { action = [options] { return explain(*options); }; });
}

}  // namespace Cli
