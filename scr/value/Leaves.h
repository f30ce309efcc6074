#pragma once

#include <typeinfo>

#include "scr/Constant.h"
#include "scr/ContainerAccess.h"
#include "scr/VariableAccess.h"
#include "scr/value/TypeVisitor.h"

namespace SCR {

// The leaves of expressions: accesses to variables and constants.

/// The classes of the leaves of a type.
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
    if constexpr (requires { typename LeafNodes<Type>::Constant; }) {
        using Constant = typename LeafNodes<Type>::Constant;
        if (&typeid(node) == &typeid(Constant)) return &static_cast<const Constant&>(node).value();
    }
    return nullptr;
}

/// The address of the value that `node` gives without doing anything else: in the variable that it
/// reads, or in the node itself if it is a constant. Null for any other node.
template <class Type>
const typename Type::Value* storageOf(const Node& node) {
    if (const auto* const variable = variableOf<Type>(node)) return &variable->value();
    return constantOf<Type>(node);
}

}  // namespace SCR
