#pragma once

#include "scr/code/Operation.h"

namespace SCR::Code {

/// Where the remainder of a division by a constant is only compared with 0, lets the comparison
/// look whether the number is a multiple, which takes no division.
void testRemainders(Listing& listing);

}  // namespace SCR::Code
