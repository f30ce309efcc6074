#include "scr/code/Hot.h"

#include <new>
#include <utility>

#include "scr/code/native/Native.h"
#include "scr/run/RunControl.h"

namespace SCR::Code {

bool Hot::make(void (*lower)(Builder& code, const void* how), const void* how) {
    RunControl* const control = RunControl::current();
    if (control == nullptr || control->codeTier() == CodeTier::Tree) return false;
    try {
        Builder code(*control);
        lower(code, how);
        Listing listing = code.take();
        if (control->codeTier() == CodeTier::Native) fragment_ = makeNative(listing, *control);
        if (fragment_ == nullptr) fragment_ = makePortable(std::move(listing), *control);
        if (!control->takeForCode(fragment_->bytes())) fragment_ = nullptr;
    } catch (const std::bad_alloc&) {
        // The nodes go on.
    }
    return fragment_ != nullptr;
}

}  // namespace SCR::Code
