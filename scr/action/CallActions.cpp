#include <vector>

#include "scr/FctDescr.h"
#include "scr/Interpreter.h"
#include "scr/action/ActionSupport.h"
#include "scr/action/Actions.h"
#include "scr/call/Binding.h"
#include "scr/check/Analyses.h"
#include "scr/message/Messages.h"
#include "scr/parser/Observing.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParseState.h"
#include "scr/run/RunControl.h"
#include "scr/tree/FunctionCall.h"
#include "scr/value/TypeVisitor.h"

namespace SCR {

namespace {

using Bindings = FunctionCall::Bindings;

template <class Call>
std::unique_ptr<Node> makeCall(Bindings bindings, RunControl& control, Function* function) {
    auto call = std::make_unique<Call>(std::move(bindings), &control);
    call->function(function);
    return call;
}

using MakeCall = std::unique_ptr<Node> (*)(Bindings, RunControl&, Function*);

// The factory of the call of a function with the given return type, or null.
MakeCall callMaker(int returnType) {
    return withType(ResultTypes(), returnType,
                    []<class Type>(Type) -> MakeCall { return makeCall<TypedFunctionCall<Type>>; });
}

// An argument on its way from the parser stack into the assignment to its parameter.
struct Argument {
    std::unique_ptr<Node> node;
    OperandTraits traits;
};

// The assignment of `argument` to the parameter `variable`; null after a report.
std::unique_ptr<Node> bindArgument(ParserStack& stack, Variable* variable, const FND::String& name,
                                   Argument argument) {
    const int type = variable->dataType();
    if (parseContextG->observing) {
        argument.node =
            parseContextG->observing->wrapArgument(std::move(argument.node), type, name);
    }
    std::unique_ptr<Node> access = accessNode(variable);
    stack.pushData(access.release(), type);
    stack.pushData(argument.node.release(), Node::baseType(type), argument.traits);
    if (!SCR_expression(Operator::Assign)) return nullptr;
    stack.popType();
    return stack.pop<Node>();
}

}  // namespace

}  // namespace SCR

using namespace SCR;

bool SCR_functionCall() {
    const int type = stackG->popType();
    const auto callee = stackG->pop<Node>();
    if (Node::baseType(type) != TypeCode::Function) {
        if (!parseContextG->recovery.hasLostFunction)
            return SCR_YaccError(Messages::notCallable(type));
        parseContextG->isLost = parseContextG->recovery.isForgiven = true;
        return true;
    }
    const FctDescr* const descriptor = static_cast<const FctCallNode&>(*callee).descriptor();
    if (descriptor == nullptr) return SCR_YaccError(Messages::noDescription);
    Recovery& recovery = parseContextG->recovery;
    if (!recovery.looseFunctions.empty() && recovery.looseFunctions.contains(descriptor)) {
        parseContextG->isLost = recovery.isForgiven = true;
        return true;
    }
    tellAnalyses([&](auto& analysis) { analysis.openCall(); });
    stackG->pushFunction(descriptor);
    stackG->pushNumParams(0);
    return true;
}

void SCR_countParameter() { stackG->incTopNumParams(); }

bool SCR_endFunctionCall() {
    if (!stackG->topFunction()->create(*actInterpreterG, *stackG)) {
        parseContextG->recovery.fault.function = stackG->topFunction();
        return false;
    }
    stackG->popFunction();
    stackG->popNumParams();
    tellAnalyses([&](auto& analysis) { analysis.closeCall(); });
    recordPlace(stackG->data());
    return true;
}

Node* SCR_functionCallFactory(Interpreter& interpreter, ParserStack& stack,
                              const FctDescr& descriptor) {
    Function* const function = interpreter.getFunction(descriptor.name());
    if (function == nullptr) {
        SCR_YaccError(Messages::unknownFunction(descriptor.signature()));
        return nullptr;
    }
    const Function::Names& names = function->parameterNames();
    std::vector<Argument> arguments(names.size());
    for (auto argument = arguments.rbegin(); argument != arguments.rend(); ++argument) {
        argument->traits = stack.traits();
        argument->node = stack.pop<Node>();
    }
    Bindings bindings;
    bindings.reserve(names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        Variable* const parameter = function->getIdentifier(names[i]);
        bindings.push_back(bindArgument(stack, parameter, names[i], std::move(arguments[i])));
        if (!bindings.back()) return nullptr;
    }
    const MakeCall makeCall = callMaker(descriptor.returnType());
    if (makeCall == nullptr) {
        SCR_YaccError(Messages::unsupportedReturnType(descriptor.returnType()));
        return nullptr;
    }
    std::unique_ptr<Node> call = makeCall(std::move(bindings), interpreter.runControl(), function);
    if (parseContextG->observing) {
        call = parseContextG->observing->wrapCall(std::move(call), descriptor.returnType(),
                                                  descriptor.name());
    }
    if (descriptor.returnType() == TypeCode::Adt) {
        return asHandle(std::move(call), descriptor.objectType(-1)).release();
    }
    return call.release();
}
