#include "scr/CompareInterface.h"
#include "scr/Interpreter.h"
#include "scr/action/ActionSupport.h"
#include "scr/action/Actions.h"
#include "scr/message/Messages.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParseState.h"

using namespace SCR;

bool SCR_ruleCondition() {
    std::unique_ptr<BoolNode> condition = popCondition(Messages::condition);
    if (!condition) return false;
    const ErrorWatch watch(*actInterpreterG);
    return actCompareInterfaceG->condition(condition.release()) ||
           watch.fail(Messages::conditionRefused);
}

bool SCR_comparePattern() {
    const ErrorWatch watch(*actInterpreterG);
    const bool isConstant =
        Node::isConst(stackG->topType()) && Node::baseType(stackG->topType()) == TypeCode::String;
    if (parseContextG->isWatched && isConstant) {
        parseContextG->recovery.lint.pattern(parseContextG->about,
                                             static_cast<StringNode&>(*stackG->data()).result());
    }
    if (!actCompareInterfaceG->comparePattern(*actInterpreterG, *stackG)) {
        return watch.fail(Messages::comparisonRefused);
    }
    if (stackG->dataSize() == 0 || !hasClassOfType(*stackG->data(), stackG->topType())) {
        return SCR_YaccError(Messages::wrongComparisonMade);
    }
    recordPlace(stackG->data());
    return true;
}
