#include "scr/Function.h"

namespace SCR {

const FND::String Function::retValNameCM = "$$retval";

bool Function::addIdentifier(const FND::String& name, Variable* variable) {
    if (!StatementList::addIdentifier(name, variable)) return false;
    switch (phase_) {
        case Phase::ReturnVariable:
            returnVariable_ = variable;
            phase_ = Phase::Parameters;
            break;
        case Phase::Parameters:
            parameterNames_.push_back(name);
            break;
        case Phase::Locals:
            break;
    }
    return true;
}

}  // namespace SCR
