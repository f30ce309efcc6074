#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace SCR {
class OutputFailures;
}  // namespace SCR

namespace Cli {

/// The exit statuses of the program. The values are the same for every command; callers rely on
/// them.
enum class ExitStatus : int {
    Success = 0,       ///< Compiled and ran.
    Rejected = 1,      ///< Declared itself unusable, or left rejected records that nobody took.
    Usage = 2,         ///< Bad command line, or a file that cannot be read.
    NotCompiled = 3,   ///< A script does not compile.
    Stopped = 4,       ///< A signal, a limit or a failure stopped the work.
    InputOutput = 74,  ///< Reading or writing failed on the way.
    TryAgain = 75,     ///< Failed for want of something that may be there later.
};

/// The work of the command that the user named; run after the whole command line has been checked.
using Action = std::function<ExitStatus()>;

/// Adds a command to `app`. When the user names it, the command stores its work in `action`, which
/// must live until the command line is parsed.
using AddCommand = void (*)(CLI::App& app, Action& action);

void addCompletionCommand(CLI::App& app, Action& action);
void addManCommand(CLI::App& app, Action& action);
void addPromptCommand(CLI::App& app, Action& action);
void addCheckCommand(CLI::App& app, Action& action);
void addConditionsCommand(CLI::App& app, Action& action);
void addDebugCommand(CLI::App& app, Action& action);
void addDecryptCommand(CLI::App& app, Action& action);
void addEncryptCommand(CLI::App& app, Action& action);
void addExplainCommand(CLI::App& app, Action& action);
void addFormatCommand(CLI::App& app, Action& action);
void addFunctionsCommand(CLI::App& app, Action& action);
void addLspCommand(CLI::App& app, Action& action);
void addMatchCommand(CLI::App& app, Action& action);
void addMergeCommand(CLI::App& app, Action& action);
void addProfileCommand(CLI::App& app, Action& action);
void addQueryCommand(CLI::App& app, Action& action);
void addReplCommand(CLI::App& app, Action& action);
void addRunCommand(CLI::App& app, Action& action);
void addTestCommand(CLI::App& app, Action& action);
void addWhyCommand(CLI::App& app, Action& action);
void addWorkCommand(CLI::App& app, Action& action);

/// Writes `text` to standard output.
void writeOut(std::string_view text);
/// For options that take a number from `least` on: why `text` is none; empty when it is one.
std::string checkNumber(const std::string& text, std::int64_t least);

/// Writes "kestrel: `message`" and a line end to standard error.
void report(const std::string& message);

/// Reports the failures of scripts' outputs, and gives the status that `status` becomes because of
/// them.
ExitStatus statusAfter(ExitStatus status, const SCR::OutputFailures& failures);

/// Writes out what standard output holds, without waiting for its reader unless `mayWait`. False,
/// with errno set, when not all of it arrived. When nobody will ever read it, ends the program by
/// the signal for that, unless the signal is ignored.
bool flushOutput(bool mayWait);
/// Ends the program as a closed pipe does, unless that signal is ignored.
void endByClosedPipe();

}  // namespace Cli
