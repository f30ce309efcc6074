#include "records/script/NamedFields.h"

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "records/script/Arguments.h"
#include "scr/Constant.h"
#include "scr/Extension.h"
#include "scr/FctDescr.h"
#include "scr/HostExtension.h"
#include "scr/Interpreter.h"
#include "scr/parser/ParserStack.h"

namespace Records {
namespace {

// A field function whose first argument is the name of a field, or a constant text that spells it.
// It takes any arguments and leaves their check to the function of the host.
class NamedField final : public SCR::FctDescr {
public:
    explicit NamedField(const SCR::FctDescr& function)
        : FctDescr(function.name(), function.returnType(), 0, anyNumber, make),
          function_(function) {
        mayRunScript(function.mayRunScript());
        effects(function.effects());
    }
    SCR::Variable* clone() const override { return new NamedField(*this); }

private:
    static SCR::Node* make(SCR::Interpreter& interpreter, SCR::ParserStack& stack,
                           const SCR::FctDescr& descriptor);

    const SCR::FctDescr& function_;  // of the extension of the host, which lives as long
};

SCR::Node* NamedField::make(SCR::Interpreter& interpreter, SCR::ParserStack& stack,
                            const SCR::FctDescr& descriptor) {
    std::vector<Argument> arguments = popArguments(stack);
    if (!arguments.empty()) {
        Argument& name = arguments.front();
        if (dynamic_cast<const SCR::StringConstant*>(name.node.get()) != nullptr) {
            name.type = SCR::TypeCode::EdrAlias;
        }
    }
    for (Argument& argument : arguments) {
        stack.pushData(argument.node.release(), argument.type, argument.traits);
    }
    if (!static_cast<const NamedField&>(descriptor).function_.create(interpreter, stack)) {
        return nullptr;
    }
    stack.popType();
    return stack.popData();
}

// Stands before the extension of the host, and gives its field functions.
class NamedFields final : public SCR::Extension {
public:
    void host(SCR::HostExtension* host) { host_ = host; }
    FND::String extensionName() const override { return "field"; }
    SCR::Variable* variable(const FND::String& name) override {
        if (host_ == nullptr || !name.starts_with("edr")) return nullptr;
        const auto* const function = dynamic_cast<const SCR::FctDescr*>(host_->variable(name));
        if (function == nullptr) return nullptr;
        auto& field = fields_[name];
        if (!field) field = std::make_unique<NamedField>(*function);
        return field.get();
    }

private:
    SCR::HostExtension* host_ = nullptr;  // not owned; outlives the scripts
    std::map<std::string, std::unique_ptr<NamedField>> fields_;
};

}  // namespace

SCR::HostExtension* insertRecordExtension(SCR::Interpreter& interpreter) {
    auto fields = std::make_unique<NamedFields>();
    if (!interpreter.insertExtension(fields.get())) return nullptr;
    NamedFields* const inserted = fields.release();
    SCR::HostExtension* const host = SCR::HostExtension::insert(interpreter, "record");
    inserted->host(host);
    return host;
}

}  // namespace Records
