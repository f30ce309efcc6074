#pragma once

#include "scr/Interpreter.h"
#include "scr/check/FlowAnalysis.h"
#include "scr/check/ScriptRecorder.h"
#include "scr/check/Usage.h"

namespace SCR {

/// The analyses that follow a script while `Interpreter::check` parses it. The parser's actions
/// report to all of them, in the order of the text.
struct Analyses {
    FlowAnalysis* flow = nullptr;  ///< not owned; null when nobody asks for its findings
    ScriptRecorder recorder;
    Usage usage;
};

/// Calls `tell` with each analysis that follows the parse of `interpreter`.
template <class Tell>
void tellAnalyses(const Interpreter& interpreter, Tell tell) {
    Analyses* const analyses = interpreter.analyses();
    if (analyses == nullptr) [[likely]]
        return;
    if (analyses->flow != nullptr) tell(*analyses->flow);
    tell(analyses->recorder);
    tell(analyses->usage);
}

}  // namespace SCR
