#include "scr/Array.h"
#include "scr/FctDescr.h"
#include "scr/Function.h"
#include "scr/Hash.h"
#include "scr/Interpreter.h"
#include "scr/action/ActionSupport.h"
#include "scr/action/Actions.h"
#include "scr/check/Analyses.h"
#include "scr/message/Messages.h"
#include "scr/parser/CustomLexer.h"
#include "scr/parser/Observing.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParseState.h"
#include "scr/value/ObjectTable.h"
#include "scr/value/TypeVisitor.h"

namespace SCR {

namespace {

bool isHostType(std::string_view name) {
    return actInterpreterG->objects().typeNames().contains(name);
}

// A variable of the declarable type `name`, or null.
std::unique_ptr<Variable> makeVariable(std::string_view name) {
    if (isHandleType(name) || isHostType(name)) {
        auto variable = std::make_unique<AdtVariable>();
        variable->subType(FND::String(name));
        return variable;
    }
    using Declarable =
        TypeList<LongType, StringType, DecimalType, BoolType, DateType, FileType, NexidType>;
    return withType(Declarable(), Node::typeIdForName(FND::String(name)),
                    []<class Type>(Type) -> std::unique_ptr<Variable> {
                        return std::make_unique<typename Type::Variable>();
                    });
}

// Declares `variable` in the innermost block; or reports, in the words of `taken`, that the name is
// taken, and destroys it.
bool declare(const FND::String& name, std::unique_ptr<Variable> variable,
             Messages::Message (*taken)(const FND::String& name)) {
    if (!actInterpreterG->addIdentifier(name, variable.get())) return SCR_YaccError(taken(name));
    variable.release();
    return true;
}

// A constant variable with the value that `node` gives.
template <class Type>
std::unique_ptr<Variable> constantFrom(Node& node) {
    return std::make_unique<typename Type::Variable>(
        static_cast<typename Type::Node&>(node).result(), true);
}

using MakeConstant = std::unique_ptr<Variable> (*)(Node&);

// The maker of constants of the type `code`; null when there are no constants of this type.
MakeConstant constantMaker(int code) {
    using Declarable = TypeList<StringType, DecimalType, BoolType, LongType>;
    return withType(Declarable(), code,
                    []<class Type>(Type) -> MakeConstant { return constantFrom<Type>; });
}

}  // namespace

}  // namespace SCR

using namespace SCR;

void SCR_startModifiers() { parseContextG->modifiers.clear(); }

bool SCR_addModifier(char modifier) {
    FND::String& modifiers = parseContextG->modifiers;
    if (static_cast<std::int64_t>(modifiers.size()) >= actInterpreterG->limits().levels()) {
        return SCR_YaccError(Messages::nestedTooDeep);
    }
    modifiers += modifier;
    return true;
}

bool SCR_declareVariable(std::string_view typeName, std::string_view identifier) {
    return SCR_variableDeclaration(typeName, identifier, parseContextG->modifiers);
}

bool SCR_variableDeclaration(std::string_view typeName, std::string_view identifier,
                             std::string_view modifiers) {
    std::unique_ptr<Variable> variable = makeVariable(typeName);
    if (!variable) return SCR_YaccError(Messages::unknownDatatype(FND::String(typeName)));
    for (auto modifier = modifiers.rbegin(); modifier != modifiers.rend(); ++modifier) {
        if (*modifier == 'A') {
            variable = makeOwner<Array>(std::move(variable));
        } else if (*modifier == 'H') {
            variable = makeOwner<Hash>(std::move(variable));
        } else {
            return SCR_YaccError(Messages::unknownModifier);
        }
    }
    const FND::String name(identifier);
    const Variable* const outer =
        parseContextG->isWatched ? actInterpreterG->getVariable({}, name) : nullptr;
    if (!actInterpreterG->addIdentifier(name, variable.get())) {
        return SCR_YaccError(Messages::identifierDefined(name));
    }
    if (parseContextG->isWatched) {
        const std::string_view place = analysesG->usage.placeOf(outer);
        if (!place.empty()) parseContextG->recovery.lint.addShadowed(identifier, place);
    }
    tellAnalyses([&](auto& analysis) {
        SCR_about(identifier);
        analysis.declared(variable.get(), name);
        SCR_about({});
    });
    variable.release();
    return true;
}

bool SCR_initialise() { return SCR_expression(Operator::Assign) && SCR_createVoidCallStatement(); }

bool SCR_constDeclaration(std::string_view typeName, std::string_view identifier) {
    const FND::String declared(typeName);
    const FND::String name(identifier);
    const MakeConstant makeConstant = constantMaker(Node::typeIdForName(declared));
    if (makeConstant == nullptr) return SCR_YaccError(Messages::constTypeNotSupported(declared));
    const int type = stackG->popType();
    const auto value = stackG->pop<Node>();
    if (!Node::isConst(type)) return SCR_YaccError(Messages::expectedConstant(name));
    if (Node::baseType(type) != Node::typeIdForName(declared)) {
        return SCR_YaccError(Messages::wrongConstant(declared, type));
    }
    return declare(name, makeConstant(*value), Messages::constIdentifierDefined);
}

bool SCR_startFunctionDeclaration(std::string_view returnType, std::string_view name) {
    if (actInterpreterG->statementDepth() > 1) return SCR_YaccError(Messages::nestedFunction);
    const FND::String functionName(name);
    const bool isHandle = isHostType(returnType);
    const int type = isHandle ? TypeCode::Adt : Node::typeIdForName(FND::String(returnType));
    auto descriptor = std::make_unique<FctDescr>(functionName, type, 0, 0, SCR_functionCallFactory);
    if (isHandle) descriptor->objectType(-1, FND::String(returnType));
    FctDescr* const declared = descriptor.get();
    if (!declare(functionName, std::move(descriptor), Messages::functionDefined)) {
        return false;
    }
    stackG->pushFunction(declared);
    stackG->pushNumParams(0);
    auto function = std::make_unique<Function>();
    if (!actInterpreterG->pushFunction(functionName, function.get())) {
        return SCR_YaccError(Messages::functionDefined(functionName));
    }
    parseContextG->function = function.release();
    parseContextG->functionDescriptor = declared;
    ++parseContextG->declaredFunctions;
    SCR_about(name);
    tellAnalyses([&](auto& analysis) { analysis.openFunction(declared); });
    SCR_about({});
    if (type == TypeCode::Void) {
        parseContextG->function->startParameters();
        return true;
    }
    return SCR_variableDeclaration(returnType, Function::retValNameCM, "");
}

bool SCR_functionAddParameters() {
    if (parseContextG->isLostFunction) return true;
    Function& function = *parseContextG->function;
    FctDescr* const descriptor = parseContextG->functionDescriptor;
    // A parameter may have the function's name.
    if (function.getIdentifier(descriptor->name()) != nullptr) {
        return SCR_YaccError(Messages::unknownFunction(descriptor->name()));
    }
    for (const FND::String& parameter : function.parameterNames()) {
        const Variable* const variable = function.getIdentifier(parameter);
        const int type = Node::baseType(variable->dataType());
        descriptor->addArg(type);
        if (type == TypeCode::Adt) {
            const FND::String& name = static_cast<const AdtVariable*>(variable)->subType();
            if (isHostType(name)) descriptor->objectType(descriptor->minimum() - 1, name);
        }
        tellAnalyses([&](auto& analysis) { analysis.parameter(variable); });
    }
    function.closeParameters();
    if (parseContextG->observing) parseContextG->observing->startBody();
    return true;
}

bool SCR_endFunctionDeclaration() {
    if (std::exchange(parseContextG->isLostFunction, false)) return SCR_endBlock();
    const Function& function = *parseContextG->function;
    if (!actInterpreterG->popStatement()) return SCR_YaccError(Messages::blockNotPopped);
    const FctDescr* const descriptor = stackG->popFunction();
    stackG->popNumParams();
    --parseContextG->declaredFunctions;
    parseContextG->function = nullptr;
    parseContextG->functionDescriptor = nullptr;
    tellAnalyses([&](auto& analysis) { analysis.closeFunction(); });
    // A `return` that has an error may be missing.
    if (descriptor->returnType() != TypeCode::Void && !function.returnsResult() &&
        parseContextG->recovery.errors == 0) {
        SCR_YaccError(Messages::possibleMissingReturn(descriptor->signature(), descriptor->name(),
                                                      descriptor->returnType()));
    }
    return true;
}
