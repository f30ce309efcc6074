#include <dlfcn.h>

#include "scr/Extension.h"
#include "scr/Interpreter.h"
#include "scr/parser/Actions.h"
#include "scr/parser/Messages.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParseState.h"

namespace {

using Generator = SCR::Extension* (*)();

bool reportUse(const FND::String& name, const FND::String& reason) {
    return SCR_YaccError(SCR::Messages::cannotUse(name, reason));
}

FND::String loaderError() {
    const char* const text = dlerror();
    return text != nullptr ? text : "unknown error";
}

// Calls the generator; one that throws, or gives an extension without a name, has failed like one
// that gives nothing.
std::unique_ptr<SCR::Extension> generate(Generator generator) {
    try {
        std::unique_ptr<SCR::Extension> extension(generator());
        if (extension) static_cast<void>(extension->extensionName());
        return extension;
    } catch (...) {
        return nullptr;
    }
}

}  // namespace

bool SCR_useExtension(std::string_view extensionName) {
    const FND::String name(extensionName);
    if (!SCR::actInterpreterG->capabilities().use) {
        return reportUse(name, SCR::Messages::forbiddenUse);
    }
    void* const library = dlopen(("lib" + name + ".so").c_str(), RTLD_NOW | RTLD_GLOBAL);
    if (library == nullptr) return reportUse(name, loaderError());
    // The library stays loaded for the life of the process, whatever follows.
    const auto generator =
        reinterpret_cast<Generator>(dlsym(library, (name + "_KestrelExtension").c_str()));
    if (generator == nullptr) return reportUse(name, loaderError());
    std::unique_ptr<SCR::Extension> extension = generate(generator);
    if (!extension) return reportUse(name, SCR::Messages::generatorFailed);
    if (!SCR::actInterpreterG->insertExtension(extension.get())) {
        SCR_YaccError(SCR::Messages::duplicateExtension(name));
        return true;
    }
    extension.release();
    return true;
}
