#pragma once

#include <memory>

#include "scr/code/Fragment.h"

namespace SCR::Code {

/// The fragment of a listing as code of the processor; null when there cannot be one: when the
/// library was built without it, or the process may have no executable memory.
std::unique_ptr<Fragment> makeNative(const Listing& listing, RunControl& control);

/// Whether there are such fragments here and now.
bool hasNative();

}  // namespace SCR::Code
