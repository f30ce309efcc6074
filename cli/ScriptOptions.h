#pragma once

#include <CLI/App.hpp>
#include <string>
#include <utility>
#include <vector>

#include "scr/Limits.h"

namespace SCR {
class Interpreter;
}

namespace Cli {

/// The options of every command that compiles a script: what the script finds around it.
class ScriptOptions {
public:
    /// Declares the options on `command`; this object must live until the command line is parsed.
    void declare(CLI::App& command);

    /// Applies them to a fresh interpreter. False: a constant is given twice, which is reported.
    bool apply(SCR::Interpreter& interpreter) const;

private:
    // Takes "NAME=VALUE"; throws CLI::ValidationError.
    void setLimit(const std::string& text);

    SCR::Limits limits_;
    std::vector<std::string> includePath_;
    std::vector<std::pair<std::string, std::string>> constants_;
};

}  // namespace Cli
