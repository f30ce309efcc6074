#pragma once

#include <vector>

#include "scr/Log.h"
#include "scr/check/ScriptRecord.h"

namespace SCR {

/// The places in a script where a call loses values because a function has one set of parameters
/// and variables, not one per call; in the order of the text:
///
/// - an argument that calls the function again, directly or through other functions, when
/// parameters
///   that the function reads are already set, as in `f(1, f(2, 3))`;
/// - the reading of a parameter, or of a variable that a function sets anew in each call, after the
///   function has called itself, or after an argument of such a call was stored in it.
///
/// A parameter that the inner call receives unchanged keeps its value and is not reported. Neither
/// is a variable that is read before it is set, as it is meant to last from call to call.
std::vector<Finding> findReentries(const ScriptRecord& record);

}  // namespace SCR
