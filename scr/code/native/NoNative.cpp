#include "scr/code/native/Native.h"

namespace SCR::Code {

std::unique_ptr<Fragment> makeNative(const Listing& /*listing*/, RunControl& /*control*/) {
    return nullptr;
}

bool hasNative() { return false; }

}  // namespace SCR::Code
