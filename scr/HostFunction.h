#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <tuple>
#include <utility>

#include "scr/ChargedText.h"
#include "scr/ElementPlace.h"
#include "scr/FctDescr.h"
#include "scr/HostTypes.h"
#include "scr/Interpreter.h"
#include "scr/Memory.h"
#include "scr/parser/ParserStack.h"

/// The nodes and descriptors that `HostExtension` makes for the functions of a host.
namespace SCR::Host {

/// Gives the number by which the host knows a field, or a negative one for an unknown field.
using FieldIds = std::function<long(const FND::String&)>;

/// The number of the field that `name` gives; false, after a report, for an unknown field.
KESTREL_API bool resolveField(const FieldIds& ids, const FND::String& name, long& id);

/// To be called while handling an exception of `function`: stops the script, or logs the exception
/// when the function is one that gives the null value then.
KESTREL_API void handleException(Interpreter& interpreter, const FctDescr& function);

/// To be called when `function` has returned: false when it said that it failed and is one that
/// gives the null value then. Stops the script when it has to stop.
KESTREL_API bool hasReturned(Interpreter& interpreter, const FctDescr& function);

/// An argument of a type that nodes give by reference. It stays what it was when evaluated.
template <class Value>
class HeldReference {
public:
    HeldReference(const Value& value, bool keeps) : value_(&value) {
        if (keeps) [[unlikely]]
            copy_.emplace(value);
    }
    const Value& get() const { return copy_ ? copy_->value() : *value_; }

private:
    const Value* value_;
    std::optional<HeldCopy<Value>> copy_;
};

/// An argument of a type that nodes give by value.
template <class Value>
class HeldValue {
public:
    HeldValue(Value value, bool /*keeps*/) : value_(value) {}
    Value get() const { return value_; }

private:
    Value value_;
};

/// How a node holds one operand: pops it, evaluates it to an `Argument`, passes that to the
/// callable, and afterwards stores what the callable wrote.
template <class Parameter, Passing passing = passingOfS<Parameter>>
class Slot;

template <class Parameter>
class Slot<Parameter, Passing::Value> {
public:
    using Bare = std::remove_cvref_t<Parameter>;
    using Type = typename TypeOf<Bare>::Type;
    using Argument = std::conditional_t<Type::byReference, HeldReference<typename Type::Value>,
                                        HeldValue<typename Type::Value>>;
    static constexpr int typeWord = Type::typeCode;

    bool pop(ParserStack& stack, const FieldIds& /*ids*/, bool keeps) {
        keeps_ = keeps;
        node_ = stack.pop<typename Type::Node>();
        return true;
    }
    bool isGiven() const { return node_ != nullptr; }
    Argument evaluate() { return Argument(node_->result(), keeps_); }
    static decltype(auto) passOn(Argument& argument) { return pass<Bare>(argument.get()); }
    void store(Argument& /*argument*/) {}

private:
    std::unique_ptr<typename Type::Node> node_;
    bool keeps_ = false;  // a later operand may run script code
};

template <class Parameter>
class Slot<Parameter, Passing::Optional> {
public:
    using Bare = typename std::remove_cvref_t<Parameter>::value_type;
    using Given = Slot<Bare, Passing::Value>;
    using Argument = std::optional<typename Given::Argument>;
    static constexpr int typeWord = Given::typeWord;

    bool pop(ParserStack& stack, const FieldIds& ids, bool keeps) {
        return slot_.pop(stack, ids, keeps);
    }
    Argument evaluate() { return slot_.isGiven() ? Argument(slot_.evaluate()) : std::nullopt; }
    static std::optional<Bare> passOn(Argument& argument) {
        if (!argument) return std::nullopt;
        return std::optional<Bare>(Given::passOn(*argument));
    }
    void store(Argument& /*argument*/) {}

private:
    Given slot_;
};

/// A value that a callable changes.
template <class Value>
class ChangedValue {
public:
    void assign(const Value& value) { value_ = value; }
    Value& get() { return value_; }

private:
    Value value_{};
};
template <>
class ChangedValue<FND::String> {
public:
    void assign(const FND::String& value) { text_.assign(value); }
    FND::String& get() { return text_.text(); }

private:
    ChargedText text_;
};

template <class Parameter>
class Slot<Parameter, Passing::Out> {
public:
    using Type = typename TypeOf<std::remove_cvref_t<Parameter>>::Type;
    using Value = typename Type::Value;
    struct Argument {
        ChangedValue<Value> value;
        PlaceTrail trail;  // to the element that was read, which is the one to be written
    };
    static constexpr int typeWord = Type::typeCode | TypeCode::LeftFlag;

    bool pop(ParserStack& stack, const FieldIds& /*ids*/, bool /*keeps*/) {
        node_ = stack.pop<typename Type::DataNode>();
        place_ = dynamic_cast<ElementPlace<Value>*>(node_.get());
        return true;
    }
    Argument evaluate() {
        Argument argument = std::move(spare_);
        if (place_ == nullptr) {
            argument.value.assign(node_->result());
            return argument;
        }
        argument.trail.clear();
        place_->note(argument.trail);
        const Value* const value = follow(argument);
        argument.value.assign(value != nullptr ? *value : Value{});
        return argument;
    }
    static Value& passOn(Argument& argument) { return argument.value.get(); }
    void store(Argument& argument) {
        if (place_ == nullptr) {
            node_->set(argument.value.get());
        } else if (Value* const value = follow(argument)) {
            SCR::store(*value, argument.value.get());
        }
        spare_ = std::move(argument);
    }

private:
    // Found anew each time: what runs in between may have removed it.
    Value* follow(Argument& argument) {
        argument.trail.rewind();
        return place_->follow(argument.trail);
    }

    std::unique_ptr<typename Type::DataNode> node_;
    ElementPlace<Value>* place_ = nullptr;  // the node, when it gives an element
    Argument spare_{};                      // lends its room, so that no call allocates
};

template <class Parameter>
class Slot<Parameter, Passing::Field> {
public:
    using Argument = FieldAlias;
    static constexpr int typeWord = TypeCode::EdrAlias;

    bool pop(ParserStack& stack, const FieldIds& ids, bool /*keeps*/) {
        name_ = stack.pop<StringNode>()->result();
        return resolveField(ids, name_, id_);
    }
    Argument evaluate() { return FieldAlias(name_, id_); }
    static FieldAlias passOn(Argument& argument) { return argument; }
    void store(Argument& /*argument*/) {}

private:
    FND::String name_;
    long id_ = 0;
};

/// The operands of a call, for callables with these parameters.
template <class Parameters>
class Operands;

template <class... Parameters>
class Operands<List<Parameters...>> {
public:
    /// Takes the operands from the stack; false after a report.
    bool pop(Interpreter& interpreter, ParserStack& stack, const FieldIds& ids) {
        interpreter_ = &interpreter;
        return popAll(stack, ids, std::index_sequence_for<Parameters...>());
    }

    /// Evaluates the operands left to right and lets `take` call `callable` with them and, last,
    /// `values` for parameters of the types `Written`; stores what the callable wrote. False, with
    /// nothing stored, when the callable failed and the script goes on.
    template <bool takesInterpreter, class... Written, class F, class Take>
    bool call(const FctDescr& descriptor, F& callable, const Take& take,
              const typename TypeOf<Written>::Type::Value&... values) {
        return std::apply(
            [&](auto&... slot) {
                std::tuple<typename Slot<Parameters>::Argument...> arguments{
                    slot.evaluate()...};  // braces: left to right
                return std::apply(
                    [&](auto&... argument) {
                        try {
                            if constexpr (takesInterpreter) {
                                take([&]() -> decltype(auto) {
                                    return callable(*interpreter_, slot.passOn(argument)...,
                                                    pass<Written>(values)...);
                                });
                            } else {
                                take([&]() -> decltype(auto) {
                                    return callable(slot.passOn(argument)...,
                                                    pass<Written>(values)...);
                                });
                            }
                        } catch (...) {
                            handleException(*interpreter_, descriptor);
                            return false;
                        }
                        if (!hasReturned(*interpreter_, descriptor)) return false;
                        (slot.store(argument), ...);
                        return true;
                    },
                    arguments);
            },
            slots_);
    }

private:
    template <std::size_t... indices>
    bool popAll(ParserStack& stack, const FieldIds& ids, std::index_sequence<indices...> /*all*/) {
        [[maybe_unused]] const auto given = static_cast<std::size_t>(stack.topNumParams());
        constexpr std::size_t count = sizeof...(indices);
        [[maybe_unused]] bool keeps = false;
        // Last operand first; all of them, whatever becomes of one.
        bool isPopped = true;
        (static_cast<void>(isPopped &= popOne<count - 1 - indices>(stack, ids, given, keeps)), ...);
        return isPopped;
    }

    template <std::size_t index>
    bool popOne(ParserStack& stack, const FieldIds& ids, std::size_t given, bool& keeps) {
        if (index >= given) return true;
        const bool isActive = stack.traits().isActive;
        const bool isPopped = std::get<index>(slots_).pop(stack, ids, keeps);
        keeps = keeps || isActive;
        return isPopped;
    }

    Interpreter* interpreter_ = nullptr;  // not owned; outlives the node
    std::tuple<Slot<Parameters>...> slots_;
};

/// The value of the language that a callable gives, kept in the node where nodes give references.
template <class Type, class Result>
class ResultSlot {
public:
    using Value = typename Type::Value;
    using Argument = typename Type::Argument;
    static constexpr bool isReference = std::is_same_v<Result, const Value&> && Type::byReference;

    /// Calls `call` and gives what it gives as a reference or value that stays until the next call.
    template <class Call>
    void take(const Call& call) {
        if constexpr (isReference) {
            value_ = &call();
        } else if constexpr (std::is_same_v<Type, LongType>) {
            value_ = widen(call());
        } else {
            value_ = call();
        }
    }
    Argument get() const {
        if constexpr (isReference) {
            return *value_;
        } else {
            return value_;
        }
    }

private:
    std::conditional_t<isReference, const Value*, Value> value_{};
};

/// A function of a host: its descriptor, and the callable, which nodes of calls use.
template <class F>
class Function final : public FctDescr {
public:
    using Signature = typename SignatureOf<F>::Type;

    /// `ids` is not owned and must outlive the descriptor.
    Function(const FND::String& name, std::shared_ptr<F> callable, const FieldIds& ids)
        : Function(name, std::move(callable), ids, typename Signature::Parameters()) {}

    Variable* clone() const override { return new Function(*this); }

private:
    Function(const Function&) = default;

    template <class... Parameters>
    Function(const FND::String& name, std::shared_ptr<F> callable, const FieldIds& ids,
             List<Parameters...> /*parameters*/)
        : FctDescr(name, resultWord(), Signature::minimum, Signature::maximum, factory,
                   Slot<Parameters>::typeWord...),
          callable_(std::move(callable)),
          ids_(&ids) {}

    using Result = typename Signature::Result;

    static constexpr int resultWord() {
        if constexpr (std::is_void_v<Result>) {
            return TypeCode::Void;
        } else {
            return TypeOf<std::remove_cvref_t<Result>>::Type::typeCode;
        }
    }

    class VoidCall final : public VoidNode {
    public:
        explicit VoidCall(const Function& function) : function_(function) {}
        void result() override {
            operands.template call<Signature::takesInterpreter>(function_, *function_.callable_,
                                                                [](const auto& call) { call(); });
        }
        Operands<typename Signature::Parameters> operands;

    private:
        const Function& function_;
    };

    template <class Type>
    class ValueCall final : public Type::Node {
    public:
        explicit ValueCall(const Function& function) : function_(function) {}
        typename Type::Argument result() override {
            const bool isCalled = operands.template call<Signature::takesInterpreter>(
                function_, *function_.callable_, [this](const auto& call) { result_.take(call); });
            return isCalled ? result_.get() : Type::null();
        }
        Operands<typename Signature::Parameters> operands;

    private:
        const Function& function_;
        ResultSlot<Type, Result> result_;
    };

    template <class Call>
    static Node* build(Interpreter& interpreter, ParserStack& stack, const Function& function) {
        auto call = std::make_unique<Call>(function);
        if (!call->operands.pop(interpreter, stack, *function.ids_)) return nullptr;
        return call.release();
    }

    static Node* factory(Interpreter& interpreter, ParserStack& stack, const FctDescr& descriptor) {
        const auto& function = static_cast<const Function&>(descriptor);
        if constexpr (std::is_void_v<Result>) {
            return build<VoidCall>(interpreter, stack, function);
        } else {
            using Type = typename TypeOf<std::remove_cvref_t<Result>>::Type;
            return build<ValueCall<Type>>(interpreter, stack, function);
        }
    }

    std::shared_ptr<F> callable_;
    const FieldIds* ids_;
};

/// A function of a host that may stand on the left of "=": a reader, and a writer that takes the
/// reader's arguments and the value.
template <class Reader, class Writer>
class Field final : public FctDescr {
public:
    using Reading = typename SignatureOf<Reader>::Type;
    using Writing = typename SignatureOf<Writer>::Type;
    using Result = typename Reading::Result;
    using Type = typename TypeOf<std::remove_cvref_t<Result>>::Type;

    /// `ids` is not owned and must outlive the descriptor.
    Field(const FND::String& name, std::shared_ptr<Reader> reader, std::shared_ptr<Writer> writer,
          const FieldIds& ids)
        : Field(name, std::move(reader), std::move(writer), ids, typename Reading::Parameters()) {}

    Variable* clone() const override { return new Field(*this); }

private:
    Field(const Field&) = default;

    template <class... Parameters>
    Field(const FND::String& name, std::shared_ptr<Reader> reader, std::shared_ptr<Writer> writer,
          const FieldIds& ids, List<Parameters...> /*parameters*/)
        : FctDescr(name, Type::typeCode | TypeCode::LeftFlag, Reading::minimum, Reading::maximum,
                   factory, Slot<Parameters>::typeWord...),
          reader_(std::move(reader)),
          writer_(std::move(writer)),
          ids_(&ids) {
        // What reads a record runs no script code, unless it is given the interpreter.
        isActive(Reading::takesInterpreter);
    }

    template <class... T>
    static std::tuple_element_t<sizeof...(T) - 1, std::tuple<T...>> lastOf(List<T...>);
    using Written = std::remove_cvref_t<decltype(lastOf(typename Writing::Parameters()))>;

    class Call final : public Type::DataNode {
    public:
        explicit Call(const Field& field) : field_(field) {}
        typename Type::Argument result() override {
            const bool isCalled = operands.template call<Reading::takesInterpreter>(
                field_, *field_.reader_, [this](const auto& call) { result_.take(call); });
            return isCalled ? result_.get() : Type::null();
        }
        bool set(typename Type::Argument value) override {
            bool isStored = true;
            const bool isCalled = operands.template call<Writing::takesInterpreter, Written>(
                field_, *field_.writer_,
                [&](const auto& call) {
                    if constexpr (std::is_void_v<typename Writing::Result>) {
                        call();
                    } else {
                        isStored = call();
                    }
                },
                value);
            return isCalled && isStored;
        }
        Operands<typename Reading::Parameters> operands;

    private:
        const Field& field_;
        ResultSlot<Type, Result> result_;
    };

    static Node* factory(Interpreter& interpreter, ParserStack& stack, const FctDescr& descriptor) {
        const auto& field = static_cast<const Field&>(descriptor);
        auto call = std::make_unique<Call>(field);
        if (!call->operands.pop(interpreter, stack, *field.ids_)) return nullptr;
        return call.release();
    }

    std::shared_ptr<Reader> reader_;
    std::shared_ptr<Writer> writer_;
    const FieldIds* ids_;
};

}  // namespace SCR::Host
