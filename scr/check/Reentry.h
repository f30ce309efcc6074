#pragma once

#include <vector>

#include "scr/Finding.h"
#include "scr/check/ScriptRecord.h"

namespace SCR {

/// The places in a script where a call loses values because a function has one set of parameters
/// and variables, not one for each call; in the order of the text:
///
/// - an argument that calls the function again, itself or by way of other functions, while
///   parameters are set already that the function reads, as in `f(1, f(2, 3))`;
/// - the reading of a parameter, or of a variable that a function sets anew in each call, after the
///   function called itself, or after an argument of such a call was stored in it.
///
/// What surely keeps its value is not among them: a parameter that the inner call is given
/// unchanged. Nor is a variable that is read before it is set, as it is meant to last from call to
/// call.
std::vector<Finding> findReentries(const ScriptRecord& record);

}  // namespace SCR
