#include "scr/tree/Condition.h"

#include "scr/tree/Operand.h"

namespace SCR {

Condition::Condition(BoolNode* node) : node_(node) {
    if constexpr (SpecialisesNodes) part_ = dynamic_cast<ConditionNode*>(node);
}

}  // namespace SCR
