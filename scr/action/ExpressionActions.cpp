#include <algorithm>
#include <charconv>

#include "scr/Constant.h"
#include "scr/ContainerAccess.h"
#include "scr/Extension.h"
#include "scr/FctDescr.h"
#include "scr/Interpreter.h"
#include "scr/action/ActionSupport.h"
#include "scr/action/Actions.h"
#include "scr/check/Analyses.h"
#include "scr/message/Messages.h"
#include "scr/parser/CustomLexer.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParseState.h"
#include "scr/value/Words.h"

namespace SCR {

namespace {

// Whether an identifier read now is the first argument of a field function whose call is open.
bool isFieldAlias() {
    if (stackG->numFunctions() <= parseContextG->declaredFunctions) return false;
    if (stackG->topNumParams() != 0) return false;
    const FctDescr& function = *stackG->topFunction();
    return Node::baseType(function.argType(0)) == TypeCode::EdrAlias || namesField(function.name());
}

void pushConstant(std::unique_ptr<Node> constant, int typeCode) {
    stackG->pushData(constant.release(), typeCode | TypeCode::ConstFlag);
}

// Reports an operand that is not of the type `expected`; true when it is of that type.
bool checkOperand(int expected, int actual) {
    if (Node::baseType(actual) == expected) return true;
    return SCR_YaccError(Messages::expectedType(expected, actual));
}

// Replaces a container and the index or key above it by an access to the element.
template <class Container, class Index, class Access>
bool accessElement(int containerCode, int indexCode, Access access) {
    const int indexType = stackG->popType();
    const int containerType = stackG->popType();
    if (!checkOperand(containerCode, containerType) || !checkOperand(indexCode, indexType)) {
        return false;
    }
    const OperandTraits traits = stackG->traits(0).with(stackG->traits(1));
    auto index = stackG->pop<Index>();
    auto container = stackG->pop<Container>();
    const int elementType = container->containerType();
    tellAnalyses([&](auto& analysis) { analysis.element(container.get(), index.get()); });
    std::unique_ptr<Node> element =
        access(*actInterpreterG, std::move(container), std::move(index));
    if (!element) return SCR_YaccError(Messages::noElementAccess(elementType));
    recordPlace(element.get());
    tellAnalyses([&](auto& analysis) { analysis.elementMade(element.get()); });
    return pushNested(*actInterpreterG, *stackG, std::move(element), elementType, traits);
}

}  // namespace

}  // namespace SCR

using namespace SCR;

void SCR_splitModuleIdentifier(std::string_view text, FND::String& module, FND::String& name) {
    const std::size_t separator = text.find("::");
    if (separator == std::string_view::npos) {
        module.clear();
        name.assign(text);
    } else {
        module.assign(text.substr(0, separator));
        name.assign(text.substr(separator + 2));
    }
}

bool SCR_identifier(std::string_view text) {
    SCR_splitModuleIdentifier(text, parseContextG->module, parseContextG->name);
    return SCR_identifier(parseContextG->module, parseContextG->name);
}

bool SCR_plainIdentifier(std::string_view text) {
    parseContextG->module.clear();
    parseContextG->name.assign(text);
    return SCR_identifier(parseContextG->module, parseContextG->name);
}

bool SCR_identifier(const FND::String& module, const FND::String& name) {
    if (isFieldAlias()) {
        const FND::String field = module.empty() ? name : module + "::" + name;
        stackG->pushData(new StringConstant(field), TypeCode::EdrAlias);
        return true;
    }
    Variable* const variable = actInterpreterG->getVariable(module, name);
    if (variable == nullptr) {
        if (!SCR_isForgiven(module, name)) {
            return SCR_YaccError(Messages::unknownIdentifier(module, name));
        }
        parseContextG->isLost = parseContextG->recovery.isForgiven = true;
        return true;
    }
    std::unique_ptr<Node> access = accessNode(variable);
    if (!access) {
        const int type = variable->dataType();
        const bool isForeign = Node::datatypeAsString(type) != "Unknown";
        return SCR_YaccError(isForeign ? Messages::foreignVariable(name, type)
                                       : Messages::unknownIdentifierType(name));
    }
    tellAnalyses([&](auto& analysis) { analysis.access(access.get(), variable); });
    stackG->pushData(access.release(), variable->dataType());
    return true;
}

bool SCR_longConstant(std::string_view text) {
    long value = 0;
    if (std::from_chars(text.data(), text.data() + text.size(), value).ec != std::errc()) {
        return SCR_YaccError(Messages::illegalLong(FND::String(text)));
    }
    pushConstant(std::make_unique<LongConstant>(value), TypeCode::Long);
    return true;
}

bool SCR_decimalConstant(std::string_view text) {
    const FND::Decimal value = FND::Decimal::fromString(text);
    if (!value.isValid()) return SCR_YaccError(Messages::illegalDecimal(FND::String(text)));
    pushConstant(std::make_unique<DecimalConstant>(value), TypeCode::Decimal);
    return true;
}

bool SCR_boolConstant(std::string_view text) {
    pushConstant(std::make_unique<BoolConstant>(text == "true"), TypeCode::Bool);
    return true;
}

void SCR_startLiteral(std::string_view literal) {
    parseContextG->literal.clear();
    SCR_addLiteral(literal);
}

void SCR_addLiteral(std::string_view literal) {
    convertEscapeChars(literal.substr(1, literal.size() - 2), parseContextG->literal);
}

bool SCR_stringConstant() {
    pushConstant(std::make_unique<StringConstant>(parseContextG->literal), TypeCode::String);
    return true;
}

namespace {

// Completes the error of a binary operator. Always false.
bool noteOperands(Operator sign, int left, int right) {
    Fault& fault = parseContextG->recovery.fault;
    fault.isBinary = true;
    fault.sign = sign;
    fault.left = left;
    fault.right = right;
    return false;
}

}  // namespace

bool SCR_expression(Operator sign) {
    const int type = stackG->operandsType();
    const int left = stackG->typeBelow();
    const int right = stackG->topType();
    const FctDescr* const descriptor = MainExtension::operatorFor(Node::baseType(type), sign);
    if (descriptor == nullptr) {
        const FND::String text(operatorSignsS[static_cast<std::size_t>(sign)]);
        SCR_YaccError(Messages::noOperator(text, Node::datatypeAsString(type)));
        return noteOperands(sign, left, right);
    }
    return bindOperator(*descriptor, 2) || noteOperands(sign, left, right);
}

bool SCR_boolExpression(std::string_view sign) {
    tellAnalyses([&](auto& analysis) { analysis.mayBeSkipped(); });
    return SCR_expression(sign == "and" || sign == "AND" ? Operator::And : Operator::Or);
}

bool SCR_negation() {
    const int type = stackG->topType();
    if (Node::isConst(type)) return SCR_constNegation();
    const FctDescr* const descriptor =
        MainExtension::operatorFor(Node::baseType(type), Operator::Negate);
    if (descriptor == nullptr) return SCR_YaccError(Messages::noNegation(type));
    return bindOperator(*descriptor, 1);
}

bool SCR_constNegation() {
    const int type = stackG->popType();
    const auto operand = stackG->pop<Node>();
    if (Node::baseType(type) == TypeCode::Long) {
        const long value = static_cast<LongNode&>(*operand).result();
        const long negated = static_cast<long>(0UL - static_cast<unsigned long>(value));
        pushConstant(std::make_unique<LongConstant>(negated), TypeCode::Long);
        return true;
    }
    if (Node::baseType(type) == TypeCode::Decimal) {
        pushConstant(
            std::make_unique<DecimalConstant>(-static_cast<DecimalNode&>(*operand).result()),
            TypeCode::Decimal);
        return true;
    }
    return SCR_YaccError(Messages::cannotNegate(type));
}

bool SCR_arrayAccess() {
    return accessElement<ArrayNode, LongNode>(TypeCode::Array, TypeCode::Long, arrayAccess);
}

bool SCR_hashAccess() {
    const bool containerMayRunScript = stackG->traits(1).mayRunScript();
    return accessElement<HashNode, StringNode>(
        TypeCode::Hash, TypeCode::String,
        [&](Interpreter& interpreter, std::unique_ptr<HashNode> container,
            std::unique_ptr<StringNode> key) {
            return hashAccess(interpreter, std::move(container), std::move(key),
                              containerMayRunScript);
        });
}
