#include "scr/FctDescr.h"
#include "scr/Function.h"
#include "scr/Interpreter.h"
#include "scr/Statement.h"
#include "scr/action/ActionSupport.h"
#include "scr/action/Actions.h"
#include "scr/check/Analyses.h"
#include "scr/message/Messages.h"
#include "scr/parser/Observing.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParseState.h"
#include "scr/run/RunControl.h"

using namespace SCR;

bool SCR_startBlock() {
    tellAnalyses([&](auto& analysis) { analysis.openBlock(); });
    return openBlock(std::make_unique<StatementList>(), Messages::blockNotPushed);
}

bool SCR_endBlock() {
    if (parseContextG->observing) parseContextG->observing->closing();
    tellAnalyses([&](auto& analysis) { analysis.close(); });
    return actInterpreterG->popStatement() || SCR_YaccError(Messages::blockNotPopped);
}

bool SCR_createVoidCallStatement() { return appendStatement(popExpressionStatement()); }

bool SCR_ifStatement() {
    std::unique_ptr<BoolNode> condition = popCondition(Messages::ifCondition);
    if (!condition) return false;
    tellAnalyses([&](auto& analysis) { analysis.openWays(); });
    return openBlock(makeOwner<IfStatement>(std::move(condition)), Messages::ifNotPushed);
}

void SCR_elseBranch() {
    if (parseContextG->observing) parseContextG->observing->closing();
    tellAnalyses([&](auto& analysis) {
        analysis.endWay();
        analysis.nextWay();
        analysis.isExhaustive();
    });
}

bool SCR_whileStatement() {
    std::unique_ptr<BoolNode> condition = popCondition(Messages::whileCondition);
    if (!condition) return false;
    tellAnalyses([&](auto& analysis) { analysis.openWhile(); });
    return openBlock(
        makeOwner<WhileStatement>(std::move(condition), &actInterpreterG->runControl()),
        Messages::whileNotPushed);
}

bool SCR_doStatement() {
    tellAnalyses([&](auto& analysis) { analysis.openDo(); });
    return openBlock(std::make_unique<DoStatement>(&actInterpreterG->runControl()),
                     Messages::doNotPushed);
}

bool SCR_doCondition() {
    std::unique_ptr<BoolNode> condition = popCondition(Messages::doCondition);
    if (!condition) return false;
    auto* const statement = dynamic_cast<DoStatement*>(actInterpreterG->topStatement());
    if (statement == nullptr) return SCR_YaccError(Messages::doNotOnStack);
    statement->condition(condition.release());
    tellAnalyses([&](auto& analysis) { analysis.close(); });
    return actInterpreterG->popStatement() || SCR_YaccError(Messages::doNotPopped);
}

void SCR_forInit() {
    tellAnalyses([&](auto& analysis) { analysis.complete(); });
}

void SCR_forCondition() {
    tellAnalyses([&](auto& analysis) { analysis.forCondition(); });
}

bool SCR_forLoop() {
    auto loop = std::make_unique<ForLoop>(&actInterpreterG->runControl());
    std::unique_ptr<Node> update = popExpressionStatement();
    if (parseContextG->observing) {
        update = parseContextG->observing->wrapUpdate(std::move(update));
    }
    loop->addStatement(update.release());
    std::unique_ptr<BoolNode> condition = popCondition(Messages::forLoop);
    if (!condition) return false;
    loop->condition(condition.release());
    loop->addStatement(popExpressionStatement().release());
    tellAnalyses([&](auto& analysis) { analysis.forBody(); });
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
    if (parseContextG->function == nullptr || parseContextG->isLostFunction) {
        if (parseContextG->recovery.lostFunctions == 0) {
            return SCR_YaccError(Messages::illegalReturn);
        }
        parseContextG->isLost = true;
        return true;
    }
    std::unique_ptr<Node> value;
    if (withValue) {
        value = bindReturnValue();
        if (!value) return false;
    } else if (parseContextG->functionDescriptor->returnType() != TypeCode::Void) {
        return SCR_YaccError(Messages::missingReturnValue);
    }
    tellAnalyses([&](auto& analysis) { analysis.returns(); });
    if (parseContextG->observing) parseContextG->observing->returns();
    return appendStatement(makeOwner<ReturnStatement>(std::move(value)));
}
