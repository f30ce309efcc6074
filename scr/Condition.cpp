#include "scr/Condition.h"

#include "scr/Operand.h"

namespace SCR {

Condition::Condition(BoolNode* node) : node_(node) {
    if constexpr (SpecialisesNodes) comparison_ = dynamic_cast<LongComparison*>(node);
}

}  // namespace SCR
