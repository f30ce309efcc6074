#pragma once

#include "scr/Module.h"

namespace Records {

/// The manual of the functions that scripts for records have besides the built-in ones: signatures,
/// effects, texts and examples. A test holds it against the functions themselves. `Field` in a
/// signature is the name of a field. The rows cannot add functions.
const SCR::ModuleTable& recordManual();

}  // namespace Records
