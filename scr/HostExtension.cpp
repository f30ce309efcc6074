#include "scr/HostExtension.h"

#include <algorithm>
#include <map>
#include <set>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "scr/Interpreter.h"
#include "scr/call/HostDescriptor.h"
#include "scr/message/Messages.h"
#include "scr/value/ObjectTable.h"
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
    // The name that an object of the class has; null for none.
    const FND::String* typeOf(const void* kind) const;

    Host::Fields fields;
    Host::ObjectTypes types;
    // What people are told about a function.
    struct Manual {
        std::vector<FND::String> parameters;
        FND::String text;
        FND::String example;
    };
    std::map<FND::String, Manual> manuals;
};

namespace {

// The names in a list, without the blanks around them.
std::vector<FND::String> namesIn(std::string_view list) {
    std::vector<FND::String> names;
    while (!list.empty()) {
        const std::size_t end = std::min(list.find(','), list.size());
        std::string_view name = list.substr(0, end);
        list.remove_prefix(std::min(end + 1, list.size()));
        name.remove_prefix(std::min(name.find_first_not_of(' '), name.size()));
        name = name.substr(0, name.find_last_not_of(' ') + 1);
        names.emplace_back(name);
    }
    return names;
}

// The parameter `index` as manuals write it: "Type name", "out Type name", "change Type[] name".
FND::String spellParameter(const FctDescr& function, int index, const FND::String& name) {
    const int type = function.argType(index);
    const int base = Node::baseType(type);
    FND::String text;
    const auto nameOf = [&](int code) {
        const FND::String& object = function.objectType(index);
        return object.empty() ? Node::datatypeAsString(code) : object;
    };
    if (const int element = function.elementType(index); element != 0) {
        if (function.use(index) == FctDescr::Use::Changes) text = "change ";
        if (function.use(index) == FctDescr::Use::Replaces) text = "out ";
        text += nameOf(element) + (base == TypeCode::Hash ? "{}" : "[]");
    } else {
        if (Node::isLeft(type)) text = "out ";
        text += nameOf(base);
    }
    return text + " " + (name.empty() ? "a" + std::to_string(index + 1) : name);
}

FND::String spellSignature(const FctDescr& function, const std::vector<FND::String>& names) {
    const FND::String& object = function.objectType(-1);
    FND::String text = (object.empty() ? Node::datatypeAsString(function.returnType()) : object) +
                       " " + function.name() + "(";
    const bool hasRest = function.maximum() == FctDescr::anyNumber;
    const int declared =
        hasRest ? std::max(function.minimum(), static_cast<int>(names.size())) : function.maximum();
    for (int i = 0; i < declared; ++i) {
        if (i > 0) text += ", ";
        if (i == function.minimum()) text += "[";
        const auto at = static_cast<std::size_t>(i);
        text += spellParameter(function, i, at < names.size() ? names[at] : FND::String());
    }
    if (declared > function.minimum()) text += "]";
    if (hasRest) text += declared > 0 ? ", ..." : "...";
    return text + ")";
}

void appendJson(FND::String& json, const char* key, std::string_view value) {
    constexpr const char* digits = "0123456789abcdef";
    json.append(json.back() == '{' ? "\"" : ",\"").append(key).append("\":\"");
    for (const char byte : value) {
        const auto code = static_cast<unsigned char>(byte);
        if (code < 0x20) {
            json.append("\\u00").append(1, digits[code >> 4]).append(1, digits[code & 15]);
        } else {
            if (byte == '"' || byte == '\\') json += '\\';
            json += byte;
        }
    }
    json += '"';
}

}  // namespace

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
    for (const auto& [kind, type] : state_->types) {
        if (!interpreter.objects().addType(kind, type)) {
            interpreter.diagnose(Messages::setting(
                Messages::extensionRefused(state_->name, Messages::nameTaken(type)),
                FND::Status::Error));
            return false;
        }
    }
    state_->interpreter = &interpreter;
    return true;
}

const FND::String* HostExtension::State::typeOf(const void* kind) const {
    const auto own = types.find(kind);
    if (own != types.end()) return &own->second;
    return interpreter != nullptr ? interpreter->objects().nameOf(kind) : nullptr;
}

bool HostExtension::declareType(const void* kind, const FND::String& name) {
    const bool isWord = wordOf(name) != Word::None && !isHandleType(name);
    const bool isTaken =
        isWord || state_->variables.contains(name) || state_->typeOf(kind) != nullptr ||
        (state_->interpreter != nullptr && state_->interpreter->isPredefined(name));
    const bool isOther = std::any_of(state_->types.begin(), state_->types.end(),
                                     [&](const auto& type) { return type.second == name; });
    const bool isGood =
        isName(name) && !isTaken && !isOther &&
        (state_->interpreter == nullptr || state_->interpreter->objects().addType(kind, name));
    if (!isGood) {
        const FND::String reason =
            isName(name) ? Messages::nameTaken(name) : Messages::noIdentifier(name);
        state_->log(Messages::extensionRefused(state_->name, reason), FND::Status::Error);
        return false;
    }
    state_->types.emplace(kind, name);
    return true;
}

bool HostExtension::forgetObject(const void* kind, const void* object) {
    return state_->interpreter != nullptr && state_->interpreter->objects().forget(kind, object);
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
    const bool isType = std::any_of(types.begin(), types.end(),
                                    [&](const auto& type) { return type.second == variableName; });
    if (!isGood || isType || !variables.try_emplace(variableName, std::move(variable)).second) {
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
    Host::ObjectTypes types;
    for (const void* const kind : description.kinds) {
        if (kind == nullptr) continue;
        const FND::String* const type = state_->typeOf(kind);
        if (type == nullptr) {
            state_->log(Messages::extensionRefused(
                            state_->name, "`" + name + "' uses a class that has no type yet"),
                        FND::Status::Error);
            return nullptr;
        }
        types[kind] = *type;
    }
    std::unique_ptr<FctDescr> made =
        Host::makeDescriptor(name, std::move(description), state_->fields, types);
    FctDescr* const descriptor = made.get();
    std::unique_ptr<Variable> variable = std::move(made);
    return state_->insert(name, variable) ? descriptor : nullptr;
}

bool HostExtension::describe(const FND::String& name, const FND::String& parameters,
                             const FND::String& manual, const FND::String& example) {
    const auto* const function = dynamic_cast<const FctDescr*>(variable(name));
    std::vector<FND::String> names = namesIn(parameters);
    const auto count = static_cast<int>(names.size());
    const bool fits = function != nullptr && count >= function->minimum() &&
                      (function->maximum() == FctDescr::anyNumber || count == function->maximum());
    if (!fits) {
        const FND::String reason =
            function != nullptr
                ? "the description has another number of parameters than " + function->signature()
                : "there is no function `" + name + "' to describe";
        state_->log(Messages::extensionRefused(state_->name, reason), FND::Status::Error);
        return false;
    }
    state_->manuals[name] = {std::move(names), manual, example};
    return true;
}

FND::String HostExtension::functionsAsJson() const {
    std::set<FND::String> names;  // ordered
    visitNames([&](const FND::String& name) { names.insert(name); });
    const State::Manual none;
    FND::String json = "[";
    for (const FND::String& name : names) {
        const auto* const function =
            dynamic_cast<const FctDescr*>(state_->variables.at(name).get());
        if (function == nullptr) continue;
        const auto found = state_->manuals.find(name);
        const State::Manual& manual = found != state_->manuals.end() ? found->second : none;
        json += json.size() > 1 ? ",\n{" : "\n{";
        appendJson(json, "module", "");
        appendJson(json, "name", name);
        appendJson(json, "signature", spellSignature(*function, manual.parameters));
        appendJson(json, "manual", manual.text);
        appendJson(json, "example", manual.example);
        json += "}";
    }
    return json + "\n]\n";
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
