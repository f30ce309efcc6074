#pragma once

#include <memory>
#include <typeinfo>
#include <utility>

#include "scr/Constant.h"
#include "scr/ContainerAccess.h"
#include "scr/Types.h"
#include "scr/VariableAccess.h"
#include "scr/value/TypeVisitor.h"

namespace SCR {

/// Whether nodes are specialised by the kinds of their operands. Only the build that compares the
/// specialised nodes with the general ones turns it off.
inline constexpr bool SpecialisesNodes = KESTREL_SPECIALISE != 0;

/// The classes of the nodes that read a variable or a constant of a type.
template <class Type>
struct LeafNodes;
template <>
struct LeafNodes<LongType> {
    using Access = LongVariableAccess;
    using Constant = LongConstant;
};
template <>
struct LeafNodes<DecimalType> {
    using Access = DecimalVariableAccess;
    using Constant = DecimalConstant;
};
template <>
struct LeafNodes<StringType> {
    using Access = StringVariableAccess;
    using Constant = StringConstant;
};
template <>
struct LeafNodes<DateType> {
    using Access = DateVariableAccess;
    using Constant = DateConstant;
};
template <>
struct LeafNodes<BoolType> {
    using Access = BoolVariableAccess;
    using Constant = BoolConstant;
};
template <>
struct LeafNodes<NexidType> {
    using Access = NexidVariableAccess;
    using Constant = NexidConstant;
};
template <>
struct LeafNodes<AdtType> {
    using Access = AdtVariableAccess;
};
template <>
struct LeafNodes<FileType> {
    using Access = FileData;
};
template <>
struct LeafNodes<ArrayType> {
    using Access = ArrayVariableAccess;
};
template <>
struct LeafNodes<HashType> {
    using Access = HashVariableAccess;
};

// The kinds of operands that a specialised node can hold. Each gives the operand's value; the code
// of the node is the same for all kinds.

/// Any expression: a call of its node.
template <class Type>
class AnyOperand {
public:
    explicit AnyOperand(std::unique_ptr<Node> node)
        : node_(static_cast<typename Type::Node*>(node.release())) {}
    typename Type::Argument value() const { return node_->result(); }
    /// The node, which the operand keeps.
    typename Type::Node* peek() const { return node_.get(); }
    /// Gives the node back.
    std::unique_ptr<Node> node() && { return std::move(node_); }

private:
    std::unique_ptr<typename Type::Node> node_;
};

/// A named variable: a load. The variable is not owned.
template <class Type>
class VariableOperand {
public:
    explicit VariableOperand(const typename Type::Value* value) : value_(value) {}
    typename Type::Argument value() const { return *value_; }
    /// The address of the value, which the variable holds.
    const typename Type::Value* storage() const { return value_; }

private:
    const typename Type::Value* value_;
};

/// A constant.
template <class Type>
class ConstantOperand {
public:
    explicit ConstantOperand(typename Type::Argument value) : value_(value) {}
    typename Type::Argument value() const { return value_; }
    /// The address of the value, which this operand holds.
    const typename Type::Value* storage() const { return &value_; }

private:
    typename Type::Value value_;
};

/// The variable that `node` reads, when it is an access to a variable of the type; otherwise null.
template <class Type>
typename Type::Variable* variableOf(const Node& node) {
    using Access = typename LeafNodes<Type>::Access;
    // The library has exactly one descriptor per class, so names need not be compared.
    if (&typeid(node) != &typeid(Access)) return nullptr;
    return static_cast<const Access&>(node).variable();
}

/// The value of `node`, which keeps it, when it is a constant of the type; otherwise null.
template <class Type>
const typename Type::Value* constantOf(const Node& node) {
    using Constant = typename LeafNodes<Type>::Constant;
    if (&typeid(node) != &typeid(Constant)) return nullptr;
    return &static_cast<const Constant&>(node).value();
}

/// The address of the value that `node` gives without doing anything else: in the variable that it
/// reads, or in the node itself if it is a constant. Null for any other node.
template <class Type>
const typename Type::Value* storageOf(const Node& node) {
    if constexpr (SpecialisesNodes && requires { typename LeafNodes<Type>::Constant; }) {
        if (const auto* variable = variableOf<Type>(node)) return &variable->value();
        return constantOf<Type>(node);
    }
    return nullptr;
}

/// Calls `make` with the operand of the kind that fits `node` and returns its result.
template <class Type, class Make>
auto withOperand(std::unique_ptr<Node> node, Make&& make) {
    if constexpr (SpecialisesNodes) {
        if (const auto* variable = variableOf<Type>(*node)) {
            return make(VariableOperand<Type>(&variable->value()));
        }
        if (const auto* constant = constantOf<Type>(*node)) {
            return make(ConstantOperand<Type>(*constant));
        }
    }
    return make(AnyOperand<Type>(std::move(node)));
}

/// The same for a left and a right operand.
template <class Type, class Make>
auto withOperands(std::unique_ptr<Node> left, std::unique_ptr<Node> right, Make&& make) {
    return withOperand<Type>(std::move(left), [&](auto leftOperand) {
        return withOperand<Type>(std::move(right), [&](auto rightOperand) {
            return make(std::move(leftOperand), std::move(rightOperand));
        });
    });
}

}  // namespace SCR
