#pragma once

#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"

namespace SCR {

/// What a function does to the world outside the script. Capabilities, the manual and the checks of
/// scripts use it. Values combine with `|`.
enum class Effect : unsigned {
    None = 0,
    ReadsFiles = 1,
    WritesFiles = 2,
    Shell = 4,
    Environment = 8,
    Clock = 16,
    Sleep = 32,
    StandardOutput = 64,
    Mutex = 128,
    Position = 256,   ///< Tells the place of an execution among others.
    Random = 1024,    ///< Gives another value each time.
    Log = 2048,       ///< Writes messages to the host's log.
    Totals = 4096,    ///< Adds to its first argument what the host combines over executions.
    LocalZone = 512,  ///< Depends on the local zone, at least with some arguments.
};

constexpr Effect operator|(Effect a, Effect b) {
    return static_cast<Effect>(static_cast<unsigned>(a) | static_cast<unsigned>(b));
}

/// `effects` without those of `effect`.
constexpr Effect without(Effect effects, Effect effect) {
    return static_cast<Effect>(static_cast<unsigned>(effects) & ~static_cast<unsigned>(effect));
}

/// Whether `effects` holds `effect`, or any of several.
constexpr bool has(Effect effects, Effect effect) {
    return (static_cast<unsigned>(effects) & static_cast<unsigned>(effect)) != 0;
}

/// What a host lets the scripts of one interpreter do besides computing: everything, unless it says
/// otherwise. A script that calls a forbidden function, includes a forbidden file or uses an
/// extension library without leave does not compile. Functions that hosts and extensions add are
/// not covered, unless they belong to a module, and standard output, the clock and mutexes are open
/// to every script.
///
/// Files may be granted by directories: a script may then use the files below them. Symbolic links
/// are followed first, and it does not matter who else changes the directories meanwhile. A
/// directory may be given by a relative path; it stays the directory that it was when the
/// interpreter was given these capabilities. One directory never takes away what another one
/// grants.
///
/// Unless everything is allowed, devices and the files of /proc, /sys and /dev are granted only
/// below a directory that itself lies in one of these, because writing to /proc/self/mem runs code.
/// The devices null and full are exceptions: they are granted like plain files of /dev.
struct KESTREL_API Capabilities {
    bool files = true;    ///< Functions that read or write files.
    bool shell = true;    ///< `system`.
    bool env = true;      ///< Reading the environment.
    bool sleep = true;    ///< Pausing.
    bool use = true;      ///< Loading extension libraries, which are native code.
    bool include = true;  ///< Include lines.
    bool random = true;   ///< Random values, as of modules: an execution could not be repeated.
    bool log = true;      ///< Messages that a script writes to the log by a module.
    /// The extension libraries that may be loaded without `use`, by name. The modules that come
    /// with this library need no leave: of their functions, those may be called whose effects are
    /// allowed.
    std::vector<FND::String> libraries;
    /// The directories below which `files` may be read and written, and those below which they may
    /// only be read; any file when both are empty. An operation on another file fails.
    std::vector<FND::String> fileDirectories;
    std::vector<FND::String> readOnlyDirectories;
    /// The directories below which included files must lie; empty allows any.
    std::vector<FND::String> includeDirectories;

    /// Nothing is allowed.
    KESTREL_API static Capabilities none();

    /// Whether everything is allowed.
    KESTREL_API bool isAll() const;

    /// Additionally allows what `text` names: "all", one of the flags by its name ("files",
    /// "shell", ...), or "files=DIR", "files-ro=DIR" or "include=DIR" for a directory, or
    /// "use=NAME" for a library. False when it names none of these. The order of the calls does not
    /// matter.
    KESTREL_API bool allow(const FND::String& text);

    /// Whether the extension library `name` may be loaded from anywhere.
    bool mayUse(const FND::String& name) const;

    /// The name of the first capability that a function with these effects lacks; null when it
    /// lacks none.
    const char* lacking(Effect effects) const;
};

/// The flag called `name` ("files", "shell", ...), or null.
KESTREL_API bool Capabilities::*capabilityOfName(const FND::String& name);

}  // namespace SCR
