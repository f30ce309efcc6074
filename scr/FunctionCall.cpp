#include "scr/FunctionCall.h"

#include "scr/RunControl.h"

namespace SCR {

bool FunctionCall::call(const Node* place) {
    for (const std::unique_ptr<Node>& binding : bindings_) binding->execute();
    if (control_ != nullptr) control_->call(place);
    return function_->StatementList::execute() == Node::returned;
}

}  // namespace SCR
