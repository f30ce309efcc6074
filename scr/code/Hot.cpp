#include "scr/code/Hot.h"

#include <new>

#include "scr/run/RunControl.h"

namespace SCR::Code {

bool Hot::make(void (*lower)(Builder& code, const void* how), const void* how) {
    RunControl* const control = RunControl::current();
    if (control == nullptr || control->codeTier() == CodeTier::Tree) return false;
    try {
        Builder code(*control);
        lower(code, how);
        fragment_ = makePortable(code.take(), *control);
    } catch (const std::bad_alloc&) {
        // The nodes go on.
        return false;
    }
    return true;
}

}  // namespace SCR::Code
