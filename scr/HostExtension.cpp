#include "scr/HostExtension.h"

#include <set>

#include "scr/Interpreter.h"
#include "scr/call/HostDescriptor.h"
#include "scr/message/Messages.h"
#include "scr/parser/CustomLexer.h"

namespace SCR {

HostExtension::HostExtension(FND::String name) : name_(std::move(name)) {}

HostExtension::~HostExtension() = default;

HostExtension* HostExtension::insert(Interpreter& interpreter, const FND::String& name) {
    if (interpreter.extension(name) != nullptr) {
        interpreter.logError(Messages::extensionTaken(name));
        return nullptr;
    }
    auto extension = std::make_unique<HostExtension>(name);
    if (!interpreter.insertExtension(extension.get())) return nullptr;
    return extension.release();
}

Variable* HostExtension::variable(const FND::String& name) {
    const auto found = variables_.find(name);
    return found != variables_.end() ? found->second.get() : nullptr;
}

bool HostExtension::enter(Interpreter& interpreter) {
    if (!isName(name_)) {
        interpreter.logError(Messages::extensionRefused(name_, Messages::noIdentifier(name_)));
        return false;
    }
    for (const auto& [message, severity] : messages_) interpreter.log(message, severity);
    messages_.clear();
    std::set<FND::String> hidden;  // in an order that does not change
    for (const auto& [name, variable] : variables_) {
        if (interpreter.isPredefined(name)) hidden.insert(name);
    }
    for (const FND::String& name : hidden) {
        interpreter.log(Messages::onlyQualified(name_, name), FND::Status::Warning);
    }
    interpreter_ = &interpreter;
    return true;
}

void HostExtension::log(const FND::String& message, FND::Status::Severity severity) {
    if (interpreter_ != nullptr) {
        interpreter_->log(message, severity);
    } else {
        messages_.emplace_back(message, severity);
    }
}

bool HostExtension::insert(const FND::String& name, std::unique_ptr<Variable>& variable) {
    const bool isGood = isName(name);
    if (!isGood || !variables_.try_emplace(name, std::move(variable)).second) {
        const FND::String reason =
            isGood ? Messages::nameTaken(name) : Messages::noIdentifier(name);
        log(Messages::extensionRefused(name_, reason), FND::Status::Error);
        return false;
    }
    if (isKeyword(name) || (interpreter_ != nullptr && interpreter_->isPredefined(name))) {
        log(Messages::onlyQualified(name_, name), FND::Status::Warning);
    }
    return true;
}

FctDescr* HostExtension::insert(const FND::String& name, Host::Description description) {
    std::unique_ptr<FctDescr> made = Host::makeDescriptor(name, std::move(description), fieldIds_);
    FctDescr* const descriptor = made.get();
    std::unique_ptr<Variable> variable = std::move(made);
    return insert(name, variable) ? descriptor : nullptr;
}

Host::Storage HostExtension::declare(const FND::String& name, int typeCode, const void* value) {
    return Host::withType(typeCode, [&]<class Type>(Type) -> Host::Storage {
        using Storage = typename Type::Variable;
        if (auto* const same = dynamic_cast<Storage*>(variable(name));
            same != nullptr && Node::isLeft(same->dataType())) {
            return {&same->value(), true};
        }
        auto made = std::make_unique<Storage>(*static_cast<const typename Type::Value*>(value));
        void* const stored = &made->value();
        std::unique_ptr<Variable> variable = std::move(made);
        const bool isDeclared = insert(name, variable);
        if (!isDeclared) nameless_.push_back(std::move(variable));
        return {stored, isDeclared};
    });
}

bool HostExtension::declareConstant(const FND::String& name, int typeCode, const void* value) {
    return Host::withType(typeCode, [&]<class Type>(Type) {
        const auto& constant = *static_cast<const typename Type::Value*>(value);
        std::unique_ptr<Variable> made = std::make_unique<typename Type::Variable>(constant, true);
        return insert(name, made);
    });
}

}  // namespace SCR
