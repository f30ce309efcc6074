#pragma once

#include "scr/Interpreter.h"
#include "scr/check/FlowAnalysis.h"
#include "scr/check/ScriptRecorder.h"

namespace SCR {

/// What follows a script while `Interpreter::check` parses it. The parser's actions tell all of it
/// what they meet, in the order of the text.
struct Analyses {
    FlowAnalysis* flow = nullptr;  ///< not owned; null when its findings are not asked for
    ScriptRecorder recorder;
};

/// Calls `tell` with each analysis that follows what `interpreter` parses.
template <class Tell>
void tellAnalyses(const Interpreter& interpreter, Tell tell) {
    Analyses* const analyses = interpreter.analyses();
    if (analyses == nullptr) [[likely]]
        return;
    if (analyses->flow != nullptr) tell(*analyses->flow);
    tell(analyses->recorder);
}

}  // namespace SCR
