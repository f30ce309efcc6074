#pragma once

#include <string_view>
#include <vector>

#include "fnd/String.h"

namespace SCR {

class Extension;
struct ModuleTable;

/// The files of extension libraries and modules: where they lie, and what they export.
namespace ModuleFiles {

using Generator = Extension* (*)();
using Table = const ModuleTable* (*)();

/// A library that is loaded and has the entry of its name.
struct Library {
    Generator generator = nullptr;
    Table table = nullptr;            ///< of a module
    const int* version = nullptr;     ///< for which major version it was built, if it says so
    FND::String reason;               ///< why there is none
    bool isFound = false;             ///< there is a file of the name, be it of use or not
    std::vector<FND::String> places;  ///< the folders searched, besides the loader's own
};

/// The folder of the modules that come with this library.
const FND::String& shippedFolder();

/// Loads the library `name`: as the system's loader finds it, unless `onlyShipped`, then from
/// `folders` and those of the environment's KESTREL_MODULES, and at last from the folder of the
/// modules that come with this library. A file without the entry counts as not found. Libraries
/// stay loaded as long as the process runs.
Library load(const FND::String& name, bool onlyShipped, const std::vector<FND::String>& folders);

/// The names of the modules in that folder, and their tables.
std::vector<FND::String> shippedNames();
std::vector<const ModuleTable*> shipped();

}  // namespace ModuleFiles

}  // namespace SCR
