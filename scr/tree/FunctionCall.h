#pragma once

#include <cstddef>
#include <memory>
#include <type_traits>
#include <vector>

#include "scr/Function.h"
#include "scr/run/RunControl.h"
#include "scr/tree/StatementParts.h"
#include "scr/value/TypeVisitor.h"

namespace SCR {

class FctDescr;

/// The common part of all calls of user functions: it assigns the arguments to the parameters and
/// runs the function.
class FunctionCall {
public:
    /// One assignment node per parameter, in the order of the parameters.
    using Bindings = NodeList;

    /// Takes ownership of the bindings; reports every call to `control`, if there is one.
    explicit FunctionCall(Bindings bindings, RunControl* control = nullptr);

    /// Sets the function to be called; not owned.
    void function(Function* function) { function_ = function; }

protected:
    ~FunctionCall() = default;

    /// Binds the arguments and executes the function; true when a return ran.
    bool call(const Node* place) {
        enter(place);
        const bool hasReturned = function_->parts().run() == Node::returned;
        leave();
        return hasReturned;
    }

    /// Binds the arguments and evaluates `value`, the assignment of the function's only statement.
    template <class ValueNode>
    decltype(auto) evaluate(const Node* place, const ReturnStatement& only) {
        enter(place);
        try {
            decltype(auto) value = static_cast<ValueNode*>(only.value())->result();
            leave();
            return value;
        } catch (ScriptStopped& stopped) {
            stopped.passedThrough(&only);
            throw;
        }
    }

    const Function& function() const { return *function_; }

private:
    void enter(const Node* place) {
        const BlockStep* step = steps_.data();
        for (const BlockStep* const end = step + copyCount_; step != end; ++step)
            step->sum.runCopy();
        for (const BlockStep* const end = steps_.data() + steps_.size(); step != end; ++step) {
            step->execute();
        }
        if (control_ != nullptr) control_->enterCall(place);
    }
    void leave() {
        if (control_ != nullptr) control_->leaveCall();
    }

    const Bindings bindings_;
    std::vector<BlockStep> steps_;  // one per binding
    std::size_t copyCount_ = 0;     // how many of the first ones only copy a Long
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
        if (const ReturnStatement* const only = function().onlyReturn()) {
            return evaluate<typename Type::Node>(this, *only);
        }
        if (!call(this)) return Type::null();
        return static_cast<typename Type::Variable*>(function().returnVariable())->value();
    }
};

template <>
class TypedFunctionCall<VoidType> final : public VoidNode, public FunctionCall {
public:
    using FunctionCall::FunctionCall;

    void result() override { call(this); }
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
