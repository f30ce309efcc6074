#include "scr/FctDescr.h"
#include "scr/Function.h"
#include "scr/Interpreter.h"
#include "scr/Statement.h"
#include "scr/parser/ActionSupport.h"
#include "scr/parser/Actions.h"
#include "scr/parser/FlowAnalysis.h"
#include "scr/parser/Messages.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParseState.h"

using namespace SCR;

namespace {

// Tells the analysis, if one is made, that a statement is open whose body may be skipped, or is one
// of several.
bool opened(bool isOpen) {
    FlowAnalysis* const flow = actInterpreterG->flowAnalysis();
    if (isOpen && flow != nullptr) flow->openWays();
    return isOpen;
}

}  // namespace

bool SCR_startBlock() {
    if (FlowAnalysis* const flow = actInterpreterG->flowAnalysis()) flow->openBlock();
    return openBlock(std::make_unique<StatementList>(), Messages::blockNotPushed);
}

bool SCR_endBlock() {
    if (FlowAnalysis* const flow = actInterpreterG->flowAnalysis()) flow->close();
    return actInterpreterG->popStatement() || SCR_YaccError(Messages::blockNotPopped);
}

bool SCR_createVoidCallStatement() { return appendStatement(popExpressionStatement()); }

bool SCR_ifStatement() {
    std::unique_ptr<BoolNode> condition = popCondition(Messages::ifCondition);
    if (!condition) return false;
    return opened(openBlock(IfStatement::make(std::move(condition)), Messages::ifNotPushed));
}

void SCR_elseBranch() {
    FlowAnalysis* const flow = actInterpreterG->flowAnalysis();
    if (flow == nullptr) return;
    flow->endWay();
    flow->nextWay();
    flow->isExhaustive();
}

bool SCR_whileStatement() {
    std::unique_ptr<BoolNode> condition = popCondition(Messages::whileCondition);
    if (!condition) return false;
    return opened(
        openBlock(makeOwner<WhileStatement>(std::move(condition), &actInterpreterG->runControl()),
                  Messages::whileNotPushed));
}

bool SCR_doStatement() {
    if (FlowAnalysis* const flow = actInterpreterG->flowAnalysis()) flow->openBlock();
    return openBlock(std::make_unique<DoStatement>(&actInterpreterG->runControl()),
                     Messages::doNotPushed);
}

bool SCR_doCondition() {
    std::unique_ptr<BoolNode> condition = popCondition(Messages::doCondition);
    if (!condition) return false;
    auto* const statement = dynamic_cast<DoStatement*>(actInterpreterG->topStatement());
    if (statement == nullptr) return SCR_YaccError(Messages::doNotOnStack);
    statement->condition(condition.release());
    if (FlowAnalysis* const flow = actInterpreterG->flowAnalysis()) flow->close();
    return actInterpreterG->popStatement() || SCR_YaccError(Messages::doNotPopped);
}

void SCR_forInit() {
    if (FlowAnalysis* const flow = actInterpreterG->flowAnalysis()) flow->complete();
}

void SCR_forCondition() {
    if (FlowAnalysis* const flow = actInterpreterG->flowAnalysis()) flow->forCondition();
}

bool SCR_forLoop() {
    auto loop = std::make_unique<ForLoop>(&actInterpreterG->runControl());
    loop->addStatement(popExpressionStatement().release());
    std::unique_ptr<BoolNode> condition = popCondition(Messages::forLoop);
    if (!condition) return false;
    loop->condition(condition.release());
    loop->addStatement(popExpressionStatement().release());
    if (FlowAnalysis* const flow = actInterpreterG->flowAnalysis()) flow->forBody();
    return openBlock(std::move(loop), Messages::forNotPushed);
}

namespace {

// The assignment of the value on the stack to the function's return variable; null after a report.
std::unique_ptr<Node> bindReturnValue() {
    Variable* const target = parseContextG->function->returnVariable();
    if (target == nullptr) {
        SCR_YaccError(Messages::noReturnValue);
        return nullptr;
    }
    const OperandTraits traits = stackG->traits();
    const int type = stackG->popType();
    auto value = stackG->pop<Node>();
    if (Node::baseType(type) != Node::baseType(target->dataType())) {
        SCR_YaccError(Messages::wrongReturnType(target->dataType(), type));
        return nullptr;
    }
    std::unique_ptr<Node> access = accessNode(target);
    stackG->pushData(access.release(), target->dataType());
    stackG->pushData(value.release(), type, traits);
    if (!SCR_expression(Operator::Assign)) return nullptr;
    stackG->popType();
    return stackG->pop<Node>();
}

}  // namespace

bool SCR_returnStatement(bool withValue) {
    if (parseContextG->function == nullptr) return SCR_YaccError(Messages::illegalReturn);
    std::unique_ptr<Node> value;
    if (withValue) {
        value = bindReturnValue();
        if (!value) return false;
    } else if (parseContextG->functionDescriptor->returnType() != TypeCode::Void) {
        return SCR_YaccError(Messages::missingReturnValue);
    }
    if (FlowAnalysis* const flow = actInterpreterG->flowAnalysis()) flow->returns();
    return appendStatement(makeOwner<ReturnStatement>(std::move(value)));
}
