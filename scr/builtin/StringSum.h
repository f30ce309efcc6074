#pragma once

#include <memory>
#include <vector>

#include "scr/tree/Operand.h"

namespace SCR {

class RunControl;

/// Strings one after the other, evaluated from left to right and then copied together at once. Only
/// the first operand may run script code, as that can change what earlier operands refer to.
class StringSum final : public StringNode {
public:
    /// Takes ownership of the operands; the operands of a sum on the left become its own.
    static std::unique_ptr<StringSum> make(RunControl& control, std::unique_ptr<Node> left,
                                           std::unique_ptr<Node> right);

    const FND::String& result() override;

    /// The first text, if that is a variable or a constant; otherwise null.
    const FND::String* firstText() const { return parts_.front().storage(); }
    /// Sets `target`, whose text comes first, to the result, without copying that text.
    void appendTo(FND::String& target);

private:
    explicit StringSum(RunControl& control) : control_(control) {}

    void add(std::unique_ptr<Node> operand);
    // Evaluates the operands into `values_` and returns their total length.
    std::size_t evaluate();

    RunControl& control_;
    std::vector<Operand<StringType>> parts_;
    std::vector<const FND::String*> values_;  // of the parts, during an evaluation
    FND::String result_;
};

}  // namespace SCR
