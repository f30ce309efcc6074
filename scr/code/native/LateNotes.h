#pragma once

#include "scr/code/Operation.h"

namespace SCR::Code {

/// Takes the `LateNote`s out of a listing: their values are stored by whatever calls the library on
/// the way from there, which `Operation::notes` tells. Where ways with different values meet before
/// a call, each stores its own at once, as a `Note`.
void delayNotes(Listing& listing);

}  // namespace SCR::Code
