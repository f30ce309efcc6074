#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace Cli {

/// The bytes of the file `path`, or of standard input when `path` is "-"; of an endless one little
/// more than the first `mostBytes`. None when they cannot be read, which is reported on standard
/// error.
std::optional<std::string> readScript(const std::string& path, std::size_t mostBytes = SIZE_MAX);

}  // namespace Cli
