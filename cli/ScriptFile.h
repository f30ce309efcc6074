#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace Cli {

/// The bytes of the file `path`, or of standard input when `path` is "-"; of an endless file little
/// more than the first `mostBytes`. None, after a report on standard error, when they cannot be
/// read.
std::optional<std::string> readScript(const std::string& path, std::size_t mostBytes = SIZE_MAX);

}  // namespace Cli
