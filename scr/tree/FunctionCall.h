#pragma once

#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

#include "scr/Function.h"
#include "scr/code/Builder.h"
#include "scr/run/NodeMemory.h"
#include "scr/run/RunControl.h"
#include "scr/value/TypeVisitor.h"

namespace SCR {

class FctDescr;

/// The common part of all calls of user functions: it assigns the arguments to the parameters and
/// runs the function.
class FunctionCall : public Code::Lowerable {
public:
    /// One assignment node per parameter, in the order of the parameters.
    using Bindings = NodeList;

    /// Takes ownership of the bindings; reports every call to `control`, if there is one.
    explicit FunctionCall(Bindings bindings, RunControl* control = nullptr)
        : bindings_(std::move(bindings)), control_(control) {}

    /// Sets the function to be called; not owned.
    void function(Function* function) { function_ = function; }
    /// Adds what is executed when all arguments are bound, before the function.
    void onEntry(std::unique_ptr<Node> node) { bindings_.push_back(std::move(node)); }

protected:
    ~FunctionCall() = default;

    /// Binds the arguments and executes the function; true when a return ran.
    bool call(const Node* place) {
        for (const std::unique_ptr<Node>& binding : bindings_) binding->execute();
        if (control_ != nullptr) control_->enterCall(place);
        const bool hasReturned = function_->execute() == Node::returned;
        if (control_ != nullptr) control_->leaveCall();
        return hasReturned;
    }
    /// Emits that. After a return, `load` gives the value, best in the operand given to it; after
    /// any other end it is `null`. Without `null` there is no value.
    Code::Ref lowerCall(Code::Builder& code, const Node* place,
                        const std::function<Code::Ref(Code::Ref)>& load, Code::Ref null) const;

    Function& function() const { return *function_; }

private:
    bool lowerBody(Code::Builder& code, Code::Label& returned, Code::Label& other) const;

    Bindings bindings_;
    Function* function_ = nullptr;
    RunControl* const control_;
};

/// What a call of a function with the result `Type` is: a handle is given as a plain Long.
template <class Type>
using CallBase = std::conditional_t<std::is_same_v<Type, AdtType>, LongNode, typename Type::Node>;

/// A call as an expression of the type `Type`; a function that ends without a return gives the
/// type's null value. A recursive call shares parameters, locals and return variable with the call
/// that makes it.
template <class Type>
class TypedFunctionCall final : public CallBase<Type>, public FunctionCall {
public:
    using FunctionCall::FunctionCall;

    typename Type::Argument result() override {
        if (!call(this)) return Type::null();
        return returned().value();
    }
    Code::Ref lowerValue(Code::Builder& code, Code::Ref /*target*/) override {
        using Value = typename Type::Value;
        const Value* const home = &returned().value();
        const auto load = [&](Code::Ref target) {
            if constexpr (std::is_same_v<Value, long>) {
                return code.variable(home);
            } else if constexpr (std::is_same_v<Value, bool>) {
                return code.load(home, target);
            } else {
                return code.address(home);
            }
        };
        if constexpr (Type::byReference) {
            return lowerCall(code, this, load, code.address(&Type::null()));
        } else {
            return lowerCall(code, this, load, code.constant(0));
        }
    }

private:
    typename Type::Variable& returned() const {
        return static_cast<typename Type::Variable&>(*function().returnVariable());
    }
};

template <>
class TypedFunctionCall<VoidType> final : public VoidNode, public FunctionCall {
public:
    using FunctionCall::FunctionCall;

    void result() override { call(this); }
    Code::Ref lowerValue(Code::Builder& code, Code::Ref /*target*/) override {
        return lowerCall(code, this, {}, {});
    }
};

/// Stands for a function that is named but not (yet) called; executing it does nothing.
class FctCallNode final : public Node {
public:
    /// `descriptor` is not owned.
    explicit FctCallNode(const FctDescr* descriptor) : descriptor_(descriptor) {}

    std::int32_t execute() override { return goOn; }

    const FctDescr* descriptor() const { return descriptor_; }

private:
    const FctDescr* const descriptor_;
};

}  // namespace SCR
