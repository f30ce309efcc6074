#pragma once

#include <optional>
#include <string>

namespace Cli {

/// The bytes of the file `path`, or of standard input when `path` is "-". None when they cannot be
/// read, which is reported on standard error.
std::optional<std::string> readScript(const std::string& path);

}  // namespace Cli
