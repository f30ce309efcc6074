#pragma once

#include <memory>

#include "scr/Node.h"
#include "scr/tree/Branch.h"

namespace SCR {

class IfStatement;

/// Base of the nodes that help to run the statement whose condition they are. So the condition
/// becomes part of the statement's code and needs no call of a node.
class ConditionNode : public BoolNode {
public:
    /// Executes turns of a loop as long as the node gives true, up to one that gives a code other
    /// than `goOn`.
    virtual std::int32_t repeat(const LoopTurn& turn) = 0;

    /// A new if-statement whose condition is this node; it takes ownership of the node through
    /// `self`.
    virtual std::unique_ptr<IfStatement> makeIf(std::unique_ptr<BoolNode> self) = 0;
};

/// The condition of a loop, which owns it.
class Condition {
public:
    Condition() = default;
    /// Takes ownership of `node`.
    explicit Condition(BoolNode* node);

    /// Executes turns as long as the condition holds, up to one that gives a code other than
    /// `goOn`. There must be a condition.
    std::int32_t repeat(const LoopTurn& turn) const {
        if (part_ != nullptr) return part_->repeat(turn);
        return turn.repeatWhile([this] { return node_->result(); });
    }

private:
    std::unique_ptr<BoolNode> node_;
    ConditionNode* part_ = nullptr;  // the node, if it is one
};

}  // namespace SCR
