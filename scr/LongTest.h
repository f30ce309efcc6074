#pragma once

#include "scr/Node.h"

namespace SCR {

/// A comparison of two Longs as data, so that a statement can test it without calling its node. It
/// owns nothing: the comparison's node does.
class LongTest {
public:
    /// Which outcomes of the comparison satisfy it; any sum of these.
    enum Outcome : unsigned { Less = 1, Equal = 2, Greater = 4 };

    /// An operand: the storage it is read from, or the node that gives it.
    struct Operand {
        const long* storage = nullptr;
        LongNode* node = nullptr;

        long value() const { return storage != nullptr ? *storage : node->result(); }
    };

    LongTest() = default;
    LongTest(Operand left, Operand right, unsigned outcomes)
        : left_(left), right_(right), outcomes_(outcomes) {}

    /// Whether it holds; evaluates left, then right.
    bool holds() const {
        const long left = left_.value();
        const long right = right_.value();
        return ((outcomes_ >> (left > right ? 2U : left == right ? 1U : 0U)) & 1U) != 0;
    }

private:
    Operand left_;
    Operand right_;
    unsigned outcomes_ = 0;
};

/// Base of the nodes that compare two Longs.
class LongComparison : public BoolNode {
public:
    /// The comparison as data; valid as long as the node.
    virtual LongTest test() const = 0;
};

}  // namespace SCR
