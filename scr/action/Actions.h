#pragma once

#include <string_view>

#include "scr/Node.h"
#include "scr/call/Operator.h"
#include "scr/parser/ParserStack.h"

// The actions that the grammar calls at its reductions. They work on the parse state: the
// interpreter being compiled and the parser stack. Each gives true, or reports one error and gives
// false, which ends the parse. Texts are views into the script.

namespace SCR {
class CustomLexer;
class FctDescr;
class Interpreter;
}  // namespace SCR

// Of the parser itself.
/// Reports an error of the generated parser in this system's words.
void SCR_parserError(SCR::CustomLexer& lexer, std::string_view message);

// Declarations: DeclarationActions.cpp
void SCR_startModifiers();
/// Adds "A" for "[]" or "H" for "{}" to the modifiers of the variable being declared.
bool SCR_addModifier(char modifier);
/// Declares a variable with the modifiers collected.
bool SCR_declareVariable(std::string_view typeName, std::string_view identifier);
/// Declares a variable in the innermost block; `modifiers` are applied from the last to the first.
bool SCR_variableDeclaration(std::string_view typeName, std::string_view identifier,
                             std::string_view modifiers);
/// Turns the declared variable's access and the initialiser on the stack into a statement.
bool SCR_initialise();
/// Declares the constant on the stack under a name.
bool SCR_constDeclaration(std::string_view typeName, std::string_view identifier);
bool SCR_startFunctionDeclaration(std::string_view returnType, std::string_view name);
bool SCR_functionAddParameters();
bool SCR_endFunctionDeclaration();

// Expressions: ExpressionActions.cpp
/// Pushes the meaning of an identifier, plain or "module::name".
bool SCR_identifier(std::string_view text);
/// The same for one that is known to be plain.
bool SCR_plainIdentifier(std::string_view text);
bool SCR_identifier(const FND::String& module, const FND::String& name);
void SCR_splitModuleIdentifier(std::string_view text, FND::String& module, FND::String& name);
bool SCR_longConstant(std::string_view text);
bool SCR_decimalConstant(std::string_view text);
bool SCR_boolConstant(std::string_view text);
/// Collects the adjacent literals, with their quotes, of one string constant.
void SCR_startLiteral(std::string_view literal);
void SCR_addLiteral(std::string_view literal);
bool SCR_stringConstant();
/// Binds a binary operator or an assignment to the two topmost operands.
bool SCR_expression(SCR::Operator sign);
/// The same for "and" and "or", in either spelling.
bool SCR_boolExpression(std::string_view sign);
bool SCR_negation();
bool SCR_constNegation();
bool SCR_arrayAccess();
bool SCR_hashAccess();

// Calls: CallActions.cpp
bool SCR_functionCall();
void SCR_countParameter();
bool SCR_endFunctionCall();
/// The factory of every user function's descriptor.
SCR::Node* SCR_functionCallFactory(SCR::Interpreter& interpreter, SCR::ParserStack& stack,
                                   const SCR::FctDescr& descriptor);

// Statements: StatementActions.cpp
bool SCR_startBlock();
/// Closes the innermost open block or control statement.
bool SCR_endBlock();
/// Appends the expression on the stack to the innermost block.
bool SCR_createVoidCallStatement();
bool SCR_ifStatement();
/// The else-branch follows.
void SCR_elseBranch();
bool SCR_whileStatement();
bool SCR_doStatement();
bool SCR_doCondition();
/// The init, and the condition, of a `for` are on the stack.
void SCR_forInit();
void SCR_forCondition();
bool SCR_forLoop();
bool SCR_returnStatement(bool withValue);

// Switch statements: SwitchActions.cpp
bool SCR_switchStatement();
bool SCR_regExprSwitchStatement();
bool SCR_caseStatement();
bool SCR_switchBreak();
bool SCR_switchDefault();
bool SCR_endSwitch();
bool SCR_regExprFinalSetup();

// Extensions: UseExtension.cpp
bool SCR_useExtension(std::string_view name);

// Conditions: ConditionActions.cpp
bool SCR_ruleCondition();
bool SCR_comparePattern();
