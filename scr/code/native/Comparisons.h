#pragma once

#include "scr/code/Operation.h"

namespace SCR::Code {

/// Takes out the comparisons whose results are known: from the comparisons that led there, or from
/// constants stored before. Of two jumps to one place that follow each other, the one that the
/// other one covers goes. Looks along straight lines of code only.
void dropKnownComparisons(Listing& listing);

}  // namespace SCR::Code
