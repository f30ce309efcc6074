#pragma once

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

/// Those of the current parse, or null. A part of the parse state, and guarded like that.
extern Analyses* analysesG;

template <class Tell>
[[gnu::noinline, gnu::cold]] void tellEach(Tell& tell) {
    if (analysesG->flow != nullptr) tell(*analysesG->flow);
    tell(analysesG->recorder);
    tell(analysesG->usage);
}

/// Calls `tell` with each analysis that follows the current parse.
template <class Tell>
void tellAnalyses(Tell tell) {
    if (analysesG != nullptr) [[unlikely]]
        tellEach(tell);
}

}  // namespace SCR
