#include "scr/CompareInterface.h"
#include "scr/Interpreter.h"
#include "scr/parser/ActionSupport.h"
#include "scr/parser/Actions.h"
#include "scr/parser/Messages.h"
#include "scr/parser/ParseState.h"

using namespace SCR;

bool SCR_ruleCondition() {
    std::unique_ptr<BoolNode> condition = popCondition(Messages::condition);
    return condition && actCompareInterfaceG->condition(condition.release());
}

bool SCR_comparePattern() {
    return actCompareInterfaceG->comparePattern(*actInterpreterG, *stackG);
}
