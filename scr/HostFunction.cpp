#include "scr/HostFunction.h"

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

#include "scr/Interpreter.h"
#include "scr/advice/Advice.h"
#include "scr/call/Binding.h"
#include "scr/call/HostDescriptor.h"
#include "scr/call/HostOperands.h"
#include "scr/message/Messages.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParserStack.h"
#include "scr/run/MemoryCharge.h"
#include "scr/run/RunControl.h"
#include "scr/value/ElementClass.h"
#include "scr/value/ObjectTable.h"
#include "scr/value/TypeVisitor.h"

namespace SCR::Host {

namespace {

class HostDescriptor final : public FctDescr {
public:
    HostDescriptor(const FND::String& name, Description description, const Fields& fields,
                   const ObjectTypes& types);

    Variable* clone() const override { return new HostDescriptor(*this); }

    const Description& description() const { return description_; }
    const Fields& fields() const { return *fields_; }
    /// The descriptor that the host has.
    const FctDescr& whole() const { return *whole_; }
    bool changesContainers() const { return changesContainers_; }

private:
    HostDescriptor(const HostDescriptor&) = default;

    static Node* factory(Interpreter& interpreter, ParserStack& stack, const FctDescr& descriptor);
    const FctDescr* variantFor(const ParserStack& stack, int count) const override;

    // Of a function over several types of elements; what the host sets holds for all of them.
    std::vector<std::shared_ptr<HostDescriptor>> variants_;
    const FctDescr* whole_ = this;
    const Description description_;
    const Fields* const fields_;
    bool changesContainers_ = false;
};

// When `function` fails: logs why if it gives the null value then, otherwise stops the script.
void handleFailure(Interpreter& interpreter, const FctDescr& function, const FND::String& reason) {
    const FND::String message = function.name() + ": " + reason;
    if (!function.nullOnFailure())
        interpreter.runControl().stopForFailure(function.name(), message);
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

[[gnu::cold, gnu::noinline]] bool hasReturnedInTrouble(Interpreter& interpreter,
                                                       RunControl& control,
                                                       const FctDescr& function) {
    if (control.isStopPending()) control.ask(nullptr);
    const bool hasFailed = control.hasFailed();
    if (hasFailed) handleFailure(interpreter, function, control.takeFailure());
    control.ask(nullptr);
    return !hasFailed;
}

// Call this after `function` has returned. False when it reported a failure and gives the null
// value then. Stops the script when the script has to stop.
inline bool hasReturned(Interpreter& interpreter, RunControl& control, const FctDescr& function) {
    const bool isSound = !control.isStopPending() && !control.hasFailed();
    if (!isSound) [[unlikely]]
        return hasReturnedInTrouble(interpreter, control, function);
    control.ask(nullptr);
    return true;
}

[[noreturn]] void throwOutOfRange(const FND::String& number) {
    throw std::out_of_range("value out of range '" + number + "'");
}

// The number of the field `name`; false, after a report, for an unknown field.
bool resolveField(const Fields& fields, const FND::String& name, long& id) {
    if (!fields.ids) return true;
    id = fields.ids(name);
    if (id >= 0) return true;
    const FND::String nearest = fields.names ? nearestName(name, fields.names()) : FND::String();
    return SCR_YaccError(Messages::unknownField(name, nearest));
}

}  // namespace

/// What the nodes of all calls share, whatever they give.
class CallBody {
public:
    CallBody(const Node* node, Interpreter& interpreter, const FctDescr& function)
        : node_(node),
          interpreter_(interpreter),
          control_(interpreter.runControl()),
          function_(static_cast<const HostDescriptor&>(function)),
          read_(function_.description().read),
          callable_(function_.description().callable.get()),
          operands_(static_cast<std::size_t>(function_.description().maximum)) {}

    /// Takes the operands from the stack, the last one first; false after a report.
    bool pop(ParserStack& stack) {
        bool isPopped = true;
        bool keeps = false;
        const bool isChanged = function_.changesContainers();
        const std::size_t declared = operands_.size();
        const auto given = static_cast<std::size_t>(stack.topNumParams());
        operands_.resize(std::max(declared, given));
        for (std::size_t index = given; index-- > 0;) {
            const bool mayRunScript = stack.traits().mayRunScript();
            const int type = function_.argType(static_cast<int>(index));
            std::unique_ptr<Node> node(stack.popData());
            // The callable sees those beyond the declared ones where they are kept.
            const bool isKept = keeps || index >= declared;
            if (isPopped) operands_[index] = makeOperand(std::move(node), type, isKept, isChanged);
            isPopped = operands_[index] != nullptr;
            keeps = keeps || mayRunScript;
            writes_ = writes_ || Node::isLeft(type);
        }
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
    friend class OpenCall;

    // Null after a report.
    std::unique_ptr<Operand> makeOperand(std::unique_ptr<Node> node, int type, bool keeps,
                                         bool isChanged) const {
        if (type == TypeCode::EdrAlias) {
            long id = 0;
            if (!resolveField(function_.fields(), FieldOperand::nameIn(*node), id)) return nullptr;
            return std::make_unique<FieldOperand>(std::move(node), id);
        }
        if (type == TypeCode::Array)
            return std::make_unique<ContainerOperand<Array, ArrayNode>>(std::move(node), keeps);
        if (type == TypeCode::Hash)
            return std::make_unique<ContainerOperand<Hash, HashNode>>(std::move(node), keeps);
        if (type == TypeCode::Adt) {
            return std::make_unique<ValueOperand<AdtType>>(asHandle(std::move(node)), false, false);
        }
        return withType(HostTypes(), type, [&]<class Type>(Type) -> std::unique_ptr<Operand> {
            if (Node::isLeft(type)) return std::make_unique<OutOperand<Type>>(std::move(node));
            const bool isKept = keeps && (Type::byReference || function_.restType() != 0);
            return std::make_unique<ValueOperand<Type>>(std::move(node), isKept, isChanged);
        });
    }

    template <class Action>
    const void* run(const Action& action) {
        OpenCall call(*this);
        const void* given = nullptr;
        try {
            given = action(call);
            if (call.hasFailed()) [[unlikely]]
                call.throwFailure();
        } catch (...) {
            if (!call.isCalling()) throw;  // by an operand
            handleException(interpreter_, function_.whole());
            return nullptr;
        }
        if (!hasReturned(interpreter_, control_, function_.whole())) return nullptr;
        if (writes_ && given != nullptr) [[unlikely]]
            storeOutputs(call);
        return given;
    }

    [[gnu::noinline]] void storeOutputs(OpenCall& call) {
        for (std::size_t i = 0; i < operands_.size(); ++i) {
            if (operands_[i]) operands_[i]->store(call.kept(i));
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

    const Node* const node_;    // that it belongs to
    Interpreter& interpreter_;  // outlives the node, as its control does
    RunControl& control_;
    const HostDescriptor& function_;
    const Read read_;
    void* const callable_;
    // As many as a call can give; null for those that this one does not.
    std::vector<std::unique_ptr<Operand>, NodeAllocator<std::unique_ptr<Operand>>> operands_;
    bool writes_ = false;
    std::unique_ptr<Kept[]> room_;
};

inline OpenCall::OpenCall(CallBody& body)
    : Call(body.interpreter_), HostSite(body.control_), body_(body) {}

[[gnu::always_inline]] inline OpenCall::~OpenCall() {
    if (kept_) [[unlikely]]
        body_.giveBack(std::move(kept_));
}

const Node* OpenCall::node() const { return isCalling_ || hasFailed_ ? body_.node_ : nullptr; }

void OpenCall::describe(Diagnostic& diagnostic) {
    for (std::size_t i = 0; i < body_.operands_.size(); ++i) {
        if (!body_.operands_[i]) continue;
        const FND::String shown = body_.operands_[i]->shown(*this, i);
        if (!shown.empty()) diagnostic.notes.push_back(Messages::argumentNote(i, shown));
    }
}

inline bool OpenCall::isGiven(std::size_t index) const {
    return index < body_.operands_.size() && body_.operands_[index] != nullptr;
}

inline void* const* OpenCall::evaluateRest(std::size_t first, std::size_t& count) noexcept {
    count = 0;
    try {
        rest_.reserve(body_.operands_.size());
        for (std::size_t i = first; isGiven(i); ++i) rest_.push_back(evaluate(i));
    } catch (...) {
        keepException();
        return nullptr;
    }
    count = rest_.size();
    return rest_.data();
}

inline void* OpenCall::evaluate(std::size_t index) noexcept {
    Operand& operand = *body_.operands_[index];
    if (hasFailed_) [[unlikely]]
        return operand.null();
    try {
        return operand.evaluate(*this, index);
    } catch (...) {
        keepException();
    }
    return operand.null();
}

Kept& OpenCall::kept(std::size_t index) {
    if (!kept_) kept_ = body_.takeRoom();
    return kept_[index];
}

inline void OpenCall::locate() noexcept {
    for (std::size_t i = 0; i < body_.operands_.size() && !hasFailed_; ++i) {
        try {
            if (body_.operands_[i]) body_.operands_[i]->locate(kept(i));
        } catch (...) {
            keepException();
        }
    }
}

namespace {

class VoidCall final : public VoidNode {
public:
    VoidCall(Interpreter& interpreter, const FctDescr& function)
        : body(this, interpreter, function) {}
    void result() override { body.read(nullptr); }

    CallBody body;
};

template <class Type, class Base>
class ValueCall : public Base {
public:
    ValueCall(Interpreter& interpreter, const FctDescr& function)
        : body(this, interpreter, function) {}
    typename Type::Argument result() override {
        const void* const given = body.read(&room_);
        if constexpr (std::is_same_v<typename Type::Value, FND::String>) {
            if (room_.capacity() != charged_) [[unlikely]]
                charge();
        }
        return given != nullptr ? *static_cast<const typename Type::Value*>(given) : Type::null();
    }

    CallBody body;

private:
    // The text that the callable made stays here until the next call.
    [[gnu::noinline]] void charge() {
        const std::size_t before = charged_ > FND::String().capacity() ? charged_ : 0;
        giveBuffer(before);
        charged_ = FND::String().capacity();
        if (room_.capacity() <= charged_) return;
        try {
            chargeBuffer(room_.capacity());
        } catch (...) {
            FND::String().swap(room_);
            throw;
        }
        charged_ = room_.capacity();
    }

    typename Type::Value room_{};
    std::size_t charged_ = FND::String().capacity();
};

template <class Type>
class FieldCall final : public ValueCall<Type, typename Type::DataNode> {
public:
    using ValueCall<Type, typename Type::DataNode>::ValueCall;
    bool set(typename Type::Argument value) override { return this->body.write(&value); }
};

class ObjectCall final : public ValueCall<AdtType, AdtNode> {
public:
    ObjectCall(Interpreter& interpreter, const FctDescr& function)
        : ValueCall(interpreter, function), type_(function.objectType(-1)) {}
    const FND::String& subType() const override { return type_; }

private:
    const FND::String type_;
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
    if (descriptor.returnType() == TypeCode::Adt) {
        return makeCall<ObjectCall>(interpreter, stack, descriptor);
    }
    return withType(HostTypes(), descriptor.returnType(), [&]<class Type>(Type) {
        return Node::isLeft(descriptor.returnType())
                   ? makeCall<FieldCall<Type>>(interpreter, stack, descriptor)
                   : makeCall<ValueCall<Type, typename Type::Node>>(interpreter, stack, descriptor);
    });
}

HostDescriptor::HostDescriptor(const FND::String& name, Description description,
                               const Fields& fields, const ObjectTypes& types)
    : FctDescr(name, description.result, description.minimum, description.maximum, factory,
               description.arguments[0], description.arguments[1], description.arguments[2],
               description.arguments[3], description.arguments[4], description.arguments[5],
               description.arguments[6], description.arguments[7], description.arguments[8]),
      description_(std::move(description)),
      fields_(&fields) {
    if (description_.rest != 0) addRest(description_.rest);
    for (int i = -1; i < description_.maximum; ++i) {
        const void* const kind = description_.kinds[static_cast<std::size_t>(i) + 1];
        if (kind != nullptr) objectType(i, types.at(kind));
    }
    // A field runs no script code, unless its functions are given the interpreter.
    if (description_.write != nullptr) mayRunScript(description_.takesInterpreter);
    for (int i = 0; i < description_.maximum; ++i) {
        const auto at = static_cast<std::size_t>(i);
        changesContainers_ = changesContainers_ || description_.isChanged[at];
        writesArguments(description_.isChanged[at] || Node::isLeft(description_.arguments[at]));
        if (description_.elements[at] == 0) continue;
        container(i, description_.elements[at],
                  description_.isChanged[at] ? Use::Changes : Use::Reads);
    }
    for (const Description& variant : description_.variants) {
        variants_.push_back(std::make_shared<HostDescriptor>(name, variant, fields, types));
        variants_.back()->whole_ = this;
    }
}

const FctDescr* HostDescriptor::variantFor(const ParserStack& stack, int count) const {
    if (variants_.empty()) return this;
    std::vector<int> known;
    for (int i = 0; i < count; ++i) {
        if (elementType(i) == 0) continue;
        const auto fromTop = static_cast<std::size_t>(count - 1 - i);
        const Node* const node = stack.data(fromTop);
        // What is no container is refused as an argument of the first variant.
        if (!hasClassOfType(*node, argType(i))) break;
        const int type = Node::baseType(prototypeOf(*node).dataType());
        for (const auto& variant : variants_) {
            if (variant->elementType(i) == type) return variant.get();
            known.push_back(variant->elementType(i));
        }
        SCR_YaccError(Messages::wrongElements(argType(i), known, type, i + 1, signature()));
        return nullptr;
    }
    return variants_.front().get();
}

}  // namespace

std::unique_ptr<FctDescr> makeDescriptor(const FND::String& name, Description description,
                                         const Fields& fields, const ObjectTypes& types) {
    return std::make_unique<HostDescriptor>(name, std::move(description), fields, types);
}

void Call::locate() noexcept { static_cast<OpenCall&>(*this).locate(); }

bool Call::isGiven(std::size_t index) const {
    return static_cast<const OpenCall&>(*this).isGiven(index);
}

void* const* Call::evaluateRest(std::size_t first, std::size_t& count) noexcept {
    return static_cast<OpenCall&>(*this).evaluateRest(first, count);
}

void* Call::evaluate(std::size_t index) noexcept {
    return static_cast<OpenCall&>(*this).evaluate(index);
}

bool Call::refuseHandle(std::size_t index, long handle) noexcept {
    return static_cast<OpenCall&>(*this).fail([&] {
        throw std::invalid_argument(
            "argument " + std::to_string(index + 1) +
            (handle == 0 ? " is the null handle" : " is an object that is gone"));
    });
}
bool Call::refuseObject() noexcept {
    return static_cast<OpenCall&>(*this).fail([] { throw std::bad_alloc(); });
}

const Place* objectOf(Interpreter& interpreter, const void* kind, long handle) noexcept {
    return interpreter.objects().find(kind, handle);
}

bool isOfKind(Interpreter& interpreter, const void* kind, const FND::String& type) noexcept {
    const FND::String* const name = interpreter.objects().nameOf(kind);
    return name != nullptr && *name == type;
}

bool handleOf(Interpreter& interpreter, const void* kind, const Place& place,
              long& handle) noexcept {
    try {
        handle = interpreter.objects().give(kind, place);
        if (place.share) interpreter.runControl().giveObject();
        return true;
    } catch (const ScriptStopped&) {
        interpreter.runControl().stopLater();
    } catch (...) {
        interpreter.fail("out of memory");
    }
    return false;
}

bool Call::refuse(long number) noexcept {
    return static_cast<OpenCall&>(*this).fail([&] { throwOutOfRange(std::to_string(number)); });
}
bool Call::refuse(unsigned long number) noexcept {
    return static_cast<OpenCall&>(*this).fail([&] { throwOutOfRange(std::to_string(number)); });
}

}  // namespace SCR::Host
