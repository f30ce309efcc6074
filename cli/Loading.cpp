#include "cli/Loading.h"

#include <dlfcn.h>

#include "scr/Version.h"

namespace Cli {

void* loadPart(const char* library, const char* entry, std::string& error) {
    // Next to the library of the engine.
    Dl_info engine{};
    std::string path = library;
    if (dladdr(reinterpret_cast<const void*>(&SCR::version), &engine) != 0) {
        const std::string name = engine.dli_fname;
        path.insert(0, name, 0, name.rfind('/') + 1);
    }
    void* const part = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    void* const found = part != nullptr ? dlsym(part, entry) : nullptr;
    if (found != nullptr) return found;
    const char* const reason = dlerror();
    error = reason != nullptr ? reason : std::string(library) + " is of no use";
    return nullptr;
}

}  // namespace Cli
