#pragma once

#include <vector>

#include "fnd/String.h"
#include "scr/Node.h"

/// The texts of all compile errors and warnings; each stands here once, as a constant or, when it
/// shows something of the script, as a function that builds it. Type words are shown by name.
namespace SCR::Messages {

using Text = FND::String;

inline Text typeName(int typeWord) { return Node::datatypeAsString(typeWord); }
inline Text quoted(const Text& text) { return "`" + text + "'"; }

// The parser itself.
inline const Text parseError = "parse error";
inline const Text nestedTooDeep = "parser stack overflow";
inline const Text outOfMemory = "out of memory";
inline Text whereClause(int actual) {
    return "expected " + quoted(typeName(TypeCode::Bool)) + " datatype instead of " +
           quoted(typeName(actual)) + " in where clause";
}

inline Text place(const Text& file, int line) {
    return (file.empty() ? "" : file + ": ") + "line " + std::to_string(line) + ": ";
}
inline Text error(const Text& file, int line, const Text& text) {
    return "ERROR: " + place(file, line) + text;
}
inline Text warning(const Text& file, const Text& text) {
    return "WARNING: " + (file.empty() ? "" : file + ": ") + text;
}

// Calls that lose values.
inline Text argumentCallsAgain(std::size_t argument, const Text& function, const Text& callee,
                               const Text& parameter) {
    return "argument " + std::to_string(argument) + " of " + quoted(function) + " calls " +
           quoted(callee) +
           (callee == function ? Text(" again, which")
                               : ", which calls " + quoted(function) + " again and") +
           " overwrites the parameter " + quoted(parameter);
}
inline Text readAfterCall(const Text& variable, const Text& function, const Text& line) {
    return quoted(variable) + " is read after the call of " + quoted(function) + " in line " +
           line + ", which may have overwritten it";
}
inline Text readAfterArgument(const Text& variable, std::size_t argument, const Text& function) {
    return quoted(variable) + " is read after argument " + std::to_string(argument) +
           " of the inner call of " + quoted(function) + " has overwritten it";
}
inline Text moreLostValues(std::size_t count) {
    return std::to_string(count) + " more calls that lose values";
}
inline const Text callsNotFollowed = "the calls of the script are too many to be followed";

// Conversions and types.
inline Text promotionNotSupported(const Text& type) {
    return "Promotion of type to " + type + " not supported";
}
inline Text longPromotionNotSupported(const Text& type) {
    return "Promotion of long constant to " + type + " not supported";
}
inline Text expectedType(int expected, int actual) {
    return "expected " + typeName(expected) + " not " + typeName(actual);
}
inline const Text expectedLeftValue = "expected left value";
inline const Text expectedConstValue = "expected const value";

// Calls.
inline Text missingParameter(const Text& signature) {
    return "missing parameter in call to " + quoted(signature);
}
inline Text toManyArguments(const Text& signature) {
    return "to many arguments in call to " + quoted(signature);
}
inline Text wrongArgument(int expected, int actual, int position, const Text& signature) {
    return expectedType(expected, actual) + " as argument " + std::to_string(position) + " in " +
           quoted(signature);
}
inline Text wrongElements(int container, const std::vector<int>& expected, int actual, int position,
                          const Text& signature) {
    Text text = "expected " + typeName(container) + " of ";
    for (std::size_t i = 0; i < expected.size(); ++i) {
        if (i > 0) text += i + 1 < expected.size() ? ", " : " or ";
        text += typeName(expected[i]);
    }
    return text + " not of " + typeName(actual) + " as argument " + std::to_string(position) +
           " in " + quoted(signature);
}
inline Text conversionFailed(int actual, int expected, const Text& signature) {
    return "conversion of " + typeName(actual) + " to " + typeName(expected) + " failed in " +
           quoted(signature);
}
inline Text argumentNotLeft(int position, const Text& signature) {
    return "expected left value as argument " + std::to_string(position) + " in " +
           quoted(signature);
}
inline Text argumentNotConst(int position, const Text& signature) {
    return "expected const value as argument " + std::to_string(position) + " in " +
           quoted(signature);
}
inline Text notCallable(int type) {
    return "type " + quoted(typeName(type)) + " can not be called as function";
}
inline Text noCallMade(const Text& signature) {
    return "call of " + quoted(signature) + " could not be made";
}
inline Text argumentsLeft(const Text& signature) {
    return "the factory of " + quoted(signature) + " does not take the arguments of its call";
}
inline Text wrongCallMade(const Text& signature) {
    return "the factory of " + quoted(signature) + " made a node of another type";
}
inline const Text noDescription = "internal compiler error: no function description";
inline Text unknownFunction(const Text& name) { return "unknown function " + quoted(name); }
inline Text unsupportedReturnType(int type) {
    return "unsupported function return type " + quoted(typeName(type));
}
inline Text missingArguments(int missing) { return std::to_string(missing) + " parameter missing"; }
inline Text evenArguments(const Text& function) {
    return function + "() needs an even number of arguments ";
}
inline Text expectedStringArray(int position, const Text& function) {
    return "expected an array of Strings as parameter " + std::to_string(position) +
           " in call to  function `" + function;
}
inline Text invalidRegularExpression(const Text& pattern) {
    return "invalid regular expression `" + pattern;
}

// Declarations and identifiers.
inline Text unknownDatatype(const Text& name) { return "Unknown datatype " + quoted(name); }
inline const Text unknownModifier = "internal compiler error: unknown variable modifier";
inline Text identifierDefined(const Text& name) {
    return "identifier " + quoted(name) + " is already defined";
}
inline Text constIdentifierDefined(const Text& name) {
    return "identifier " + name + " is already defined";
}
inline Text constTypeNotSupported(const Text& type) {
    return "can not declare " + quoted(type) + " constants";
}
inline Text expectedConstant(const Text& name) {
    return "expected constant on right side of assignment to " + name;
}
inline Text wrongConstant(const Text& declared, int actual) {
    return "expected " + declared + " not " + typeName(actual) + " in constant assignment";
}
inline Text unknownIdentifier(const Text& module, const Text& name) {
    return "unknown identifier " + quoted(module.empty() ? name : module + "::" + name);
}
inline Text unknownIdentifierType(const Text& name) {
    return "unknown datatype for identifier " + quoted(name);
}
inline Text foreignVariable(const Text& name, int type) {
    return "identifier " + quoted(name) + " is of another class than that of the type " +
           quoted(typeName(type));
}
inline Text noElementAccess(int type) {
    return "elements of type " + quoted(typeName(type)) + " can not be accessed";
}
inline Text unknownField(const Text& name) { return "unknown field " + quoted(name); }
inline Text illegalLong(const Text& text) { return "illegal long constant " + quoted(text); }
inline Text illegalDecimal(const Text& text) { return "illegal decimal constant " + quoted(text); }

// Operators.
inline Text noOperator(const Text& sign, const Text& type) {
    return "operator " + sign + " not defined for " + type;
}
inline Text cannotNegate(int type) { return "can not negate " + quoted(typeName(type)) + " type"; }
inline Text noNegation(int type) { return "negation is not defined for " + typeName(type); }

// Statements.
inline Text conditionType(int actual, const Text& place) {
    return expectedType(TypeCode::Bool, actual) + " in " + place;
}
inline const Text ifCondition = "if condition";
inline const Text whileCondition = "while condition";
inline const Text doCondition = "do/while condition";
inline const Text forLoop = "for loop";
inline const Text condition = "condition";
inline const Text ifNotPushed = "failed to push if statement to interpreter";
inline const Text whileNotPushed = "failed to push while statement to interpreter";
inline const Text doNotPushed = "failed to push do statement to interpreter";
inline const Text forNotPushed = "failed to push for loop to interpreter";
inline const Text blockNotPushed = "failed to push statement block to interpreter";
inline const Text switchNotPushed = "failed to push switch statement to interpreter";
inline const Text doNotOnStack = "failed to get do statement from interpreter stack";
inline const Text doNotPopped = "failed to pop while statement from interpreter";
inline const Text blockNotPopped =
    "internal compiler error: failed to pop statement block from interpreter";
inline const Text statementNotAdded = "internal compiler error: failed to add statement";

// Conditions.
inline Text patternComparisonType(int actual) {
    return expectedType(TypeCode::String, actual) + " in pattern comparison";
}
inline Text illegalPattern(const Text& pattern, const Text& reason) {
    return "illegal pattern " + quoted(pattern) + ": " + reason;
}

inline const Text conditionRefused = "the condition was refused";
inline const Text comparisonRefused = "the pattern comparison was refused";
inline const Text wrongComparisonMade = "the pattern comparison made a node of another type";

// Switch statements.
inline Text switchType(int actual) {
    return "expected " + typeName(TypeCode::Long) + " or " + typeName(TypeCode::String) +
           " in switch statement not " + typeName(actual);
}
inline Text regExprSwitchType(int actual) {
    return "expected " + typeName(TypeCode::String) +
           " in regular expression switch statement not " + typeName(actual);
}
inline const Text noSwitch = "internal compiler error, expected switch case statement";
inline Text caseLabelType(int expected, int actual) {
    return "expected " + typeName(expected) + " in case label not " + typeName(actual);
}
inline const Text caseNotConst = "expected a const value in case statement";
inline Text caseDefined(long value) {
    return "case value " + std::to_string(value) + " multiple defined";
}
inline Text caseDefined(const Text& value) {
    return "case value " + quoted(value) + " multiple defined";
}
inline Text illegalRegularExpression(const Text& pattern) {
    return "illegal regular expression: " + pattern;
}
inline const Text secondDefault = "more than one default statement defined";

// Functions.
inline const Text nestedFunction = "functions can not be declared inside blocks";
inline Text functionDefined(const Text& name) {
    return "function " + quoted(name) + " is already defined";
}
inline const Text noReturnValue = "function can not return a value";
inline Text wrongReturnType(int expected, int actual) {
    return "expected " + quoted(typeName(expected)) + " not " + quoted(typeName(actual)) +
           " as return value";
}
inline const Text missingReturnValue = "missing return value";
inline const Text illegalReturn = "illegal return statement";
inline Text possibleMissingReturn(const Text& signature) {
    return "possible missing return value in " + quoted(signature);
}

// Capabilities.
inline Text forbiddenCall(const Text& name, const Text& capability) {
    return "call of `" + name + "' is not allowed (" + capability + ")";
}
inline const Text forbiddenUse = "extension libraries are not allowed";

// Extensions.
inline Text cannotUse(const Text& name, const Text& reason) {
    return "can not use " + name + ": " + reason;
}
inline const Text generatorFailed = "generator function failed";
inline Text builtForVersion(int built, int own) {
    return "built for version " + std::to_string(built) + " of Kestrel, and this is " +
           std::to_string(own);
}
inline Text extensionRefused(const Text& extension, const Text& reason) {
    return "ERROR: extension " + quoted(extension) + ": " + reason;
}
inline Text extensionTaken(const Text& extension) {
    return "ERROR: there is an extension " + quoted(extension) + " already";
}
inline Text noIdentifier(const Text& name) { return quoted(name) + " is no identifier"; }
inline Text nameTaken(const Text& name) { return "the name " + quoted(name) + " is taken"; }
inline Text onlyQualified(const Text& extension, const Text& name) {
    return warning("", "extension " + quoted(extension) + ": scripts reach " + quoted(name) +
                           " by " + quoted(extension + "::" + name) + " only");
}
inline Text duplicateExtension(const Text& name) { return "warning: duplicate extension " + name; }

}  // namespace SCR::Messages
