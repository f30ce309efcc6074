#pragma once

#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/Effect.h"

namespace SCR {

/// What a host lets the scripts of one interpreter do besides computing: everything, unless it says
/// otherwise. A script that calls a forbidden function, includes a forbidden file or uses an
/// extension library without leave does not compile. What hosts and extensions add themselves is
/// not theirs to forbid here, and standard output, the clock and mutexes are open to every script.
///
/// Files may be granted by directories: those that lie below one, after all symbolic links are
/// followed, whoever else changes the directories meanwhile. A directory may be given by a relative
/// path, and stays the one that it was when the interpreter was given these capabilities. What one
/// directory grants, another one does not take away.
///
/// Unless everything is allowed, files of /proc, /sys and /dev and devices are granted only below a
/// directory that lies in one of these itself, but for the devices null and full, which count as
/// files of /dev: what is written to /proc/self/mem is run.
struct KESTREL_API Capabilities {
    bool files = true;    ///< Functions that read or write files.
    bool shell = true;    ///< `system`.
    bool env = true;      ///< Reading the environment.
    bool sleep = true;    ///< Pausing.
    bool use = true;      ///< Loading extension libraries, which are native code.
    bool include = true;  ///< Include lines.
    /// The directories below which `files` may be read and written, and those below which they may
    /// be read; any file when both are empty. An operation on another file fails.
    std::vector<FND::String> fileDirectories;
    std::vector<FND::String> readOnlyDirectories;
    /// The directories below which included files must lie; empty for any.
    std::vector<FND::String> includeDirectories;

    /// Nothing is allowed.
    KESTREL_API static Capabilities none();

    /// Whether everything is allowed.
    KESTREL_API bool isAll() const;

    /// Further allows what `text` names: "all", one of the flags by its name ("files", "shell",
    /// ...), or "files=DIR", "files-ro=DIR" or "include=DIR" for a directory. False when it names
    /// nothing of it. The order in which things are allowed does not matter.
    KESTREL_API bool allow(const FND::String& text);

    /// The name of the first capability that a function with these effects lacks; null for none.
    const char* lacking(Effect effects) const;
};

/// The flag called `name` ("files", "shell", ...), or null.
KESTREL_API bool Capabilities::*capabilityOfName(const FND::String& name);

}  // namespace SCR
