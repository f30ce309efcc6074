#pragma once

#include <vector>

#include "fnd/String.h"
#include "scr/Log.h"
#include "scr/Node.h"
#include "scr/message/Codes.h"

/// The texts of all compile errors and warnings with their codes; each stands here once, as a
/// constant or, when it shows something of the script, as a function that builds it. Type words are
/// shown by name.
namespace SCR::Messages {

using Text = FND::String;

/// A message before it has a place: the text as the log takes it, and what it is about.
struct Message {
    MessageCode code = MessageCode::None;
    Text text = {};
    int expected = 0;  ///< a type word; 0 for none
    int actual = 0;    ///< a type word
    int position = 0;  ///< of an argument, 1-based
    Text name = {};
    Text module = {};
    Text reason = {};
    Text expectedObject = {};  ///< the name of a type of objects
    Text actualObject = {};
    bool isAbsent = false;          ///< what is named was not found
    std::vector<Text> places = {};  ///< where it was looked for
};

inline Text typeName(int typeWord) { return Node::datatypeAsString(typeWord); }
inline Text quoted(const Text& text) { return "`" + text + "'"; }

// The parser itself.
inline const Message parseError{.code = MessageCode::ParseError, .text = "parse error"};
inline const Message nestedTooDeep{.code = MessageCode::NestedTooDeep,
                                   .text = "parser stack overflow"};
inline const Message outOfMemory{.code = MessageCode::Memory, .text = "out of memory"};
inline Message whereClause(int actual) {
    return {.code = MessageCode::QueryType,
            .text = "expected " + quoted(typeName(TypeCode::Bool)) + " datatype instead of " +
                    quoted(typeName(actual)) + " in where clause",
            .actual = actual};
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

// Runs.
inline Diagnostic::Note argumentNote(std::size_t index, const Text& shown) {
    return {"argument " + std::to_string(index + 1) + " is " + shown, {}};
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
inline Message promotionNotSupported(const Text& type) {
    return {.code = MessageCode::StoredType,
            .text = "Promotion of type to " + type + " not supported"};
}
inline Message longPromotionNotSupported(const Text& type) {
    return {.code = MessageCode::StoredType,
            .text = "Promotion of long constant to " + type + " not supported"};
}
inline Message expectedType(int expected, int actual) {
    return {.code = MessageCode::ElementType,
            .text = "expected " + typeName(expected) + " not " + typeName(actual),
            .expected = expected,
            .actual = actual};
}
inline const Message expectedLeftValue{.code = MessageCode::NotAssignable,
                                       .text = "expected left value"};
inline const Message expectedConstValue{.code = MessageCode::NotConstant,
                                        .text = "expected const value"};

// Calls.
inline Message missingParameter(const Text& signature) {
    return {.code = MessageCode::TooFewArguments,
            .text = "missing parameter in call to " + quoted(signature)};
}
inline Message toManyArguments(const Text& signature) {
    return {.code = MessageCode::TooManyArguments,
            .text = "to many arguments in call to " + quoted(signature)};
}
inline Message wrongArgument(int expected, int actual, int position, const Text& signature) {
    return {.code = MessageCode::ArgumentType,
            .text = expectedType(expected, actual).text + " as argument " +
                    std::to_string(position) + " in " + quoted(signature),
            .expected = expected,
            .actual = actual,
            .position = position};
}
// About objects of hosts, whose types have names.
inline Message wrongObject(const Text& expected, const Text& actual) {
    return {.code = MessageCode::ArgumentType,
            .text = "expected " + expected + " not " + actual,
            .expectedObject = expected,
            .actualObject = actual};
}
inline Message wrongObject(const Text& expected, const Text& actual, int position,
                           const Text& signature) {
    Message message = wrongObject(expected, actual);
    message.text += " as argument " + std::to_string(position) + " in " + quoted(signature);
    message.position = position;
    return message;
}
inline Message wrongElements(int container, const std::vector<int>& expected, int actual,
                             int position, const Text& signature) {
    Text types;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        if (i > 0) types += i + 1 < expected.size() ? ", " : " or ";
        types += typeName(expected[i]);
    }
    return {.code = MessageCode::ArgumentType,
            .text = "expected " + typeName(container) + " of " + types + " not of " +
                    typeName(actual) + " as argument " + std::to_string(position) + " in " +
                    quoted(signature),
            .expected = container,
            .actual = container,
            .position = position,
            .name = typeName(actual),
            .reason = types};
}
inline Message conversionFailed(int actual, int expected, const Text& signature) {
    return {.code = MessageCode::ArgumentType,
            .text = "conversion of " + typeName(actual) + " to " + typeName(expected) +
                    " failed in " + quoted(signature),
            .expected = expected,
            .actual = actual};
}
inline Message argumentNotLeft(int position, const Text& signature) {
    return {.code = MessageCode::ArgumentForm,
            .text = "expected left value as argument " + std::to_string(position) + " in " +
                    quoted(signature),
            .position = position};
}
inline Message argumentNotConst(int position, const Text& signature) {
    return {.code = MessageCode::ArgumentForm,
            .text = "expected const value as argument " + std::to_string(position) + " in " +
                    quoted(signature),
            .position = position};
}
inline Message notCallable(int type) {
    return {.code = MessageCode::NotCallable,
            .text = "type " + quoted(typeName(type)) + " can not be called as function",
            .actual = type};
}
inline Message noCallMade(const Text& signature) {
    return {.code = MessageCode::HostContract,
            .text = "call of " + quoted(signature) + " could not be made"};
}
inline Message argumentsLeft(const Text& signature) {
    return {
        .code = MessageCode::HostContract,
        .text = "the factory of " + quoted(signature) + " does not take the arguments of its call"};
}
inline Message wrongCallMade(const Text& signature) {
    return {.code = MessageCode::HostContract,
            .text = "the factory of " + quoted(signature) + " made a node of another type"};
}
inline const Message noDescription{.code = MessageCode::Internal,
                                   .text = "internal compiler error: no function description"};
inline Message unknownFunction(const Text& name) {
    return {.code = MessageCode::UnknownName, .text = "unknown function " + quoted(name)};
}
inline Message unsupportedReturnType(int type) {
    return {.code = MessageCode::HostContract,
            .text = "unsupported function return type " + quoted(typeName(type))};
}
inline Message missingArguments(int missing) {
    return {.code = MessageCode::TooFewArguments,
            .text = std::to_string(missing) + " parameter missing"};
}
inline Message evenArguments(const Text& function) {
    return {.code = MessageCode::TooFewArguments,
            .text = function + "() needs an even number of arguments "};
}
inline Message expectedStringArray(int position, const Text& function) {
    return {.code = MessageCode::ArgumentType,
            .text = "expected an array of Strings as parameter " + std::to_string(position) +
                    " in call to  function `" + function,
            .expected = TypeCode::Array,
            .position = position};
}
inline Message invalidRegularExpression(const Text& pattern) {
    return {.code = MessageCode::Pattern,
            .text = "invalid regular expression `" + pattern,
            .name = pattern};
}

// Declarations and identifiers.
inline Message unknownDatatype(const Text& name) {
    return {.code = MessageCode::Internal, .text = "Unknown datatype " + quoted(name)};
}
inline const Message unknownModifier{.code = MessageCode::Internal,
                                     .text = "internal compiler error: unknown variable modifier"};
inline Message identifierDefined(const Text& name) {
    return {.code = MessageCode::NameTaken,
            .text = "identifier " + quoted(name) + " is already defined",
            .name = name};
}
inline Message constIdentifierDefined(const Text& name) {
    return {.code = MessageCode::NameTaken,
            .text = "identifier " + name + " is already defined",
            .name = name};
}
inline Message constTypeNotSupported(const Text& type) {
    return {.code = MessageCode::ConstantType,
            .text = "can not declare " + quoted(type) + " constants"};
}
inline Message expectedConstant(const Text& name) {
    return {.code = MessageCode::NotConstant,
            .text = "expected constant on right side of assignment to " + name,
            .name = name};
}
inline Message wrongConstant(const Text& declared, int actual) {
    return {.code = MessageCode::ConstantType,
            .text = "expected " + declared + " not " + typeName(actual) + " in constant assignment",
            .actual = actual,
            .name = declared};
}
inline Message unknownIdentifier(const Text& module, const Text& name) {
    return {.code = MessageCode::UnknownName,
            .text = "unknown identifier " + quoted(module.empty() ? name : module + "::" + name),
            .name = name,
            .module = module};
}
inline Message unknownIdentifierType(const Text& name) {
    return {.code = MessageCode::HostContract,
            .text = "unknown datatype for identifier " + quoted(name)};
}
inline Message foreignVariable(const Text& name, int type) {
    return {.code = MessageCode::HostContract,
            .text = "identifier " + quoted(name) + " is of another class than that of the type " +
                    quoted(typeName(type))};
}
inline Message noElementAccess(int type) {
    return {.code = MessageCode::ElementType,
            .text = "elements of type " + quoted(typeName(type)) + " can not be accessed"};
}
/// `nearest` is a field with a name like it, or empty.
inline Message unknownField(const Text& name, const Text& nearest) {
    return {.code = MessageCode::UnknownField,
            .text = "unknown field " + quoted(name),
            .name = name,
            .reason = nearest};
}
inline Message illegalLong(const Text& text) {
    return {.code = MessageCode::NumberRange,
            .text = "illegal long constant " + quoted(text),
            .name = text};
}
inline Message illegalDecimal(const Text& text) {
    return {.code = MessageCode::NumberRange,
            .text = "illegal decimal constant " + quoted(text),
            .name = text};
}

// Operators.
inline Message noOperator(const Text& sign, const Text& type) {
    return {.code = MessageCode::NoOperator,
            .text = "operator " + sign + " not defined for " + type};
}
inline Message cannotNegate(int type) {
    return {.code = MessageCode::NoOperator,
            .text = "can not negate " + quoted(typeName(type)) + " type",
            .actual = type};
}
inline Message noNegation(int type) {
    return {.code = MessageCode::NoOperator,
            .text = "negation is not defined for " + typeName(type),
            .actual = type};
}

// Statements.
inline Message conditionType(int actual, const Text& place) {
    return {.code = MessageCode::ConditionType,
            .text = expectedType(TypeCode::Bool, actual).text + " in " + place,
            .actual = actual};
}
inline const Text ifCondition = "if condition";
inline const Text whileCondition = "while condition";
inline const Text doCondition = "do/while condition";
inline const Text forLoop = "for loop";
inline const Text condition = "condition";
inline const Message ifNotPushed{.code = MessageCode::Internal,
                                 .text = "failed to push if statement to interpreter"};
inline const Message whileNotPushed{.code = MessageCode::Internal,
                                    .text = "failed to push while statement to interpreter"};
inline const Message doNotPushed{.code = MessageCode::Internal,
                                 .text = "failed to push do statement to interpreter"};
inline const Message forNotPushed{.code = MessageCode::Internal,
                                  .text = "failed to push for loop to interpreter"};
inline const Message blockNotPushed{.code = MessageCode::Internal,
                                    .text = "failed to push statement block to interpreter"};
inline const Message switchNotPushed{.code = MessageCode::Internal,
                                     .text = "failed to push switch statement to interpreter"};
inline const Message doNotOnStack{.code = MessageCode::Internal,
                                  .text = "failed to get do statement from interpreter stack"};
inline const Message doNotPopped{.code = MessageCode::Internal,
                                 .text = "failed to pop while statement from interpreter"};
inline const Message blockNotPopped{
    .code = MessageCode::Internal,
    .text = "internal compiler error: failed to pop statement block from interpreter"};
inline const Message statementNotAdded{.code = MessageCode::Internal,
                                       .text = "internal compiler error: failed to add statement"};

// Conditions.
inline Message patternComparisonType(int actual) {
    return {.code = MessageCode::OperandTypes,
            .text = expectedType(TypeCode::String, actual).text + " in pattern comparison",
            .expected = TypeCode::String,
            .actual = actual};
}
inline Message illegalPattern(const Text& pattern, const Text& reason) {
    return {.code = MessageCode::Pattern,
            .text = "illegal pattern " + quoted(pattern) + ": " + reason,
            .name = pattern,
            .reason = reason};
}

inline const Message conditionRefused{.code = MessageCode::HostContract,
                                      .text = "the condition was refused"};
inline const Message comparisonRefused{.code = MessageCode::HostContract,
                                       .text = "the pattern comparison was refused"};
inline const Message wrongComparisonMade{
    .code = MessageCode::HostContract,
    .text = "the pattern comparison made a node of another type"};

// Switch statements.
inline Message switchType(int actual) {
    return {.code = MessageCode::SwitchType,
            .text = "expected " + typeName(TypeCode::Long) + " or " + typeName(TypeCode::String) +
                    " in switch statement not " + typeName(actual),
            .actual = actual};
}
inline Message regExprSwitchType(int actual) {
    return {.code = MessageCode::SwitchType,
            .text = "expected " + typeName(TypeCode::String) +
                    " in regular expression switch statement not " + typeName(actual),
            .expected = TypeCode::String,
            .actual = actual};
}
inline const Message noSwitch{.code = MessageCode::Internal,
                              .text = "internal compiler error, expected switch case statement"};
inline Message caseLabelType(int expected, int actual) {
    return {.code = MessageCode::CaseType,
            .text = "expected " + typeName(expected) + " in case label not " + typeName(actual),
            .expected = expected,
            .actual = actual};
}
inline const Message caseNotConst{.code = MessageCode::NotConstant,
                                  .text = "expected a const value in case statement"};
inline Message caseDefined(long value) {
    return {.code = MessageCode::CaseTwice,
            .text = "case value " + std::to_string(value) + " multiple defined"};
}
inline Message caseDefined(const Text& value) {
    return {.code = MessageCode::CaseTwice,
            .text = "case value " + quoted(value) + " multiple defined"};
}
inline Message illegalRegularExpression(const Text& pattern, const Text& reason) {
    return {.code = MessageCode::Pattern,
            .text = "illegal regular expression: " + pattern,
            .name = pattern,
            .reason = reason};
}
inline const Message secondDefault{.code = MessageCode::DefaultTwice,
                                   .text = "more than one default statement defined"};

// Functions.
inline const Message nestedFunction{.code = MessageCode::NestedFunction,
                                    .text = "functions can not be declared inside blocks"};
inline Message functionDefined(const Text& name) {
    return {.code = MessageCode::NameTaken,
            .text = "function " + quoted(name) + " is already defined",
            .name = name};
}
inline const Message noReturnValue{.code = MessageCode::ReturnValue,
                                   .text = "function can not return a value"};
inline Message wrongReturnType(int expected, int actual) {
    return {.code = MessageCode::ReturnValue,
            .text = "expected " + quoted(typeName(expected)) + " not " + quoted(typeName(actual)) +
                    " as return value",
            .expected = expected,
            .actual = actual};
}
inline const Message missingReturnValue{.code = MessageCode::ReturnValue,
                                        .text = "missing return value"};
inline const Message illegalReturn{.code = MessageCode::ReturnPlace,
                                   .text = "illegal return statement"};
inline Message possibleMissingReturn(const Text& signature, const Text& name, int type) {
    return {.code = MessageCode::MissingReturn,
            .text = "possible missing return value in " + quoted(signature),
            .actual = type,
            .name = name};
}

// What built-in functions say while a script runs.
inline Text negativeLength(long length) {
    return "strPad: length is negative '" + std::to_string(length) + "'";
}
inline Text resultTooLong(std::size_t size) {
    return "String result is too long '" + std::to_string(size) + "'";
}
inline constexpr const char* searchTooLarge =
    "regular expression and text are too large for the limit `time'";
inline constexpr const char* noMemoryForDigits = "ERROR: Out of memory!  Returning...";
inline constexpr const char* noDigits =
    "ERROR: conversion of hexadecimal string failed, returning...";
// Around the text, which may be large.
inline constexpr std::string_view beforeOddDigits = "ERROR: input string ";
inline constexpr std::string_view afterOddDigits = " is invalid, returning...";

// Capabilities.
inline Message forbiddenCall(const Text& name, const Text& capability) {
    return {.code = MessageCode::Forbidden,
            .text = "call of `" + name + "' is not allowed (" + capability + ")",
            .name = name,
            .reason = capability};
}
inline const Text forbiddenUse = "extension libraries are not allowed";

// Extensions.
inline Message cannotUse(const Text& name, const Text& reason) {
    return {.code = MessageCode::Library,
            .text = "can not use " + name + ": " + reason,
            .name = name,
            .reason = reason};
}
inline const Text generatorFailed = "generator function failed";
inline Text builtForVersion(int built, int own) {
    return "built for version " + std::to_string(built) + " of Kestrel, and this is " +
           std::to_string(own);
}

/// About a setting of the host, which is not used, or not as it may seem.
inline Diagnostic setting(const Text& text, FND::Status::Severity severity) {
    Diagnostic diagnostic;
    diagnostic.severity = diagnostic.logSeverity = severity;
    diagnostic.code = codeName(MessageCode::Setting);
    diagnostic.text = text;
    return diagnostic;
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

inline Message duplicateExtension(const Text& name) {
    return {.code = MessageCode::Library, .text = "warning: duplicate extension " + name};
}

}  // namespace SCR::Messages

/// Reports a compile error at the current place of the parser. Always false.
bool SCR_YaccError(const SCR::Messages::Message& message);
