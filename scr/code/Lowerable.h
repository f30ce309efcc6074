#pragma once

#include "scr/code/Operation.h"

namespace SCR::Code {

class Builder;

/// An extra ability of this library's nodes: they write down what they do as operations. Any other
/// node is an operation that calls it.
class Lowerable {
public:
    Lowerable() = default;
    Lowerable(const Lowerable&) = delete;
    Lowerable& operator=(const Lowerable&) = delete;

    /// Emits the evaluation of an expression and gives its value: the number of a Long or a handle,
    /// 0 or 1 for a Bool, for other types the address of the value. `target`, when given, is where
    /// the value should better go; nothing is stored there unless it is the operand returned.
    virtual Ref lowerValue(Builder& code, Ref target) = 0;
    /// Emits a jump to `label` that is taken when the value of a Bool expression is `when`.
    virtual void lowerJump(Builder& code, Label label, bool when);
    /// Emits the execution as a statement.
    virtual void lowerStatement(Builder& code);

protected:
    ~Lowerable() = default;
};

}  // namespace SCR::Code
