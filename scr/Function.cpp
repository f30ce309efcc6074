#include "scr/Function.h"

#include "scr/run/MemoryCharge.h"
#include "scr/tree/StatementParts.h"

namespace SCR {

const FND::String Function::retValNameCM = "$$retval";

bool Function::addIdentifier(const FND::String& name, Variable* variable) {
    const bool isParameter = phase_ == Phase::Parameters;
    if (isParameter) {  // first, since it may fail for want of memory
        chargeBuffer(sizeof(FND::String));
        parameterNames_.push_back(name);
    }
    const bool isAdded = StatementList::addIdentifier(name, variable);
    if (!isAdded) {
        if (isParameter) parameterNames_.pop_back();
    } else if (phase_ == Phase::ReturnVariable) {
        returnVariable_ = variable;
        phase_ = Phase::Parameters;
    }
    return isAdded;
}

std::int32_t Function::execute() { return parts().runBody(); }

}  // namespace SCR
