#include "scr/HostFunction.h"

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "scr/Interpreter.h"
#include "scr/advice/Advice.h"
#include "scr/call/Binding.h"
#include "scr/call/HostDescriptor.h"
#include "scr/call/OperandSlot.h"
#include "scr/call/ShownValue.h"
#include "scr/message/Messages.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParserStack.h"
#include "scr/run/MemoryCharge.h"
#include "scr/run/NodeMemory.h"
#include "scr/run/RunControl.h"
#include "scr/tree/ElementPath.h"
#include "scr/value/ChargedText.h"
#include "scr/value/ElementClass.h"
#include "scr/value/ObjectTable.h"
#include "scr/value/TypeVisitor.h"

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
        hasFailed_ = true;
        try {
            throwIt();
        } catch (...) {
            failure_ = std::current_exception();
        }
        return false;
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

namespace {

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

// Call this after `function` has returned. False when it reported a failure and gives the null
// value then. Stops the script when the script has to stop.
bool hasReturned(Interpreter& interpreter, RunControl& control, const FctDescr& function) {
    if (control.isStopPending()) [[unlikely]]
        control.ask(nullptr);
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

inline OpenCall::~OpenCall() {
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
        fail([] { throw; });
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
        fail([] { throw; });
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
            fail([] { throw; });
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
