#pragma once

#include <CLI/App.hpp>
#include <functional>
#include <optional>
#include <string>

#include "cli/Command.h"
#include "records/RecordJob.h"

namespace SCR {
class Interpreter;
class Log;
}  // namespace SCR

namespace Cli {

/// The options of a command that executes a script for each record of a file.
class RecordOptions {
public:
    /// Declares the options on `command`; this object must live until the command line is parsed.
    void declare(CLI::App& command);
    /// Whether the user named records to work on.
    bool isGiven() const { return isGiven_; }

    /// Runs the job with an interpreter of its own. `prepare` sets up that interpreter; it and
    /// `compile` report what they refuse.
    ExitStatus run(const std::function<bool(SCR::Interpreter&)>& prepare,
                   const std::function<bool(SCR::Interpreter&)>& compile) const;

private:
    Records::JobOptions job_;
    std::string format_ = "csv";
    std::string delimiter_;
    bool isGiven_ = false;
    bool printsCounts_ = false;
};

}  // namespace Cli
