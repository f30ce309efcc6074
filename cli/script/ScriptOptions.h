#pragma once

#include <CLI/App.hpp>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cli/script/StderrLog.h"
#include "scr/Capabilities.h"
#include "scr/Limits.h"

namespace SCR {
class Interpreter;
class Log;
}  // namespace SCR

namespace Cli {

/// The names between the commas of `names`.
std::vector<std::string> splitNames(const std::string& names);

/// The options of every command that compiles a script: the environment of the script.
class ScriptOptions {
public:
    /// Declares the options on `command`; this object must live until the command line is parsed.
    void declare(CLI::App& command);

    /// An interpreter with these options, with messages to `log`; null after a report: a constant
    /// is given twice, or a directory cannot be opened. `defaultZone` is the local zone when the
    /// options give none, "" for the zone of the process.
    std::unique_ptr<SCR::Interpreter> makeInterpreter(SCR::Log& log,
                                                      const std::string& defaultZone = "") const;
    /// How messages are shown; `script` names the script in them.
    MessageStyle messageStyle(const std::string& script) const;
    bool isJson() const { return form_ == MessageStyle::Form::Json; }
    /// The name of the script in messages that no other name is given for.
    void scriptName(const std::string& name) { scriptName_ = name; }
    const std::string& scriptName() const { return scriptName_; }

    /// The name of the local zone.
    const std::string& zone(const std::string& defaultZone) const {
        return zone_.empty() ? defaultZone : zone_;
    }

    /// The script `text` with its include files, as the preprocessor gives it; none when an include
    /// file cannot be read, which the compile reports.
    std::optional<std::string> expand(const std::string& text) const;
    /// How much of a script's file to read: a longer one would not compile, even if it is
    /// scrambled.
    std::size_t mostBytes() const;
    /// The bytes that a record may have.
    std::size_t mostBytesOfRecord() const { return static_cast<std::size_t>(record_); }
    /// The memory that the tables of a job may take.
    std::size_t mostBytesOfTables() const { return static_cast<std::size_t>(tables_); }
    /// How many records a job may work on.
    std::int64_t mostRecords() const { return records_; }
    /// The directories of include files that the options name.
    const std::vector<std::string>& includePath() const { return includePath_; }
    /// The highest tier in which scripts run.
    SCR::CodeTier tier() const { return tier_; }
    void tier(SCR::CodeTier tier) { tier_ = tier; }
    /// The options that change what a script does, as they were given.
    const std::vector<std::string>& given() const { return given_; }

private:
    // The directory of the script; none for a text that is no file.
    std::vector<std::string> lastIncludePath() const;
    // These throw CLI::ValidationError.
    void setLimit(const std::string& text);  // "NAME=VALUE"
    void allow(const std::string& name);     // a capability, or "include=DIR"

    MessageStyle::Form form_ = MessageStyle::Form::Text;
    std::vector<std::string> withoutWarnings_;
    std::string scriptName_;
    SCR::Limits limits_;
    std::int64_t records_ = INT64_MAX;
    std::int64_t record_ = std::int64_t{64} << 20;
    std::int64_t tables_ = std::int64_t{1} << 30;
    SCR::Capabilities capabilities_ = SCR::Capabilities::none();  // granted despite --sandbox
    bool isSandboxed_ = false;
    SCR::CodeTier tier_ = SCR::CodeTier::Native;
    std::string zone_;
    std::vector<std::string> given_;
    std::vector<std::string> includePath_;
    std::vector<std::pair<std::string, std::string>> constants_;
};

}  // namespace Cli
