#pragma once

#include <memory>

#include "fnd/Export.h"
#include "scr/LongTest.h"

namespace SCR {

/// The condition of a statement, which owns it.
class KESTREL_API Condition {
public:
    Condition() = default;
    /// Takes over `node`.
    explicit Condition(BoolNode* node);

    /// Evaluates it. There must be one.
    bool holds() const { return isTest_ ? test_.holds() : node_->result(); }

private:
    std::unique_ptr<BoolNode> node_;
    LongTest test_;
    bool isTest_ = false;  // the node is a comparison of Longs, and `test_` is it
};

}  // namespace SCR
