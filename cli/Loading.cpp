#include "cli/Loading.h"

#include <dlfcn.h>

namespace Cli {

void* loadPart(const char* library, const char* entry, std::string& error) {
    void* const part = dlopen(library, RTLD_NOW | RTLD_LOCAL);
    void* const found = part != nullptr ? dlsym(part, entry) : nullptr;
    if (found != nullptr) return found;
    const char* const reason = dlerror();
    error = reason != nullptr ? reason : std::string(library) + " is of no use";
    return nullptr;
}

}  // namespace Cli
