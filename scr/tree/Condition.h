#pragma once

#include <memory>

#include "fnd/Export.h"
#include "scr/tree/ConditionNode.h"

namespace SCR {

/// The condition of a loop, which owns it.
class KESTREL_API Condition {
public:
    Condition() = default;
    /// Takes ownership of `node`.
    explicit Condition(BoolNode* node);

    /// Executes turns as long as the condition holds, up to one that gives a code other than
    /// `goOn`. There must be a condition.
    std::int32_t repeat(const Turn& turn) const {
        if (part_ != nullptr) return part_->repeat(turn);
        return turn.repeatWhile([this] { return node_->result(); });
    }

private:
    std::unique_ptr<BoolNode> node_;
    ConditionNode* part_ = nullptr;  // the node, if it is one
};

}  // namespace SCR
