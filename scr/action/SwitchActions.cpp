#include "scr/Interpreter.h"
#include "scr/SwitchCase.h"
#include "scr/action/ActionSupport.h"
#include "scr/action/Actions.h"
#include "scr/check/Analyses.h"
#include "scr/message/Messages.h"
#include "scr/parser/Observing.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParseState.h"

namespace {

// The innermost open switch; null after a report.
SCR::SwitchCase* openSwitch() {
    auto* const open = dynamic_cast<SCR::SwitchCase*>(SCR::actInterpreterG->topStatement());
    if (open == nullptr) SCR_YaccError(SCR::Messages::noSwitch);
    return open;
}

}  // namespace

using namespace SCR;

bool SCR_switchStatement() {
    tellAnalyses([&](auto& analysis) { analysis.openWays(); });
    const int type = stackG->popType();
    std::unique_ptr<SwitchCase> statement;
    if (Node::baseType(type) == TypeCode::Long) {
        statement = makeOwner<LongSwitchCase>(stackG->pop<LongNode>());
    } else if (Node::baseType(type) == TypeCode::String) {
        statement = makeOwner<StringSwitchCase>(stackG->pop<StringNode>());
    } else {
        stackG->pop<Node>();
        return SCR_YaccError(Messages::switchType(type));
    }
    return openBlock(std::move(statement), Messages::switchNotPushed);
}

bool SCR_regExprSwitchStatement() {
    tellAnalyses([&](auto& analysis) { analysis.openWays(); });
    const int type = stackG->popType();
    if (Node::baseType(type) != TypeCode::String) {
        stackG->pop<Node>();
        return SCR_YaccError(Messages::regExprSwitchType(type));
    }
    return openBlock(
        makeOwner<RegExprSwitchCase>(stackG->pop<StringNode>(),
                                     static_cast<std::size_t>(actInterpreterG->limits().states)),
        Messages::switchNotPushed);
}

bool SCR_caseStatement() {
    tellAnalyses([&](auto& analysis) { analysis.nextWay(); });
    SwitchCase* const open = openSwitch();
    if (open != nullptr && parseContextG->recovery.lostSwitches.contains(open) &&
        Node::baseType(stackG->topType()) != TypeCode::String) {
        parseContextG->isLost = true;
        return true;
    }
    if (parseContextG->isWatched && dynamic_cast<RegExprSwitchCase*>(open) != nullptr &&
        Node::isConst(stackG->topType()) && Node::baseType(stackG->topType()) == TypeCode::String) {
        parseContextG->recovery.lint.pattern(parseContextG->about,
                                             static_cast<StringNode&>(*stackG->data()).result());
    }
    return open != nullptr && open->nextCase(*stackG);
}

bool SCR_switchBreak() {
    if (parseContextG->observing) parseContextG->observing->breaks();
    tellAnalyses([&](auto& analysis) { analysis.endWay(); });
    SwitchCase* const open = openSwitch();
    return open != nullptr && open->addBreak();
}

bool SCR_switchDefault() {
    tellAnalyses([&](auto& analysis) {
        analysis.nextWay();
        analysis.isExhaustive();
    });
    SwitchCase* const open = openSwitch();
    return open != nullptr && open->addDefault();
}

bool SCR_endSwitch() {
    SwitchCase* const open = openSwitch();
    return open != nullptr && open->finalSetup() && SCR_endBlock();
}

bool SCR_regExprFinalSetup() { return SCR_endSwitch(); }
