#pragma once

#include <cstdlib>

namespace Fuzz {

/// Ends the process when what must hold does not.
inline void check(bool holds) {
    if (!holds) std::abort();
}

}  // namespace Fuzz
