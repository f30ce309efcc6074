#pragma once

#include <CLI/App.hpp>
#include <optional>
#include <string>
#include <vector>

#include "records/script/Tables.h"

namespace Cli {

/// The options that name tables to look up in.
class TableOptions {
public:
    /// Declares the options on `command`; this object must live until the command line is parsed.
    void declare(CLI::App& command);
    /// The tables named; none after a report.
    std::optional<std::vector<Records::TableFile>> files() const;
    /// The options as they were given.
    std::vector<std::string> given() const;

private:
    std::vector<std::string> files_;
    std::vector<std::string> keys_;
    std::vector<std::string> types_;
};

}  // namespace Cli
