#pragma once

#include "fnd/String.h"

namespace SCR {

/// Something in a script that its author should know.
struct Finding {
    FND::String file;  ///< The include file's name; empty for the script itself.
    int line = 0;      ///< 1-based
    FND::String text;
    /// Whether it is about what one execution leaves to another, rather than about the world.
    bool isState = false;
};

}  // namespace SCR
