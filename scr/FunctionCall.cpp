#include "scr/FunctionCall.h"

#include "scr/RunControl.h"

namespace SCR {

bool FunctionCall::call(const Node* place) {
    for (const std::unique_ptr<Node>& binding : bindings_) binding->execute();
    if (control_ == nullptr) return function_->run() == Node::returned;
    control_->enterCall(place);
    const bool hasReturned = function_->run() == Node::returned;
    control_->leaveCall();
    return hasReturned;
}

}  // namespace SCR
