#pragma once

#include "scr/code/Operation.h"

namespace SCR::Code {

/// Replaces short branches that only compute values of variables: both sides are computed, and
/// `Select` operations choose between the values. A processor cannot mispredict those. (The
/// if-conversion of Allen, Kennedy, Porterfield and Warren, 1983, for innermost branches.)
void useSelects(Listing& listing);

}  // namespace SCR::Code
