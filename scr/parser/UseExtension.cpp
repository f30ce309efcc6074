#include <dlfcn.h>

#include <exception>
#include <memory>
#include <new>

#include "scr/Extension.h"
#include "scr/Interpreter.h"
#include "scr/Version.h"
#include "scr/check/Analyses.h"
#include "scr/message/Messages.h"
#include "scr/parser/Actions.h"
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

// Calls the generator and stores the extension's name in `module`; null after a report.
std::unique_ptr<SCR::Extension> generate(const FND::String& name, Generator generator,
                                         FND::String& module) {
    FND::String reason = SCR::Messages::generatorFailed;
    try {
        std::unique_ptr<SCR::Extension> extension(generator());
        if (extension) {
            module = extension->extensionName();
            return extension;
        }
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        reason += FND::String(": ") + error.what();
    } catch (...) {
        reason += ": unknown exception";
    }
    reportUse(name, reason);
    return nullptr;
}

}  // namespace

bool SCR_useExtension(std::string_view extensionName) {
    const FND::String name(extensionName);
    if (!SCR::actInterpreterG->capabilities().use) {
        return reportUse(name, SCR::Messages::forbiddenUse);
    }
    void* const library = dlopen(("lib" + name + ".so").c_str(), RTLD_NOW | RTLD_GLOBAL);
    if (library == nullptr) return reportUse(name, loaderError());
    // The library stays loaded as long as the process runs, even after a failure.
    const auto generator =
        reinterpret_cast<Generator>(dlsym(library, (name + "_KestrelExtension").c_str()));
    if (generator == nullptr) return reportUse(name, loaderError());
    const auto* const built =
        static_cast<const int*>(dlsym(library, (name + "_KestrelVersion").c_str()));
    if (built != nullptr && *built != KESTREL_VERSION_MAJOR) {
        return reportUse(name, SCR::Messages::builtForVersion(*built, KESTREL_VERSION_MAJOR));
    }
    FND::String module;
    std::unique_ptr<SCR::Extension> extension = generate(name, generator, module);
    if (!extension) return false;
    if (SCR::actInterpreterG->extension(module) != nullptr) {
        SCR_YaccError(SCR::Messages::duplicateExtension(name));
        return true;
    }
    if (!SCR::actInterpreterG->insertExtension(extension.get())) return false;
    SCR::tellAnalyses(*SCR::actInterpreterG, [&](auto& analysis) { analysis.usesLibrary(name); });
    extension.release();
    return true;
}
