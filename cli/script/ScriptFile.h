#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Cli {

/// The bytes of the file `path`, or of standard input when `path` is "-"; of an endless file little
/// more than the first `mostBytes`. None, after a report on standard error, when they cannot be
/// read.
std::optional<std::string> readScript(const std::string& path, std::size_t mostBytes = SIZE_MAX);

/// The lines of a text, without their ends; what follows the last line end is a line unless it is
/// empty.
std::vector<std::string> linesOf(std::string_view text);

}  // namespace Cli
