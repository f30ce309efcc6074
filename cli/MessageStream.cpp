#include "cli/MessageStream.h"

#include <dlfcn.h>

namespace Cli {

std::unique_ptr<MessageStream> MessageStream::open(const Source& source, std::string& error) {
    // The loader looks next to the library of the engine. It stays loaded.
    void* const library = dlopen("libkestrel-nats.so", RTLD_NOW | RTLD_LOCAL);
    void* const entry = library != nullptr ? dlsym(library, openNatsStreamS) : nullptr;
    if (entry == nullptr) {
        const char* const reason = dlerror();
        error = reason != nullptr ? reason : "libkestrel-nats.so is of no use";
        return nullptr;
    }
    return std::unique_ptr<MessageStream>(reinterpret_cast<OpenStream>(entry)(source, error));
}

}  // namespace Cli
