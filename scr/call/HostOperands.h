#pragma once

#include <exception>
#include <memory>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "scr/HostFunction.h"
#include "scr/call/OperandSlot.h"
#include "scr/call/ShownValue.h"
#include "scr/run/NodeMemory.h"
#include "scr/run/RunControl.h"
#include "scr/tree/ElementPath.h"
#include "scr/value/ChargedText.h"

// The arguments of a call of a host's function, and what the call keeps of them.

namespace SCR::Host {

class OpenCall;

/// What a call keeps for one operand: a copy of its value, and the path to the element that it is.
struct Kept {
    std::variant<std::monostate, long, bool, ChargedText, FND::Decimal, FND::DateTime,
                 FND::Identifier>
        value;
    ElementTrail trail;
    Variable* container = nullptr;

    // The value, whose type is the same in every call of this operand.
    template <class Value>
    Value& as() {
        if constexpr (std::is_same_v<Value, FND::String>) {
            return as<ChargedText>().text();
        } else {
            if (!std::holds_alternative<Value>(value)) value.emplace<Value>();
            return *std::get_if<Value>(&value);
        }
    }
    // Assigns a value and tells where it lies.
    template <class Value>
    Value& hold(const Value& source) {
        if constexpr (std::is_same_v<Value, FND::String>) {
            as<ChargedText>().assign(source);
        } else {
            as<Value>() = source;
        }
        return as<Value>();
    }
    // Drops a text that is too large to keep its memory.
    void shrink() {
        constexpr std::size_t most = 4096;
        auto* const text = std::get_if<ChargedText>(&value);
        if (text != nullptr && text->text().capacity() > most) value.emplace<ChargedText>();
    }
};

/// An argument of a call, whatever its type.
class Operand : public InNodeMemory {
public:
    Operand() = default;
    Operand(const Operand&) = delete;
    Operand& operator=(const Operand&) = delete;
    virtual ~Operand() = default;

    /// Evaluates it and gives where its value is; what has to be kept is kept in operand `index` of
    /// `call`.
    virtual void* evaluate(OpenCall& call, std::size_t index) = 0;
    /// A null value of its type.
    virtual void* null() = 0;
    /// Finds the container that it evaluated before anew, if script code may have run since.
    virtual void locate(Kept& /*kept*/) {}
    /// Stores what the callable left in `kept`, if it is a variable.
    virtual void store(Kept& /*kept*/) {}
    /// The value that it was evaluated to, for messages; nothing when it may be gone.
    virtual FND::String shown(OpenCall& call, std::size_t index) = 0;
};

class CallBody;

/// A call under way, and what it keeps.
class OpenCall final : public Call, public HostSite {
public:
    explicit OpenCall(CallBody& body);
    OpenCall(const OpenCall&) = delete;
    OpenCall& operator=(const OpenCall&) = delete;
    ~OpenCall();

    const Node* node() const override;
    void describe(Diagnostic& diagnostic) override;

    bool isGiven(std::size_t index) const;
    void* const* evaluateRest(std::size_t first, std::size_t& count) noexcept;
    void* evaluate(std::size_t index) noexcept;
    Kept& kept(std::size_t index);
    void mustLocate() { mustLocate_ = true; }
    void locate() noexcept;

    /// Lets the call fail for what `throwIt` throws; always false.
    template <class Throw>
    bool fail(const Throw& throwIt) noexcept {
        try {
            throwIt();
        } catch (...) {
            keepException();
        }
        return false;
    }
    /// Lets the call fail for the exception that is being handled.
    [[gnu::cold, gnu::noinline]] void keepException() noexcept {
        hasFailed_ = true;
        failure_ = std::current_exception();
    }
    bool hasFailed() const { return hasFailed_; }
    bool isCalling() const { return isCalling_; }
    [[noreturn]] void throwFailure() { std::rethrow_exception(std::exchange(failure_, nullptr)); }

private:
    CallBody& body_;
    std::unique_ptr<Kept[]> kept_;  // one for each operand, once one of them needs it
    std::exception_ptr failure_;
    std::vector<void*> rest_;
};

template <class Type>
void* nullOf() {
    static typename Type::Value null = Type::null();
    return &null;
}

template <class Type>
class ValueOperand final : public Operand {
public:
    /// `keeps`: a later operand may run script code that changes the value.
    /// `isChanged`: the callable may change the container that the value lies in.
    ValueOperand(std::unique_ptr<Node> node, bool keeps, bool isChanged) {
        slot_.take(std::move(node));
        keeps_ = keeps || (Type::byReference && isChanged && slot_.storage == nullptr);
    }

    void* evaluate(OpenCall& call, std::size_t index) override {
        if constexpr (Type::byReference) {
            const auto* value = &slot_.evaluate();
            if (keeps_) [[unlikely]]
                value = &call.kept(index).hold(*value);
            value_ = value;
            return const_cast<typename Type::Value*>(value);
        } else {
            value_ = slot_.evaluate();
            if (keeps_) [[unlikely]]
                return &call.kept(index).hold(value_);
            return &value_;
        }
    }
    void* null() override { return nullOf<Type>(); }
    FND::String shown(OpenCall& call, std::size_t index) override {
        if constexpr (std::is_same_v<Type, AdtType>) {
            if (value_ == 0) return "null";
            return "of the type " + slot_.node->subType();
        }
        if (keeps_) return shownValue(call.kept(index).template as<typename Type::Value>());
        if constexpr (Type::byReference) {
            // The callable may have run script code that removed the element.
            const bool mayBeGone =
                dynamic_cast<ElementPath<typename Type::Value>*>(slot_.node.get()) != nullptr;
            return slot_.storage == nullptr && mayBeGone ? FND::String() : shownValue(*value_);
        } else {
            return shownValue(value_);
        }
    }

private:
    using Room =
        std::conditional_t<Type::byReference, const typename Type::Value*, typename Type::Value>;

    OperandSlot<Type> slot_;
    Room value_{};  // the one evaluated last
    bool keeps_;
};

/// A container, which the callable gets by reference.
template <class Container, class ContainerNode>
class ContainerOperand final : public Operand {
public:
    /// `keeps`: a later operand may run script code that removes the container.
    ContainerOperand(std::unique_ptr<Node> node, bool keeps) : keeps_(keeps) {
        node_.reset(static_cast<ContainerNode*>(node.release()));
        if (keeps) path_ = dynamic_cast<ElementPath<Container>*>(node_.get());
    }

    void* evaluate(OpenCall& call, std::size_t index) override {
        if (!keeps_) [[likely]] {
            last_ = node_->result();
            return &last_;
        }
        Kept& kept = call.kept(index);
        if (path_ != nullptr) [[unlikely]] {
            kept.trail.clear();
            path_->note(kept.trail);
            call.mustLocate();
        } else {
            kept.container = node_->result();
        }
        return &kept.container;
    }
    void locate(Kept& kept) override {
        if (path_ == nullptr) return;
        kept.trail.rewind();
        kept.container = path_->follow(kept.trail);
    }
    void* null() override {
        static Variable* none = nullptr;
        return &none;
    }
    FND::String shown(OpenCall& /*call*/, std::size_t /*index*/) override {
        return std::is_same_v<Container, Array> ? "an array" : "a hash";
    }

private:
    std::unique_ptr<ContainerNode> node_;
    const bool keeps_;
    Variable* last_ = nullptr;                // the one evaluated last, unless it has to be kept
    ElementPath<Container>* path_ = nullptr;  // the node, when the container must be found again
};

/// A variable that the callable reads and writes.
template <class Type>
class OutOperand final : public Operand {
public:
    using Value = typename Type::Value;

    explicit OutOperand(std::unique_ptr<Node> node) {
        slot_.take(std::move(node));
        path_ = dynamic_cast<ElementPath<Value>*>(slot_.node.get());
    }

    void* evaluate(OpenCall& call, std::size_t index) override {
        Kept& kept = call.kept(index);
        if (path_ == nullptr) return &kept.hold<Value>(slot_.node->result());
        kept.trail.clear();
        path_->note(kept.trail);
        const Value* const element = follow(kept);
        return &kept.hold(element != nullptr ? *element : emptyCM);
    }
    void* null() override { return nullOf<Type>(); }
    FND::String shown(OpenCall& call, std::size_t index) override {
        return shownValue(call.kept(index).template as<Value>());
    }
    void store(Kept& kept) override {
        const Value& value = kept.as<Value>();
        if (path_ == nullptr) {
            slot_.node->set(value);
        } else if (Value* const element = follow(kept)) {
            SCR::store(*element, value);
        }
    }

private:
    // Found anew each time, as the code that ran in between may have removed it.
    Value* follow(Kept& kept) {
        kept.trail.rewind();
        return path_->follow(kept.trail);
    }

    inline static const Value emptyCM{};

    OperandSlot<Out<Type>> slot_;
    ElementPath<Value>* path_;  // the node, when it gives an element
};

class FieldOperand final : public Operand {
public:
    FieldOperand(std::unique_ptr<Node> node, long id)
        : node_(std::move(node)), field_(nameIn(*node_), id) {}

    static const FND::String& nameIn(Node& node) { return static_cast<StringNode&>(node).result(); }

    void* evaluate(OpenCall& /*call*/, std::size_t /*index*/) override { return &field_; }
    void* null() override { return &field_; }
    FND::String shown(OpenCall& /*call*/, std::size_t /*index*/) override {
        return "the field " + quotedValue(nameIn(*node_));
    }

private:
    const std::unique_ptr<Node> node_;
    FieldAlias field_;
};

}  // namespace SCR::Host
