#pragma once

#include <CLI/App.hpp>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "cli/Command.h"
#include "cli/records/RecordOptions.h"
#include "cli/script/ScriptOptions.h"
#include "cli/script/SourceText.h"

namespace Cli {

/// Compiles a script and executes it, once, several times or for records: what `kestrel run` does,
/// and the commands that watch it.
class ScriptRun {
public:
    /// Called with each interpreter before it compiles the script.
    using Prepare = std::function<void(SCR::Interpreter&)>;

    /// Declares the options and FILE on `command`; this object must live until the command line is
    /// parsed. `needsRecords`: the command works on records only.
    void declare(CLI::App& command, bool needsRecords = false);
    /// To be called when the command line is parsed.
    void complete();

    /// Reads the script; false after a report.
    bool read();
    ExitStatus run(const Prepare& prepare = {});

    RecordOptions& records() { return records_; }
    const ScriptOptions& script() const { return script_; }
    const std::string& name() const { return script_.scriptName(); }
    /// The text of the script, once it was read, and its sources.
    const std::string& text() const { return *text_; }
    SourceText source() const;

private:
    ExitStatus runOnRecords(const Prepare& prepare);
    // Whether all expressions of the file hold; reports those that do not.
    bool holdChecks(SCR::Interpreter& interpreter) const;

    ScriptOptions script_;
    RecordOptions records_;
    std::int64_t repeat_ = 1;
    std::string file_;
    std::string checks_;  // a file
    CLI::Option* fileOption_ = nullptr;
    std::optional<std::string> given_;  // the script itself
    std::optional<std::string> text_;
};

}  // namespace Cli
