#pragma once

#include "fnd/Export.h"
#include "scr/Variable.h"

namespace SCR {

/// An expression that gives the one value it was built with.
template <class Type>
class ConstantNode : public Type::Node {
public:
    explicit ConstantNode(typename Type::Argument value) : value_(value) {}
    typename Type::Argument result() override { return value_; }
    /// The value, owned by this node.
    const typename Type::Value& value() const { return value_; }

protected:
    const typename Type::Value value_;
};

/// Only a Long constant promotes: to a Decimal of the same value.
class KESTREL_API LongConstant final : public ConstantNode<LongType> {
public:
    using ConstantNode::ConstantNode;
    Node* promote(int typeWord) const override;
};

class KESTREL_API DecimalConstant final : public ConstantNode<DecimalType> {
public:
    using ConstantNode::ConstantNode;
};

class KESTREL_API StringConstant final : public ConstantNode<StringType> {
public:
    using ConstantNode::ConstantNode;
};

class KESTREL_API DateConstant final : public ConstantNode<DateType> {
public:
    using ConstantNode::ConstantNode;
};

class KESTREL_API BoolConstant final : public ConstantNode<BoolType> {
public:
    using ConstantNode::ConstantNode;
};

class KESTREL_API NexidConstant final : public ConstantNode<NexidType> {
public:
    using ConstantNode::ConstantNode;
};

}  // namespace SCR
