#include "scr/ScriptHandle.h"

#include <string_view>

#include "scr/FctDescr.h"
#include "scr/Function.h"
#include "scr/run/Entry.h"
#include "scr/run/Link.h"

namespace SCR {

namespace {

constexpr const char* deadS = "the script of this handle is gone";

// What a call needs; everything belongs to the script.
struct CallTarget {
    Function* function = nullptr;
    std::vector<Variable*> parameters;
};

// The type code of the elements, and their prototype; null for what is no container.
const Variable* prototypeOf(const Variable& variable) {
    switch (Node::baseType(variable.dataType())) {
        case TypeCode::Array:
            return static_cast<const Array&>(variable).defaultValue();
        case TypeCode::Hash:
            return static_cast<const Hash&>(variable).defaultValue();
        default:
            return nullptr;
    }
}

bool hasShape(const Variable& variable, std::span<const int> shape) {
    const Variable* part = &variable;
    for (const int code : shape) {
        if (part == nullptr || Node::baseType(part->dataType()) != code) return false;
        part = prototypeOf(*part);
    }
    return true;
}

// A type as it is declared: the base type, and brackets from the outermost container inwards.
FND::String shapeText(std::span<const int> shape, const FND::String& object = {}) {
    FND::String text = object.empty() ? Node::datatypeAsString(shape.back()) : object;
    for (const int code : shape.first(shape.size() - 1)) {
        text += code == TypeCode::Array ? "[]" : "{}";
    }
    return text;
}

FND::String shapeText(const Variable& variable) {
    std::vector<int> shape;
    const Variable* last = &variable;
    for (const Variable* part = last; part != nullptr; part = prototypeOf(*part)) {
        shape.push_back(Node::baseType(part->dataType()));
        last = part;
    }
    if (shape.back() != TypeCode::Adt) return shapeText(shape);
    return shapeText(shape, static_cast<const AdtVariable*>(last)->subType());
}

FND::String signatureText(const FND::String& name, std::span<const std::span<const int>> shapes) {
    FND::String text = shapeText(shapes.front()) + " " + name + "(";
    for (std::size_t i = 1; i < shapes.size(); ++i)
        text += (i > 1 ? ", " : "") + shapeText(shapes[i]);
    return text + ")";
}

FND::String signatureText(const Function& function, const FND::String& name,
                          const std::vector<Variable*>& parameters) {
    const Variable* const result = function.returnVariable();
    FND::String text =
        (result != nullptr ? shapeText(*result) : FND::String("Void")) + " " + name + "(";
    for (std::size_t i = 0; i < parameters.size(); ++i) {
        text += (i > 0 ? ", " : "") + shapeText(*parameters[i]);
    }
    return text + ")";
}

// Finds "name" or "module::name".
Variable* find(Interpreter& interpreter, const FND::String& name) {
    const std::size_t colons = name.find("::");
    if (colons == FND::String::npos) return interpreter.getVariable({}, name);
    return interpreter.getVariable(name.substr(0, colons), name.substr(colons + 2));
}

}  // namespace

Outcome ScriptHandle::outcome() const noexcept {
    const HandleUse use(*this);
    return use ? Outcome() : use.refusal();
}

HandleUse::HandleUse(const ScriptHandle& handle) noexcept : handle_(handle) {
    if (handle.target_ == nullptr) return;
    Link& link = *handle.link_;
    if (!enter(link, isOutermost_)) {
        isForeign_ = true;
    } else if (link.generation == handle.generation_ && link.isReady) [[likely]] {
        target_ = handle.target_;
    }
}

HandleUse::~HandleUse() {
    if (isOutermost_) leave(*handle_.link_);
}

Interpreter& HandleUse::interpreter() const { return *handle_.link_->interpreter; }

Outcome HandleUse::refusal() const noexcept {
    if (isForeign_) return Outcome::refused("another thread uses the interpreter");
    return handle_.target_ != nullptr ? Outcome::refused(deadS) : handle_.refusal_;
}

Outcome HandleUse::refusal(const char* problem) const noexcept {
    try {
        return Outcome::refused("`" + handle_.name_ + "': " + problem);
    } catch (...) {
        return Outcome(Outcome::Kind::Refused);
    }
}

Variable& FunctionUse::parameter(std::size_t index) const {
    return *static_cast<const CallTarget*>(target())->parameters[index];
}

std::size_t FunctionUse::parameterCount() const {
    return static_cast<const CallTarget*>(target())->parameters.size();
}

Variable* FunctionUse::resultVariable() const {
    return static_cast<const CallTarget*>(target())->function->returnVariable();
}

Outcome FunctionUse::run(bool& hasResult) const {
    Interpreter& own = interpreter();
    Function& function = *static_cast<const CallTarget*>(target())->function;
    const auto call = [&] {
        const bool isDone = enterRun(own, [&] {
            hasResult = function.execute() == Node::returned;
            return true;
        });
        return isDone ? Outcome::Kind::Finished : Outcome::Kind::Failed;
    };
    return own.watch(std::ref(call));
}

void Interpreter::bindVariable(ScriptHandle& handle, const FND::String& name,
                               std::span<const int> shape) {
    handle.refusal_ = bind(handle, name, [&](Variable* found) -> FND::String {
        if (found == nullptr) return "there is no variable `" + name + "'";
        if (found->dataType() == TypeCode::Function) return "`" + name + "' is a function";
        if (!hasShape(*found, shape)) {
            return "`" + name + "' is " + shapeText(*found) + ", not " + shapeText(shape);
        }
        handle.target_ = found;
        return {};
    });
}

void Interpreter::bindFunction(ScriptHandle& handle, const FND::String& name,
                               std::span<const std::span<const int>> shapes) {
    handle.refusal_ = bind(handle, name, [&](Variable* /*found*/) -> FND::String {
        Function* const function = getFunction(name);
        if (function == nullptr) return "the script has no function `" + name + "'";
        const auto target = std::make_shared<CallTarget>();
        target->function = function;
        for (const FND::String& parameter : function->parameterNames()) {
            target->parameters.push_back(function->getIdentifier(parameter));
        }
        const Variable* const result = function->returnVariable();
        bool fits = shapes.empty();
        if (!fits)
            fits = target->parameters.size() + 1 == shapes.size() &&
                   (result != nullptr ? hasShape(*result, shapes.front())
                                      : shapes.front().front() == TypeCode::Void);
        for (std::size_t i = 1; fits && i < shapes.size(); ++i) {
            fits = hasShape(*target->parameters[i - 1], shapes[i]);
        }
        if (!fits) {
            return "the function is `" + signatureText(*function, name, target->parameters) +
                   "', not `" + signatureText(name, shapes) + "'";
        }
        handle.owner_ = target;
        handle.target_ = target.get();
        return {};
    });
}

template <class Bind>
Outcome Interpreter::bind(ScriptHandle& handle, const FND::String& name, const Bind& bindTo) {
    FND::String problem;
    const auto look = [&] {
        if (!link().isReady) {
            problem = "no script is compiled";
        } else {
            contain(*this, [&] {
                problem = bindTo(find(*this, name));
                handle.name_ = name;
                return true;
            });
        }
        handle.link_ = sharedLink();
        handle.generation_ = generation();
        return Outcome::Kind::Finished;
    };
    if (Outcome outcome = watch(std::ref(look)); !outcome) return outcome;
    return problem.empty() ? Outcome() : Outcome::refused(problem);
}

}  // namespace SCR
