#pragma once

#include <span>

#include "modules/Support.h"

namespace Modules::TextModule {

/// Parts of the table, a file for each.
std::span<const ModuleFunction> plainFunctions();
std::span<const ModuleFunction> patternFunctions();
std::span<const ModuleFunction> unicodeFunctions();

}  // namespace Modules::TextModule
