#include "scr/Function.h"

namespace SCR {

const FND::String Function::retValNameCM = "$$retval";

bool Function::addIdentifier(const FND::String& name, Variable* variable) {
    const bool isParameter = phase_ == Phase::Parameters;
    if (isParameter) parameterNames_.push_back(name);  // first: it may fail for want of memory
    const bool isAdded = StatementList::addIdentifier(name, variable);
    if (!isAdded) {
        if (isParameter) parameterNames_.pop_back();
    } else if (phase_ == Phase::ReturnVariable) {
        returnVariable_ = variable;
        phase_ = Phase::Parameters;
    }
    return isAdded;
}

}  // namespace SCR
