#pragma once

#include <memory>
#include <vector>

#include "scr/Types.h"

namespace SCR {

class RunControl;

/// An operand of a `StringSum`: a variable, a constant or any other expression.
class StringPart {
public:
    explicit StringPart(std::unique_ptr<Node> node);

    /// Evaluates it.
    const FND::String& value() const { return text_ != nullptr ? *text_ : node_->result(); }
    /// The text that can be read without an evaluation; null for an expression. Not owned.
    const FND::String* text() const { return text_; }

private:
    std::unique_ptr<StringNode> node_;
    const FND::String* text_ = nullptr;  // of the variable or of the constant `node_`
};

/// Strings one after the other, evaluated from left to right and then copied together at once. Only
/// the first operand may run script code, as that can change what earlier operands refer to.
class StringSum final : public StringNode {
public:
    /// Takes ownership of the operands; the operands of a sum on the left become its own.
    static std::unique_ptr<StringSum> make(RunControl& control, std::unique_ptr<Node> left,
                                           std::unique_ptr<Node> right, bool isLongRow);

    const FND::String& result() override;

    /// The first text, if that is a variable or a constant; otherwise null.
    const FND::String* firstText() const { return parts_.front().text(); }
    /// Sets `target`, whose text comes first, to the result, without copying that text.
    void appendTo(FND::String& target);

private:
    explicit StringSum(RunControl& control) : control_(control) {}

    void add(std::unique_ptr<Node> operand);
    // Evaluates the operands into `values_` and returns their total length.
    std::size_t evaluate();

    RunControl& control_;
    std::vector<StringPart> parts_;
    std::vector<const FND::String*> values_;  // of the parts, during an evaluation
    FND::String result_;
};

}  // namespace SCR
