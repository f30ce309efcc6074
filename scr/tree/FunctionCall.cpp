#include "scr/tree/FunctionCall.h"

namespace SCR {

FunctionCall::FunctionCall(Bindings bindings, RunControl* control)
    : bindings_(std::move(bindings)), control_(control) {
    steps_.reserve(bindings_.size());
    for (const std::unique_ptr<Node>& binding : bindings_) {
        steps_.emplace_back(binding.get());
        if (copyCount_ + 1 == steps_.size() && steps_.back().sum.isCopy()) ++copyCount_;
    }
}

}  // namespace SCR
