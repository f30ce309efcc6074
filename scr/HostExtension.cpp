#include "scr/HostExtension.h"

#include "scr/HostDescriptor.h"
#include "scr/Interpreter.h"

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

FctDescr* HostExtension::insert(const FND::String& name, Host::Description description) {
    std::unique_ptr<FctDescr> made = Host::makeDescriptor(name, std::move(description), fieldIds_);
    FctDescr* const descriptor = made.get();
    return insert(name, std::move(made)) ? descriptor : nullptr;
}

void* HostExtension::declare(const FND::String& name, int typeCode, const void* value) {
    return Host::withType(typeCode, [&]<class Type>(Type) -> void* {
        using Storage = typename Type::Variable;
        Variable* const present = variable(name);
        if (auto* const same = dynamic_cast<Storage*>(present);
            same != nullptr && Node::isLeft(same->dataType())) {
            return &same->value();
        }
        auto made = std::make_unique<Storage>(*static_cast<const typename Type::Value*>(value));
        void* const stored = &made->value();
        if (present == nullptr) {
            insert(name, std::move(made));
        } else {
            nameless_.push_back(std::move(made));
        }
        return stored;
    });
}

bool HostExtension::declareConstant(const FND::String& name, int typeCode, const void* value) {
    return Host::withType(typeCode, [&]<class Type>(Type) {
        const auto& constant = *static_cast<const typename Type::Value*>(value);
        return insert(name, std::make_unique<typename Type::Variable>(constant, true));
    });
}

}  // namespace SCR
