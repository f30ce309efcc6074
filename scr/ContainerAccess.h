#pragma once

#include <memory>

#include "fnd/Export.h"
#include "scr/Array.h"
#include "scr/Hash.h"
#include "scr/Node.h"

namespace SCR {

class Interpreter;

/// Gives a named array, which it does not own.
class KESTREL_API ArrayVariableAccess final : public ArrayNode {
public:
    explicit ArrayVariableAccess(Array* variable) : variable_(variable) {}
    Array* result() override { return variable_; }
    int containerType() const override { return variable_->containerType(); }
    Variable* defaultValue() const override { return variable_->defaultValue(); }

private:
    Array* const variable_;
};

/// Gives a named hash, which it does not own.
class KESTREL_API HashVariableAccess final : public HashNode {
public:
    explicit HashVariableAccess(Hash* variable) : variable_(variable) {}
    Hash* result() override { return variable_; }
    int containerType() const override { return variable_->containerType(); }
    Variable* defaultValue() const override { return variable_->defaultValue(); }

private:
    Hash* const variable_;
};

/// The element of `container` under `index`, as a data node of the element's type, or as an
/// `ArrayNode` or `HashNode` when it is a container. Each evaluation first takes the index, then
/// the container, and makes the element when it is missing. When the index is negative or the
/// element cannot be made, the node gives the type's empty value or no container, and nothing can
/// be stored; an element that cannot be made is logged as an error once per execution. Null, with
/// the operands destroyed, when elements of the type cannot be accessed. The interpreter must
/// outlive the node.
KESTREL_API std::unique_ptr<Node> arrayAccess(Interpreter& interpreter,
                                              std::unique_ptr<ArrayNode> container,
                                              std::unique_ptr<LongNode> index);

/// The element of `container` under `key`, in the same way. `containerMayRunScript` tells whether
/// evaluating the container may run script code.
KESTREL_API std::unique_ptr<Node> hashAccess(Interpreter& interpreter,
                                             std::unique_ptr<HashNode> container,
                                             std::unique_ptr<StringNode> key,
                                             bool containerMayRunScript);

}  // namespace SCR
