#pragma once

#include "fnd/Export.h"

/// The version that a host or an extension is compiled for. The build reads it from here.
#define KESTREL_VERSION_MAJOR 7
#define KESTREL_VERSION_MINOR 5
#define KESTREL_VERSION_PATCH 0

namespace SCR {

/// The version of the library that runs, such as "7.5.0". Never null; valid for ever.
KESTREL_API const char* version();

}  // namespace SCR

/// Stands once in the source of an extension library, outside of namespaces, with the library's
/// name as in `use NAME;`: lets `use` refuse the library when it was built for another major
/// version.
#define KESTREL_EXTENSION_VERSION(name) \
    extern "C" KESTREL_API const int name##_KestrelVersion = KESTREL_VERSION_MAJOR
