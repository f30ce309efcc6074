#include "scr/HostExtension.h"

#include <exception>
#include <stdexcept>

#include "scr/RunControl.h"
#include "scr/parser/Messages.h"
#include "scr/parser/ParseErrors.h"

namespace SCR {

HostExtension::HostExtension(FND::String name) : name_(std::move(name)) {}

HostExtension::~HostExtension() = default;

HostExtension* HostExtension::insert(Interpreter& interpreter, const FND::String& name) {
    auto extension = std::make_unique<HostExtension>(name);
    if (!interpreter.insertExtension(extension.get())) return nullptr;
    return extension.release();
}

Variable* HostExtension::variable(const FND::String& name) {
    const auto found = variables_.find(name);
    return found != variables_.end() ? found->second.get() : nullptr;
}

bool HostExtension::insert(const FND::String& name, std::unique_ptr<Variable> variable) {
    return variables_.try_emplace(name, std::move(variable)).second;
}

bool Host::resolveField(const FieldIds& ids, const FND::String& name, long& id) {
    if (!ids) return true;
    id = ids(name);
    return id >= 0 || SCR_YaccError(Messages::unknownField(name));
}

namespace {

// Logs why `function` failed when it gives the null value then, and stops the script otherwise.
void handleFailure(Interpreter& interpreter, const FctDescr& function, const FND::String& reason) {
    const FND::String message = function.name() + ": " + reason;
    if (!function.nullOnFailure()) interpreter.runControl().stop(nullptr, message);
    interpreter.logError(message);
}

}  // namespace

void Host::handleException(Interpreter& interpreter, const FctDescr& function) {
    FND::String reason = "unknown exception";
    try {
        throw;
    } catch (const ScriptStopped&) {
        throw;
    } catch (const std::exception& error) {
        reason = error.what();
    } catch (...) {
    }
    handleFailure(interpreter, function, reason);
}

bool Host::hasReturned(Interpreter& interpreter, const FctDescr& function) {
    RunControl& control = interpreter.runControl();
    const bool hasFailed = control.hasFailed();
    if (hasFailed) [[unlikely]]
        handleFailure(interpreter, function, control.takeFailure());
    control.ask(nullptr);
    return !hasFailed;
}

void Host::throwOutOfRange(const FND::String& number) {
    throw std::out_of_range("value out of range '" + number + "'");
}

}  // namespace SCR
