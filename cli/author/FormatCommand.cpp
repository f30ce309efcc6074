#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <dtl/dtl.hpp>

#include "author/Format.h"
#include "cli/Command.h"
#include "cli/script/MessageText.h"
#include "cli/script/ScriptFile.h"
#include "records/RecordOutput.h"
#include "scr/Output.h"

namespace Cli {
namespace {

struct FormatOptions {
    bool onlyChecks = false;
    bool showsDifference = false;
    std::vector<std::string> files;
};

void print(const std::string& text) { SCR::standardOutput().write(text); }

// Texts that differ much would take very long to compare line by line.
constexpr std::size_t mostComparedS = 50000;

void printDifference(const std::string& name, const std::string& from, const std::string& to) {
    const std::vector<std::string> before = linesOf(from);
    const std::vector<std::string> after = linesOf(to);
    print("--- " + readable(name) + "\n+++ " + readable(name) + " (formatted)\n");
    if (before.size() + after.size() > mostComparedS) {
        print("too long to show the difference\n");
        return;
    }
    dtl::Diff<std::string> difference(before, after);
    difference.onHuge();
    difference.compose();
    difference.composeUnifiedHunks();
    std::ostringstream hunks;
    difference.printUnifiedFormat(hunks);
    print(hunks.str());
}

bool isSame(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

// Puts `text` in the place of the file, which was as `status` says when it was read.
ExitStatus replaceFile(const std::string& path, const struct stat& status,
                       const std::string& text) {
    Records::RecordOutput output;
    if (!output.open(path) || !output.write(text)) {
        report(output.error());
        return ExitStatus::InputOutput;
    }
    struct stat now {};
    if (::stat(path.c_str(), &now) != 0 || now.st_ino != status.st_ino ||
        now.st_size != status.st_size || !isSame(now.st_mtim, status.st_mtim)) {
        report(path + ": was changed in the meantime and is left alone");
        return ExitStatus::TryAgain;
    }
    if (output.finish()) return ExitStatus::Success;
    report(output.error());
    return ExitStatus::InputOutput;
}

// The place in the text, as editors know it.
std::string placeIn(const std::string& text, std::size_t at) {
    const std::size_t begin = at == 0 ? 0 : text.rfind('\n', at - 1) + 1;
    const auto line = 1 + std::count(text.begin(), text.begin() + static_cast<long>(begin), '\n');
    const auto isBegin = [](char byte) { return (byte & '\xC0') != '\x80'; };
    const auto column = 1 + std::count_if(text.begin() + static_cast<long>(begin),
                                          text.begin() + static_cast<long>(at), isBegin);
    return std::to_string(line) + ":" + std::to_string(column);
}

ExitStatus formatOne(const std::string& path, const FormatOptions& options) {
    const bool isInput = path == "-";
    const std::string name = isInput ? "standard input" : path;
    struct stat status {};
    std::ifstream file;
    if (!isInput) {
        const bool isThere = ::stat(path.c_str(), &status) == 0;
        if (isThere && !S_ISREG(status.st_mode)) {
            report(path + ": is no file that can be replaced");
            return ExitStatus::Usage;
        }
        if (isThere) file.open(path, std::ios::binary);
        if (!isThere || !file) {
            report(path + ": " + std::strerror(errno));
            return ExitStatus::Usage;
        }
    }
    std::istream& stream = isInput ? std::cin : file;
    const std::string content{std::istreambuf_iterator<char>(stream), {}};
    if (stream.bad()) {
        report(name + ": " + std::strerror(errno));
        return ExitStatus::InputOutput;
    }
    const Author::Formatted formatted = Author::formatFile(content);
    if (!formatted.fault.empty()) {
        report(readable(name) + ":" + placeIn(content, std::min(formatted.at, content.size())) +
               ": " + readable(formatted.fault) + "; the text is left alone");
        return ExitStatus::NotCompiled;
    }
    const bool isSameText = formatted.text == content;
    if (options.showsDifference) {
        if (!isSameText) printDifference(name, content, formatted.text);
    } else if (options.onlyChecks) {
        if (!isSameText) print(readable(name) + "\n");
    } else if (isInput) {
        print(formatted.text);
    } else if (!isSameText) {
        return replaceFile(path, status, formatted.text);
    }
    const bool isAsked = options.showsDifference || options.onlyChecks;
    return isAsked && !isSameText ? ExitStatus::Rejected : ExitStatus::Success;
}

}  // namespace

void addFormatCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<FormatOptions>();
    CLI::App* command = app.add_subcommand("fmt", "Give scripts their one layout");
    command->add_flag("--check", options->onlyChecks,
                      "Write nothing; list the scripts whose layout differs; exit status 1 if any "
                      "does");
    command->add_flag("--diff", options->showsDifference,
                      "Write nothing; show what would change; exit status 1 if anything would");
    command
        ->add_option("FILE", options->files,
                     "The scripts; each is replaced. - is standard input, which is written to "
                     "standard output")
        ->type_name("...")
        ->required();
    command->footer(
        "A file is replaced only by a text that was read again and has the same tokens and "
        "comments.\n"
        "\n"
        "Examples:\n"
        "  kestrel fmt rate.ks\n"
        "  kestrel fmt --check scripts/*.ks");
    command->callback([options, &action] {
        action = [options] {
            ExitStatus worst = ExitStatus::Success;
            for (const std::string& file : options->files) {
                worst = std::max(worst, formatOne(file, *options));
            }
            return worst;
        };
    });
}

}  // namespace Cli
