#pragma once

#include <memory>

#include "scr/Variable.h"
#include "scr/code/Builder.h"
#include "scr/value/Leaves.h"

namespace SCR {

/// An operand of a node, which owns it: an expression of the type `Type`. A variable or a constant
/// is read where it lies, without a call of its node.
template <class Type>
class Operand {
public:
    explicit Operand(std::unique_ptr<Node> node)
        : node_(static_cast<typename Type::Node*>(node.release())),
          storage_(storageOf<Type>(*node_)) {}

    /// Evaluates it.
    typename Type::Argument value() const {
        return storage_ != nullptr ? *storage_ : node_->result();
    }
    /// Where its value lies without an evaluation; null for an expression.
    const typename Type::Value* storage() const { return storage_; }
    typename Type::Node& node() const { return *node_; }
    /// Emits the evaluation.
    Code::Ref lower(Code::Builder& code, Code::Ref target = {}) const {
        return code.value(*node_, target);
    }

private:
    std::unique_ptr<typename Type::Node> node_;
    const typename Type::Value* storage_;
};

}  // namespace SCR
