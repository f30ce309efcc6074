#pragma once

#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "scr/os/FileData.h"
#include "scr/run/MemoryCharge.h"
#include "scr/tree/ElementPath.h"
#include "scr/tree/Operand.h"
#include "scr/value/TypeVisitor.h"

namespace SCR {

// Operand types of a function besides the value types of the language and the containers
// `SCR::Array` and `SCR::Hash`.

/// An argument that may be left out.
template <class Type>
struct Optional {};

/// A variable that the function writes.
template <class Type>
struct Out {};

/// The node of an operand, which the slot owns; null when the argument is left out.
template <class NodeClass>
struct NodeSlot {
    using Node = NodeClass;

    void take(std::unique_ptr<SCR::Node> given) { node.reset(static_cast<Node*>(given.release())); }

    std::unique_ptr<Node> node;
};

/// The same for an operand that gives a value.
template <class Type>
struct ValueSlot : NodeSlot<typename Type::Node> {
    using Value = typename Type::Value;

    void take(std::unique_ptr<SCR::Node> given) {
        NodeSlot<typename Type::Node>::take(std::move(given));
        storage = storageOf<Type>(*this->node);
    }

    const Value* storage = nullptr;  ///< of what is read without a call of the node
};

/// How the node of a call holds one operand. `Argument` is what the function receives; `Held` keeps
/// it while later operands are evaluated that may change what a reference refers to.
template <class Type>
struct OperandSlot : ValueSlot<Type> {
    using Argument = typename Type::Argument;
    using Held = HeldCopy<typename Type::Value>;

    Argument evaluate() { return this->storage != nullptr ? *this->storage : this->node->result(); }
    Held hold() { return Held(this->node->result()); }
    static Argument argument(Held& held) { return held.value(); }
};

/// A value that may be missing, which the compiler keeps in registers: a copy of a std::optional
/// that has just been made waits for its parts to reach the cache.
template <class Value>
struct Given {
    Value value{};
    bool isGiven = false;

    explicit operator bool() const { return isGiven; }
    const Value& operator*() const { return value; }
    operator std::optional<Value>() const {
        return isGiven ? std::optional<Value>(value) : std::nullopt;
    }
};

/// An argument left out is an empty optional, or a null pointer for types passed by reference.
template <class Type>
struct OperandSlot<Optional<Type>> : ValueSlot<Type> {
    using Value = typename Type::Value;
    using Argument = std::conditional_t<Type::byReference, const Value*, Given<Value>>;
    using Held = std::optional<HeldCopy<Value>>;

    Argument evaluate() {
        if constexpr (Type::byReference) {
            if (this->storage != nullptr) return this->storage;
            return this->node ? &this->node->result() : nullptr;
        } else {
            if (this->storage != nullptr) return {*this->storage, true};
            if (this->node == nullptr) return {};
            return {this->node->result(), true};
        }
    }
    Held hold() { return this->node ? Held(this->node->result()) : std::nullopt; }
    static Argument argument(Held& held) {
        if constexpr (Type::byReference) {
            return held ? &held->value() : nullptr;
        } else {
            return held ? Argument{held->value(), true} : Argument();
        }
    }
};

template <class Type>
struct OperandSlot<Out<Type>> : NodeSlot<typename Type::DataNode> {
    using Argument = typename Type::DataNode&;
    using Held = typename Type::DataNode*;

    Argument evaluate() { return *this->node; }
    Held hold() { return this->node.get(); }
    static Argument argument(Held& held) { return *held; }
};

/// A null pointer when the argument is left out.
template <class Type>
struct OperandSlot<Optional<Out<Type>>> : NodeSlot<typename Type::DataNode> {
    using Argument = typename Type::DataNode*;
    using Held = Argument;

    Argument evaluate() { return this->node.get(); }
    Held hold() { return this->node.get(); }
    static Argument argument(Held& held) { return held; }
};

template <>
struct OperandSlot<FileType> : NodeSlot<FileData> {
    using Argument = FileData&;
    struct Held {
        FileData* node;
        ElementTrail trail;
    };

    Argument evaluate() {
        node->find();
        return *node;
    }
    Held hold() {
        Held held{node.get(), {}};
        node->note(held.trail);
        return held;
    }
    static Argument argument(Held& held) {
        held.node->follow(held.trail);
        return *held.node;
    }
};

/// Null when there is no container, as for an element under a negative index.
template <class Container, class ContainerNode>
struct ContainerSlot : NodeSlot<ContainerNode> {
    using Argument = Container*;
    using Held = Container*;

    Argument evaluate() { return this->node->result(); }
    static Argument argument(Held& held) { return held; }
};

template <>
struct OperandSlot<Array> : ContainerSlot<Array, ArrayNode> {};

template <>
struct OperandSlot<Hash> : ContainerSlot<Hash, HashNode> {};

}  // namespace SCR
