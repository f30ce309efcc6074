#include <exception>
#include <memory>
#include <new>

#include "scr/Extension.h"
#include "scr/Interpreter.h"
#include "scr/Version.h"
#include "scr/action/Actions.h"
#include "scr/check/Analyses.h"
#include "scr/message/Messages.h"
#include "scr/os/ModuleFiles.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParseState.h"

namespace {

using SCR::ModuleFiles::Generator;

bool reportUse(const FND::String& name, const FND::String& reason) {
    return SCR_YaccError(SCR::Messages::cannotUse(name, reason));
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
    SCR::Interpreter& interpreter = *SCR::actInterpreterG;
    // Without leave there are only the modules that come with this library: each of their functions
    // says what it does, and what is not allowed is refused call by call.
    const bool isAllowed = interpreter.capabilities().mayUse(name);
    const SCR::ModuleFiles::Library library =
        SCR::ModuleFiles::load(name, !isAllowed, interpreter.modulePath());
    if (library.generator == nullptr) {
        SCR::Messages::Message message = SCR::Messages::cannotUse(
            name, isAllowed ? library.reason : SCR::Messages::forbiddenUse);
        message.isAbsent = isAllowed && !library.isFound;
        if (isAllowed) message.places = library.places;
        return SCR_YaccError(message);
    }
    if (!isAllowed && library.table == nullptr) return reportUse(name, SCR::Messages::forbiddenUse);
    if (library.version != nullptr && *library.version != KESTREL_VERSION_MAJOR) {
        return reportUse(name,
                         SCR::Messages::builtForVersion(*library.version, KESTREL_VERSION_MAJOR));
    }
    FND::String module;
    std::unique_ptr<SCR::Extension> extension = generate(name, library.generator, module);
    if (!extension) return false;
    if (interpreter.extension(module) != nullptr) {
        SCR_YaccError(SCR::Messages::duplicateExtension(name));
        return true;
    }
    if (!interpreter.insertExtension(extension.get())) return false;
    if (library.table == nullptr) {
        SCR::tellAnalyses([&](auto& analysis) { analysis.usesLibrary(name); });
    }
    extension.release();
    return true;
}
