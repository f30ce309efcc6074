#include "scr/action/ActionSupport.h"

#include <typeinfo>

#include "scr/ContainerAccess.h"
#include "scr/FctDescr.h"
#include "scr/Interpreter.h"
#include "scr/Statement.h"
#include "scr/VariableAccess.h"
#include "scr/action/Actions.h"
#include "scr/check/Analyses.h"
#include "scr/message/Messages.h"
#include "scr/os/FileData.h"
#include "scr/parser/CustomLexer.h"
#include "scr/parser/Observing.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParseState.h"
#include "scr/run/PlaceTable.h"
#include "scr/tree/FunctionCall.h"
#include "scr/tree/Operand.h"
#include "scr/value/ElementClass.h"
#include "scr/value/TypeVisitor.h"

namespace SCR {

void recordPlace(const Node* node) {
    const CustomLexer& lexer = *parseContextG->lexer;
    actInterpreterG->places().add(node, lexer.fileName(), lexer.line());
}

bool openBlock(std::unique_ptr<Node> block, const Messages::Message& failure) {
    if (actInterpreterG->statementDepth() > actInterpreterG->limits().levels()) {
        return SCR_YaccError(Messages::nestedTooDeep);
    }
    Node* const opened = block.get();
    recordPlace(opened);
    if (parseContextG->observing) [[unlikely]] {
        block = parseContextG->observing->wrap(std::move(block));
        if (block.get() != opened) recordPlace(block.get());
    }
    if (!actInterpreterG->pushStatement(block.get(), opened)) return SCR_YaccError(failure);
    block.release();
    if (parseContextG->observing) parseContextG->observing->opened(opened);
    return true;
}

bool appendStatement(std::unique_ptr<Node> statement) {
    recordPlace(statement.get());
    if (parseContextG->observing) [[unlikely]] {
        statement = parseContextG->observing->wrap(std::move(statement));
        recordPlace(statement.get());
    }
    tellAnalyses([&](auto& analysis) { analysis.complete(); });
    if (!actInterpreterG->addStatement(statement.get())) {
        return SCR_YaccError(Messages::statementNotAdded);
    }
    statement.release();
    return true;
}

std::unique_ptr<Node> popExpressionStatement() {
    stackG->popType();
    auto node = stackG->pop<Node>();
    const Node& expression = *node;
    if (typeid(expression) == typeid(FileData)) return std::make_unique<StatementList>();
    return node;
}

std::unique_ptr<BoolNode> popCondition(const FND::String& place) {
    const int type = stackG->popType();
    auto node = stackG->pop<Node>();
    if (Node::baseType(type) != TypeCode::Bool) {
        SCR_YaccError(Messages::conditionType(type, place));
        return nullptr;
    }
    std::unique_ptr<BoolNode> condition(static_cast<BoolNode*>(node.release()));
    if (!parseContextG->observing) return condition;
    return parseContextG->observing->wrap(std::move(condition));
}

bool bindOperator(const FctDescr& descriptor, int count) {
    stackG->pushFunction(&descriptor);
    stackG->pushNumParams(count);
    const bool isBound = descriptor.create(*actInterpreterG, *stackG);
    // A concatenation may stop the script; the message names its line then.
    if (isBound && descriptor.returnType() == TypeCode::String) recordPlace(stackG->data());
    stackG->popFunction();
    stackG->popNumParams();
    return isBound;
}

std::unique_ptr<Node> accessNode(Variable* variable) {
    if (!hasClassOfType(*variable)) return nullptr;
    if (Node::baseType(variable->dataType()) == TypeCode::Function) {
        return std::make_unique<FctCallNode>(static_cast<const FctDescr*>(variable));
    }
    return withType(StorageTypes(), variable->dataType(),
                    [&]<class Type>(Type) -> std::unique_ptr<Node> {
                        return std::make_unique<typename LeafNodes<Type>::Access>(
                            static_cast<typename Type::Variable*>(variable));
                    });
}

}  // namespace SCR
