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

    /// Sets `target` to the result. It is made there, and where the sum begins with `target`, that
    /// text is not copied.
    void storeIn(FND::String& target);

private:
    explicit StringSum(RunControl& control) : control_(control) {}

    void add(std::unique_ptr<Node> operand);
    // Evaluates the operands into `values_` and returns their total length.
    std::size_t evaluate();
    // Put the values of the parts together: in `result_`, or in the first of them.
    const FND::String& assemble(std::size_t size);
    void appendTo(FND::String& target, std::size_t size);

    RunControl& control_;
    std::vector<Operand<StringType>> parts_;
    std::vector<const FND::String*> values_;  // of the parts, during an evaluation
    FND::String result_;
};

}  // namespace SCR
