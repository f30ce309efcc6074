#include "scr/Condition.h"

#include "scr/Operand.h"

namespace SCR {

Condition::Condition(BoolNode* node) : node_(node) {
    if constexpr (SpecialisesNodes) {
        if (const auto* comparison = dynamic_cast<const LongComparison*>(node)) {
            test_ = comparison->test();
            isTest_ = true;
        }
    }
}

}  // namespace SCR
