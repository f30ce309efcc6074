#include "scr/check/Change.h"

#include "scr/FctDescr.h"
#include "scr/Node.h"
#include "scr/call/CallFacts.h"

namespace SCR {

Change changeOf(const FctDescr& function, int index) {
    if (index == 0 && has(function.effects(), Effect::Totals)) return Change::Part;
    const CallFacts& facts = function.facts();
    if (index == facts.replaces) return Change::Whole;
    if (index == facts.changes) return Change::Part;
    if (function.use(index) == FctDescr::Use::Replaces) return Change::Whole;
    if (function.use(index) == FctDescr::Use::Changes) return Change::Part;
    const int type = function.argType(index);
    if (Node::isLeft(type)) return Change::Part;
    return Node::baseType(type) == TypeCode::File ? Change::Part : Change::None;
}

}  // namespace SCR
