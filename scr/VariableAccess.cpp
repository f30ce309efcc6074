#include "scr/VariableAccess.h"

#include "scr/run/MemoryCharge.h"

namespace SCR {

bool StringVariableAccess::set(const FND::String& value) {
    store(variable_->value(), value);
    return true;
}

}  // namespace SCR
