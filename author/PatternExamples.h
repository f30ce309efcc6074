#pragma once

#include <optional>
#include <string>
#include <vector>

namespace Author {

/// For each of these patterns a short text for which it is the first one that matches, of readable
/// bytes where that is possible; nothing where there is none, a pattern does not parse, or it would
/// take too long.
std::vector<std::optional<std::string>> patternExamples(const std::vector<std::string>& patterns);

}  // namespace Author
