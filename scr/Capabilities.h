#pragma once

#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/Effect.h"

namespace SCR {

/// What a host lets the scripts of one interpreter do beside computing: everything, unless it says
/// otherwise. A script that calls a forbidden function, includes a forbidden file or uses an
/// extension library without leave does not compile. What hosts and extensions add themselves is
/// not theirs to forbid here, and standard output, the clock and mutexes are open to every script.
struct Capabilities {
    bool files = true;    ///< Functions that read or write files.
    bool shell = true;    ///< `system`.
    bool env = true;      ///< Reading the environment.
    bool sleep = true;    ///< Pausing.
    bool use = true;      ///< Loading extension libraries, which are native code.
    bool include = true;  ///< Include lines.
    /// The directories at or below which included files must lie after all symbolic links are
    /// followed; empty for any.
    std::vector<FND::String> includeDirectories;

    /// Nothing is allowed.
    static Capabilities none() { return {false, false, false, false, false, false, {}}; }

    /// The name of the first capability that a function with these effects lacks; null for none.
    const char* lacking(Effect effects) const;
};

/// The capability called `name` ("files", "shell", ...), or null: for hosts that read capabilities
/// from a text.
KESTREL_API bool Capabilities::*capabilityOfName(const FND::String& name);

}  // namespace SCR
