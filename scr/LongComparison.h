#pragma once

#include <memory>

#include "scr/Branch.h"
#include "scr/Node.h"

namespace SCR {

class IfStatement;

/// Base of the nodes that compare two Longs. As the condition of a statement they take part in
/// running it, so that the comparison is code of the statement and not a call of a node.
class LongComparison : public BoolNode {
public:
    /// Executes turns of a loop as long as the comparison holds, up to one that gives a code other
    /// than `goOn`.
    virtual std::int32_t repeat(const Turn& turn) = 0;

    /// A new if-statement whose condition is this node, which it takes over by `self`.
    virtual std::unique_ptr<IfStatement> makeIf(std::unique_ptr<BoolNode> self) = 0;
};

}  // namespace SCR
