#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

#include "scr/Node.h"
#include "scr/call/Binding.h"
#include "scr/message/Messages.h"
#include "scr/parser/ParserStack.h"

namespace SCR {

class FctDescr;
class Variable;

// Shared by the parser actions.

/// A new `Class`, made from a pointer that it takes over. Nothing leaks when there is no memory.
template <class Class, class Owned, class... Arguments>
std::unique_ptr<Class> makeOwner(std::unique_ptr<Owned> owned, Arguments&&... arguments) {
    // The memory exists before the pointer is released.
    return std::unique_ptr<Class>(
        new Class(owned.release(), std::forward<Arguments>(arguments)...));
}

/// Records the lexer's current place as that of `node`.
void recordPlace(const Node* node);

/// Adds `block` to the innermost open block and opens it, or reports `failure` and destroys it.
/// Refuses blocks nested too deep.
bool openBlock(std::unique_ptr<Node> block, const Messages::Message& failure);

/// Adds a statement to the innermost open block, or reports and destroys it.
bool appendStatement(std::unique_ptr<Node> statement);

/// Pops an expression that is executed for its effect; never null. For an expression that has no
/// effect and no `execute` of its own, a File variable, gives an empty statement.
std::unique_ptr<Node> popExpressionStatement();

/// Pops the condition of the construct that `place` names; null, after a report, if it is not a
/// Bool.
std::unique_ptr<BoolNode> popCondition(const FND::String& place);

/// Binds the descriptor of an operator to the `count` topmost operands.
bool bindOperator(const FctDescr& descriptor, int count);

/// An access node for `variable`, or null when its type has none or its class is not the one for
/// its type.
std::unique_ptr<Node> accessNode(Variable* variable);

}  // namespace SCR
