#include "scr/HostFunction.h"

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "scr/Interpreter.h"
#include "scr/call/HostDescriptor.h"
#include "scr/message/Messages.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParserStack.h"
#include "scr/run/Memory.h"
#include "scr/run/RunControl.h"
#include "scr/tree/ElementPlace.h"
#include "scr/value/ChargedText.h"

namespace SCR::Host {

/// What a call keeps for one operand: a copy of its value, and the path to the element that it is.
struct Kept {
    std::variant<std::monostate, long, bool, ChargedText, FND::Decimal, FND::DateTime,
                 FND::Identifier>
        value;
    PlaceTrail trail;

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

/// A variable that the callable reads and writes.
class Output {
public:
    Output() = default;
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    virtual ~Output() = default;

    /// The variable's value, copied to `kept`.
    virtual void* read(Kept& kept) = 0;
    /// Stores what is in `kept`.
    virtual void store(Kept& kept) = 0;
};

namespace {

template <class Type>
class OutputOf final : public Output {
public:
    using Value = typename Type::Value;

    explicit OutputOf(Node* node)
        : node_(static_cast<typename Type::DataNode*>(node)),
          place_(dynamic_cast<ElementPlace<Value>*>(node)) {}

    void* read(Kept& kept) override {
        if (place_ == nullptr) {
            const Value& value = node_->result();
            return &kept.hold(value);
        }
        kept.trail.clear();
        place_->note(kept.trail);
        const Value* const element = follow(kept);
        return &kept.hold(element != nullptr ? *element : emptyCM);
    }
    void store(Kept& kept) override {
        const Value& value = kept.as<Value>();
        if (place_ == nullptr) {
            node_->set(value);
        } else if (Value* const element = follow(kept)) {
            SCR::store(*element, value);
        }
    }

private:
    // Found anew each time, as the code that ran in between may have removed it.
    Value* follow(Kept& kept) {
        kept.trail.rewind();
        return place_->follow(kept.trail);
    }

    inline static const Value emptyCM{};

    typename Type::DataNode* const node_;  // the operand's
    ElementPlace<Value>* const place_;     // the node, when it gives an element
};

class HostDescriptor final : public FctDescr {
public:
    HostDescriptor(const FND::String& name, Description description, const FieldIds& ids);

    Variable* clone() const override { return new HostDescriptor(*this); }

    const Description& description() const { return description_; }
    const FieldIds& fieldIds() const { return *ids_; }

private:
    HostDescriptor(const HostDescriptor&) = default;

    static Node* factory(Interpreter& interpreter, ParserStack& stack, const FctDescr& descriptor);

    const Description description_;
    const FieldIds* const ids_;
};

// When `function` fails: logs why if it gives the null value then, otherwise stops the script.
void handleFailure(Interpreter& interpreter, const FctDescr& function, const FND::String& reason) {
    const FND::String message = function.name() + ": " + reason;
    if (!function.nullOnFailure()) interpreter.runControl().stop(nullptr, message);
    interpreter.logError(message);
}

// Call this while handling an exception of `function`: stops the script, or logs the exception when
// the function gives the null value on failure.
void handleException(Interpreter& interpreter, const FctDescr& function) {
    FND::String reason = "unknown exception";
    try {
        throw;
    } catch (const ScriptStopped&) {
        throw;
    } catch (const std::exception& error) {
        reason = error.what();
    } catch (...) {
    }
    handleFailure(interpreter, function, reason);
}

// Call this after `function` has returned. False when it reported a failure and gives the null
// value then. Stops the script when the script has to stop.
bool hasReturned(Interpreter& interpreter, const FctDescr& function) {
    RunControl& control = interpreter.runControl();
    const bool hasFailed = control.hasFailed();
    if (hasFailed) [[unlikely]]
        handleFailure(interpreter, function, control.takeFailure());
    control.ask(nullptr);
    return !hasFailed;
}

[[noreturn]] void throwOutOfRange(const FND::String& number) {
    throw std::out_of_range("value out of range '" + number + "'");
}

// The number of the field `name`; false, after a report, for an unknown field.
bool resolveField(const FieldIds& ids, const FND::String& name, long& id) {
    if (!ids) return true;
    id = ids(name);
    return id >= 0 || SCR_YaccError(Messages::unknownField(name));
}

}  // namespace

/// What the nodes of all calls share, whatever they give.
class CallBody {
public:
    CallBody(Interpreter& interpreter, const FctDescr& function)
        : interpreter_(interpreter),
          function_(static_cast<const HostDescriptor&>(function)),
          read_(function_.description().read),
          callable_(function_.description().callable.get()),
          operands_(static_cast<std::size_t>(function.maximum())) {}

    /// Takes the operands from the stack, the last one first; false after a report.
    bool pop(ParserStack& stack) {
        bool isPopped = true;
        bool keeps = false;
        for (auto index = static_cast<std::size_t>(stack.topNumParams()); index-- > 0;) {
            const bool isActive = stack.traits().isActive;
            operands_[index].keeps = std::exchange(keeps, keeps || isActive);
            operands_[index].node.reset(stack.popData());
            isPopped = isPopped && prepare(operands_[index], argType(index));
        }
        writes_ = std::any_of(operands_.begin(), operands_.end(),
                              [](const Operand& operand) { return operand.output != nullptr; });
        return isPopped;
    }

    /// Calls the callable and tells where its result is: in `room` or elsewhere. Null when it
    /// failed and the script goes on.
    const void* read(void* room) {
        return run([&](Call& call) { return read_(callable_, call, room); });
    }
    /// Calls the writer with `value`; whether it stored that.
    bool write(const void* value) {
        const Description& description = function_.description();
        const void* const given = run([&](Call& call) -> const void* {
            return description.write(description.writer.get(), call, value) ? this : nullptr;
        });
        return given != nullptr;
    }

private:
    friend class Call;

    int argType(std::size_t index) const { return function_.argType(static_cast<int>(index)); }

    bool prepare(Operand& operand, int type) const {
        if (type == TypeCode::EdrAlias) {
            operand.fieldName = &static_cast<StringNode&>(*operand.node).result();
            return resolveField(function_.fieldIds(), *operand.fieldName, operand.fieldId);
        }
        if (!Node::isLeft(type)) return true;
        operand.output = withType(type, [&]<class Type>(Type) -> std::unique_ptr<Output> {
            return std::make_unique<OutputOf<Type>>(operand.node.get());
        });
        return true;
    }

    template <class Action>
    const void* run(const Action& action) {
        Call call(*this);
        const void* given = nullptr;
        try {
            given = action(call);
            if (call.hasFailed_) [[unlikely]]
                std::rethrow_exception(std::exchange(failure_, nullptr));
        } catch (...) {
            if (!call.isCalling_) throw;  // by an operand
            handleException(interpreter_, function_);
            return nullptr;
        }
        if (!hasReturned(interpreter_, function_)) return nullptr;
        if (writes_ && given != nullptr) [[unlikely]]
            storeOutputs(call);
        return given;
    }

    [[gnu::noinline]] void storeOutputs(Call& call) {
        for (std::size_t i = 0; i < operands_.size(); ++i) {
            if (operands_[i].output) operands_[i].output->store(call.kept(i));
        }
    }

    // Room for what one call keeps, reused by the next one. When the callable runs the script
    // again, a call within the call has its own room.
    std::unique_ptr<Kept[]> takeRoom() {
        return room_ ? std::move(room_) : std::make_unique<Kept[]>(operands_.size());
    }
    void giveBack(std::unique_ptr<Kept[]> room) noexcept {
        for (std::size_t i = 0; i < operands_.size(); ++i) room[i].shrink();
        room_ = std::move(room);
    }

    Interpreter& interpreter_;  // outlives the node
    const HostDescriptor& function_;
    const Read read_;
    void* const callable_;
    std::vector<Operand, NodeAllocator<Operand>> operands_;  // as many as a call can give
    bool writes_ = false;
    std::unique_ptr<Kept[]> room_;
    std::exception_ptr failure_;  // why the current call failed, until it ends
};

inline Call::Call(CallBody& body)
    : interpreter_(body.interpreter_), operands_(body.operands_.data()), body_(body) {}

inline Kept& Call::kept(std::size_t index) {
    if (!kept_) kept_ = body_.takeRoom();
    return kept_[index];
}

inline Call::~Call() {
    if (kept_) [[unlikely]]
        body_.giveBack(std::move(kept_));
}

namespace {

class VoidCall final : public VoidNode {
public:
    VoidCall(Interpreter& interpreter, const FctDescr& function) : body(interpreter, function) {}
    void result() override { body.read(nullptr); }

    CallBody body;
};

template <class Type, class Base>
class ValueCall : public Base {
public:
    ValueCall(Interpreter& interpreter, const FctDescr& function) : body(interpreter, function) {}
    typename Type::Argument result() override {
        const void* const given = body.read(&room_);
        return given != nullptr ? *static_cast<const typename Type::Value*>(given) : Type::null();
    }

    CallBody body;

private:
    typename Type::Value room_{};
};

template <class Type>
class FieldCall final : public ValueCall<Type, typename Type::DataNode> {
public:
    using ValueCall<Type, typename Type::DataNode>::ValueCall;
    bool set(typename Type::Argument value) override { return this->body.write(&value); }
};

template <class Call>
Node* makeCall(Interpreter& interpreter, ParserStack& stack, const FctDescr& function) {
    auto call = std::make_unique<Call>(interpreter, function);
    return call->body.pop(stack) ? call.release() : nullptr;
}

Node* HostDescriptor::factory(Interpreter& interpreter, ParserStack& stack,
                              const FctDescr& descriptor) {
    if (descriptor.returnType() == TypeCode::Void) {
        return makeCall<VoidCall>(interpreter, stack, descriptor);
    }
    return withType(descriptor.returnType(), [&]<class Type>(Type) {
        return Node::isLeft(descriptor.returnType())
                   ? makeCall<FieldCall<Type>>(interpreter, stack, descriptor)
                   : makeCall<ValueCall<Type, typename Type::Node>>(interpreter, stack, descriptor);
    });
}

HostDescriptor::HostDescriptor(const FND::String& name, Description description,
                               const FieldIds& ids)
    : FctDescr(name, description.result, description.minimum, description.maximum, factory,
               description.arguments[0], description.arguments[1], description.arguments[2],
               description.arguments[3], description.arguments[4], description.arguments[5],
               description.arguments[6], description.arguments[7], description.arguments[8]),
      description_(std::move(description)),
      ids_(&ids) {
    // Functions that read a record run no script code, unless they are given the interpreter.
    if (description_.write != nullptr) isActive(description_.takesInterpreter);
}

}  // namespace

std::unique_ptr<FctDescr> makeDescriptor(const FND::String& name, Description description,
                                         const FieldIds& ids) {
    return std::make_unique<HostDescriptor>(name, std::move(description), ids);
}

template <class Throw>
bool Call::fail(const Throw& throwIt) noexcept {
    hasFailed_ = true;
    try {
        throwIt();
    } catch (...) {
        body_.failure_ = std::current_exception();
    }
    return false;
}

const FND::String& Call::keep(std::size_t index, const FND::String& value) {
    return kept(index).hold(value);
}
const FND::Decimal& Call::keep(std::size_t index, const FND::Decimal& value) {
    return kept(index).hold(value);
}
const FND::DateTime& Call::keep(std::size_t index, const FND::DateTime& value) {
    return kept(index).hold(value);
}
const FND::Identifier& Call::keep(std::size_t index, const FND::Identifier& value) {
    return kept(index).hold(value);
}

void* Call::variable(std::size_t index) { return operands_[index].output->read(kept(index)); }

const void* Call::evaluate(std::size_t index) noexcept {
    return withType(body_.argType(index), [&]<class Type>(Type) -> const void* {
        static const typename Type::Value null = Type::null();
        if (hasFailed_) return &null;
        try {
            if (operands_[index].output) return variable(index);
            auto& node = static_cast<typename Type::Node&>(*operands_[index].node);
            if constexpr (Type::byReference) {
                const auto& value = node.result();
                return operands_[index].keeps ? &keep(index, value) : &value;
            } else {
                return &kept(index).hold(node.result());
            }
        } catch (...) {
            fail([] { throw; });
        }
        return &null;
    });
}

bool Call::refuse(long number) noexcept {
    return fail([&] { throwOutOfRange(std::to_string(number)); });
}
bool Call::refuse(unsigned long number) noexcept {
    return fail([&] { throwOutOfRange(std::to_string(number)); });
}

}  // namespace SCR::Host
