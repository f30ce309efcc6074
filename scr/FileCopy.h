#pragma once

#include <functional>

#include "fnd/String.h"

namespace SCR {

/// Copies the file `source` to `target`, which is made, or emptied if it exists. False when that
/// fails, be it as the copy is closed; what was written by then stays. `source` is left alone when
/// both names are of one file, and `target` when `source` cannot be read. `ask` is called between
/// pieces of the copy and may throw to give up.
bool copyFile(const FND::String& source, const FND::String& target,
              const std::function<void()>& ask);

}  // namespace SCR
