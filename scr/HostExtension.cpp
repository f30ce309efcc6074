#include "scr/HostExtension.h"

#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

#include "scr/Interpreter.h"
#include "scr/call/HostDescriptor.h"
#include "scr/message/Messages.h"
#include "scr/value/TypeVisitor.h"
#include "scr/value/Words.h"

namespace SCR {

struct HostExtension::State {
    explicit State(FND::String ownName) : name(std::move(ownName)) {}

    void log(const FND::String& message, FND::Status::Severity severity);
    // Keeps `variable` under the name; false, after a message, when the name is refused.
    bool insert(const FND::String& variableName, std::unique_ptr<Variable>& variable);

    const FND::String name;
    Interpreter* interpreter = nullptr;                                   // owns the extension
    std::vector<std::pair<FND::String, FND::Status::Severity>> messages;  // kept until there is one
    std::unordered_map<FND::String, std::unique_ptr<Variable>> variables;
    std::vector<std::unique_ptr<Variable>> nameless;
    Host::Fields fields;
};

HostExtension::HostExtension(FND::String name) : state_(std::make_unique<State>(std::move(name))) {}

HostExtension::~HostExtension() = default;

FND::String HostExtension::extensionName() const { return state_->name; }

void HostExtension::fieldIds(Host::FieldIds ids, Host::FieldNames names) {
    state_->fields = {std::move(ids), std::move(names)};
}

HostExtension* HostExtension::insert(Interpreter& interpreter, const FND::String& name) {
    if (interpreter.extension(name) != nullptr) {
        interpreter.diagnose(Messages::setting(Messages::extensionTaken(name), FND::Status::Error));
        return nullptr;
    }
    auto extension = std::make_unique<HostExtension>(name);
    if (!interpreter.insertExtension(extension.get())) return nullptr;
    return extension.release();
}

Variable* HostExtension::variable(const FND::String& name) {
    const auto found = state_->variables.find(name);
    return found != state_->variables.end() ? found->second.get() : nullptr;
}

void HostExtension::visitNames(const std::function<void(const FND::String& name)>& visit) const {
    for (const auto& [name, variable] : state_->variables) visit(name);
}

bool HostExtension::enter(Interpreter& interpreter) {
    if (!isName(state_->name)) {
        interpreter.diagnose(Messages::setting(
            Messages::extensionRefused(state_->name, Messages::noIdentifier(state_->name)),
            FND::Status::Error));
        return false;
    }
    for (const auto& [message, severity] : state_->messages) {
        interpreter.diagnose(Messages::setting(message, severity));
    }
    state_->messages.clear();
    std::set<FND::String> hidden;  // ordered, so that messages do not vary
    for (const auto& [name, variable] : state_->variables) {
        if (interpreter.isPredefined(name)) hidden.insert(name);
    }
    for (const FND::String& name : hidden) {
        interpreter.diagnose(
            Messages::setting(Messages::onlyQualified(state_->name, name), FND::Status::Warning));
    }
    state_->interpreter = &interpreter;
    return true;
}

void HostExtension::State::log(const FND::String& message, FND::Status::Severity severity) {
    if (interpreter != nullptr) {
        interpreter->diagnose(Messages::setting(message, severity));
    } else {
        messages.emplace_back(message, severity);
    }
}

bool HostExtension::State::insert(const FND::String& variableName,
                                  std::unique_ptr<Variable>& variable) {
    const bool isGood = isName(variableName);
    if (!isGood || !variables.try_emplace(variableName, std::move(variable)).second) {
        const FND::String reason =
            isGood ? Messages::nameTaken(variableName) : Messages::noIdentifier(variableName);
        log(Messages::extensionRefused(name, reason), FND::Status::Error);
        return false;
    }
    if (wordOf(variableName) != Word::None ||
        (interpreter != nullptr && interpreter->isPredefined(variableName))) {
        log(Messages::onlyQualified(name, variableName), FND::Status::Warning);
    }
    return true;
}

FctDescr* HostExtension::insert(const FND::String& name, Host::Description description) {
    std::unique_ptr<FctDescr> made =
        Host::makeDescriptor(name, std::move(description), state_->fields);
    FctDescr* const descriptor = made.get();
    std::unique_ptr<Variable> variable = std::move(made);
    return state_->insert(name, variable) ? descriptor : nullptr;
}

Host::Storage HostExtension::declare(const FND::String& name, int typeCode, const void* value) {
    return withType(HostTypes(), typeCode, [&]<class Type>(Type) -> Host::Storage {
        using Storage = typename Type::Variable;
        if (auto* const same = dynamic_cast<Storage*>(variable(name));
            same != nullptr && Node::isLeft(same->dataType())) {
            return {&same->value(), true};
        }
        auto made = std::make_unique<Storage>(*static_cast<const typename Type::Value*>(value));
        void* const stored = &made->value();
        std::unique_ptr<Variable> variable = std::move(made);
        const bool isDeclared = state_->insert(name, variable);
        if (!isDeclared) state_->nameless.push_back(std::move(variable));
        return {stored, isDeclared};
    });
}

bool HostExtension::declareConstant(const FND::String& name, int typeCode, const void* value) {
    return withType(HostTypes(), typeCode, [&]<class Type>(Type) {
        const auto& constant = *static_cast<const typename Type::Value*>(value);
        std::unique_ptr<Variable> made = std::make_unique<typename Type::Variable>(constant, true);
        return state_->insert(name, made);
    });
}

}  // namespace SCR
