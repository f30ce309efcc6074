#pragma once

#include <string>

namespace Cli {

/// Prints the page about the message `code`, such as "K0002"; false when there is none.
bool printExplanation(std::string code);

}  // namespace Cli
