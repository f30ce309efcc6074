#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "scr/Array.h"
#include "scr/Hash.h"
#include "scr/os/FileData.h"
#include "scr/run/MemoryCharge.h"
#include "scr/tree/ElementPath.h"
#include "scr/tree/Operand.h"
#include "scr/value/Elements.h"
#include "scr/value/KeyHash.h"
#include "scr/value/TypeVisitor.h"

namespace SCR {

class Interpreter;

/// The container of an element access: a variable, which it does not own, or any expression that
/// gives a container or null.
template <class ContainerNode>
class ContainerOperand {
public:
    using Container = std::remove_pointer_t<decltype(std::declval<ContainerNode>().result())>;

    explicit ContainerOperand(std::unique_ptr<ContainerNode> node) : node_(std::move(node)) {
        using Access = std::conditional_t<std::is_same_v<Container, Array>, ArrayVariableAccess,
                                          HashVariableAccess>;
        ContainerNode& given = *node_;
        if (&typeid(given) == &typeid(Access)) {
            variable_ = given.result();
        } else {
            path_ = dynamic_cast<ElementPath<Container>*>(node_.get());
        }
    }

    Container* value() const { return variable_ != nullptr ? variable_ : node_->result(); }
    /// The variable; null for an expression.
    Container* variable() const { return variable_; }
    void note(ElementTrail& trail) const {
        if (path_ != nullptr) path_->note(trail);
    }
    Container* follow(ElementTrail& trail) const {
        return path_ != nullptr ? path_->follow(trail) : value();
    }

private:
    std::unique_ptr<ContainerNode> node_;
    Container* variable_ = nullptr;
    ElementPath<Container>* path_ = nullptr;  // the node, when it gives an element
};

/// Makes the elements that do not exist yet. When one cannot be made, logs that, once per
/// execution, and gives null; for an index that is a negative Long it gives null without a message.
class ElementSource {
public:
    /// For the elements of one node, which messages are about.
    ElementSource(Interpreter& interpreter, const Node& user)
        : interpreter_(interpreter), user_(user) {}

    Variable* make(Array& array, unsigned long index);
    /// Makes the element and returns its value.
    template <class V>
    [[gnu::noinline]] auto* makeValue(Array& array, unsigned long index) {
        return makeOnly(array, index) ? ArrayElements::findValue<V>(array, index) : nullptr;
    }
    Variable* make(Hash& hash, const FND::String& key);

private:
    bool makeOnly(Array& array, unsigned long index);
    void report(const FND::String& message);

    Interpreter& interpreter_;
    const Node& user_;
    std::uint64_t reportedRun_ = std::numeric_limits<std::uint64_t>::max();
};

/// Finds the element of an array: the index is evaluated first, then the container. Null for a
/// negative index, without a container, and for an element that cannot be made.
template <class V>
class ArrayElement {
public:
    ArrayElement(const Node& user, Interpreter& interpreter, std::unique_ptr<ArrayNode> container,
                 std::unique_ptr<Node> index)
        : container_(std::move(container)), index_(std::move(index)), source_(interpreter, user) {}

    /// The element as a variable.
    V* find() { return elementAt(locate()); }
    /// The element's value.
    auto* findValue() { return valueAt(locate()); }

    /// Evaluates the index, and the indices and keys of the container, and notes them.
    void note(ElementTrail& trail) {
        trail.add(index_.value());
        container_.note(trail);
    }
    /// As `find` and `findValue`, with the noted indices and keys.
    V* follow(ElementTrail& trail) { return elementAt(locate(trail)); }
    auto* followValue(ElementTrail& trail) { return valueAt(locate(trail)); }

    /// The named container, or null, and the index; for code.
    Array* variable() const { return container_.variable(); }
    const Operand<LongType>& place() const { return index_; }
    /// The value of the element that has this index in the named container.
    auto* valueIn(long index) {
        return valueAt({container_.variable(), static_cast<unsigned long>(index)});
    }

private:
    struct Position {
        Array* array = nullptr;  // null when there is no element
        unsigned long index = 0;
    };

    Position locate() {
        const long index = index_.value();
        if (index < 0) [[unlikely]]
            return {};
        return {container_.value(), static_cast<unsigned long>(index)};
    }
    Position locate(ElementTrail& trail) {
        const long index = trail.nextIndex();
        if (index < 0) return {};
        return {container_.follow(trail), static_cast<unsigned long>(index)};
    }

    V* elementAt(Position position) {
        if (position.array == nullptr) [[unlikely]]
            return nullptr;
        if (V* const element = ArrayElements::find<V>(*position.array, position.index)) [[likely]]
            return element;
        return static_cast<V*>(source_.make(*position.array, position.index));
    }
    [[gnu::always_inline]] auto* valueAt(Position position) {
        using Found = decltype(ArrayElements::findValue<V>(*position.array, position.index));
        if (position.array == nullptr) [[unlikely]]
            return Found(nullptr);
        if (const Found value = ArrayElements::findValue<V>(*position.array, position.index))
            [[likely]]
            return value;
        return Found(source_.template makeValue<V>(*position.array, position.index));
    }

    const ContainerOperand<ArrayNode> container_;
    const Operand<LongType> index_;
    ElementSource source_;
};

/// Finds the element of a hash: the key is evaluated first, then the container. Null without a
/// container and for an element that cannot be made.
template <class V>
class HashElement {
public:
    /// `copiesKey`: evaluating the container may change the text that the key refers to.
    HashElement(const Node& user, Interpreter& interpreter, std::unique_ptr<HashNode> container,
                std::unique_ptr<Node> key, bool copiesKey)
        : container_(std::move(container)),
          key_(std::move(key)),
          source_(interpreter, user),
          copiesKey_(copiesKey) {
        const FND::String* const constant = constantOf<StringType>(key_.node());
        if (constant != nullptr) constantHash_ = keyHash(*constant);
        isConstant_ = constant != nullptr;
    }

    V* find() {
        if (copiesKey_) [[unlikely]]
            return findByCopy();
        const FND::String& key = key_.value();
        return find(container_.value(), key);
    }

    /// The element's value.
    auto* findValue() { return valueOf(find()); }

    /// Evaluates the key, and the indices and keys of the container, and notes them.
    void note(ElementTrail& trail) {
        trail.add(key_.value());
        container_.note(trail);
    }
    /// As `find` and `findValue`, with the noted indices and keys.
    V* follow(ElementTrail& trail) {
        const FND::String& key = trail.nextKey();
        return find(container_.follow(trail), key);
    }
    auto* followValue(ElementTrail& trail) { return valueOf(follow(trail)); }

    /// The named container, or null, and the key; for code.
    Hash* variable() const { return container_.variable(); }
    const Operand<StringType>& place() const { return key_; }
    /// The value of the element that has this key in the named container.
    auto* valueIn(long key) {
        return valueOf(find(container_.variable(), Code::at<const FND::String>(key)));
    }

private:
    static auto* valueOf(V* element) { return element != nullptr ? &element->value() : nullptr; }

    [[gnu::noinline]] V* findByCopy() {
        const HeldCopy<FND::String> key(key_.value());
        return find(container_.value(), key.value());
    }

    V* find(Hash* hash, const FND::String& key) {
        if (hash == nullptr) [[unlikely]]
            return nullptr;
        countString(key.size());
        if (V* const element = HashElements::findAgain<V>(*hash, key)) return element;
        const std::uint32_t code = isConstant_ ? constantHash_ : keyHash(key);
        if (V* const element = HashElements::find<V>(*hash, key, code)) [[likely]] {
            return element;
        }
        return static_cast<V*>(source_.make(*hash, key));
    }

    const ContainerOperand<HashNode> container_;
    const Operand<StringType> key_;
    ElementSource source_;
    std::uint32_t constantHash_ = 0;  // of a constant key
    bool isConstant_ = false;
    const bool copiesKey_;
};

// The accesses. Each is built from the container's prototype, which it does not own, and the
// arguments of its `Element`.

/// What an assignment to an element needs to write it as code.
class LowerableTarget : public Code::Lowerable {
public:
    /// Whether the container is a variable, so that finding an element runs nothing else.
    virtual bool isNamed() const = 0;
    /// Emits the store of a value, as `lowerValue` gives it; the container is named.
    virtual void lowerStore(Code::Builder& code, Code::Ref value) = 0;

protected:
    ~LowerableTarget() = default;
};

/// An element that holds a value of the type `Type`.
template <class Type, class Element>
class ElementAccess : public Type::DataNode,
                      public ElementPath<typename Type::Value>,
                      public LowerableTarget {
public:
    template <class... Arguments>
    explicit ElementAccess(const Variable* /*prototype*/, Arguments&&... arguments)
        : element_(*this, std::forward<Arguments>(arguments)...) {}

    typename Type::Argument result() override {
        if (const auto* const found = element_.findValue()) [[likely]]
            return *found;
        return emptyCM;
    }
    bool set(typename Type::Argument value) override { return setAt(element_.findValue(), value); }
    void note(ElementTrail& trail) override { element_.note(trail); }
    typename Type::Value* follow(ElementTrail& trail) override {
        return element_.followValue(trail);
    }

    bool isNamed() const override { return element_.variable() != nullptr; }
    Code::Ref lowerValue(Code::Builder& code, Code::Ref target) override {
        static constexpr bool byReference = Type::byReference;
        if (!isNamed()) {
            return code.callNode(static_cast<typename Type::Node&>(*this), target);
        }
        Code::Builder::Frame frame(code);
        const Code::Ref place = element_.place().lower(code);
        frame.end();
        if constexpr (isPlainCM || isTextCM) {
            if (!target || isTextCM) target = code.temporary();
            code.emit(Code::Op::LoadElement, target, place, {}, elementPlace());
            return target;
        }
        return code.call(readCM, code.address(this), place, {}, byReference ? Code::Ref() : target);
    }
    void lowerStore(Code::Builder& code, Code::Ref value) override {
        const Code::Builder::Frame frame(code);
        const Code::Ref place = element_.place().lower(code);
        if constexpr (isPlainCM) {
            code.emit(Code::Op::StoreElement, {}, place, value, elementPlace());
        } else {
            code.call(writeCM, code.address(this), place, value);
        }
    }

private:
    using Value = typename Type::Value;
    static constexpr bool isPlainCM =
        ArrayElements::mayBePlainCM<typename Type::Variable> &&
        std::is_same_v<Element, ArrayElement<typename Type::Variable>>;

    static constexpr bool isTextCM = std::is_same_v<Value, FND::String> &&
                                     std::is_same_v<Element, ArrayElement<typename Type::Variable>>;

    // Code refers to it.
    const Code::ElementPlace* elementPlace() {
        if (!place_) {
            place_ = std::make_unique<Code::ElementPlace>();
            *place_ = {&ArrayElements::block(*element_.variable()),
                       {},
                       std::is_same_v<Value, bool>,
                       this,
                       &readCM,
                       &writeCM};
            if constexpr (isTextCM) {
                place_->slots = ArrayElements::slots<typename Type::Variable>(*element_.variable());
            }
        }
        return place_.get();
    }

    static bool setAt(Value* found, typename Type::Argument value) {
        if (found == nullptr) [[unlikely]]
            return false;
        store(*found, value);
        return true;
    }
    static long readAt(RunControl& /*control*/, long access, long place, long /*c*/) {
        auto* const found = Code::at<ElementAccess>(access).element_.valueIn(place);
        if constexpr (Type::byReference) {
            return reinterpret_cast<long>(found != nullptr ? found : &emptyCM);
        } else {
            return found != nullptr ? static_cast<long>(*found) : 0;
        }
    }
    static long writeAt(RunControl& /*control*/, long access, long place, long value) {
        auto* const found = Code::at<ElementAccess>(access).element_.valueIn(place);
        if constexpr (Type::byReference) {
            setAt(found, Code::at<const Value>(value));
        } else {
            setAt(found, static_cast<Value>(value));
        }
        return 0;
    }

    // An element for which there is no room is logged, and a log may call the script.
    static constexpr Code::Helper readCM{Code::guarded<readAt>};
    static constexpr Code::Helper writeCM{Code::guarded<writeAt>};
    inline static const Value emptyCM{};

    Element element_;
    std::unique_ptr<Code::ElementPlace> place_;  // once there is code
};

/// A handle; all elements of a container share the name of the abstract data type.
template <class Element>
class AdtElementAccess final : public ElementAccess<AdtType, Element> {
public:
    template <class... Arguments>
    explicit AdtElementAccess(const Variable* prototype, Arguments&&... arguments)
        : ElementAccess<AdtType, Element>(prototype, std::forward<Arguments>(arguments)...),
          prototype_(static_cast<const AdtVariable*>(prototype)) {}

    const FND::String& subType() const override { return prototype_->subType(); }

private:
    const AdtVariable* const prototype_;  // the container's
};

/// An element that is itself a container; null when there is none.
template <class Base, class Container, class Element>
class ContainerElementAccess final : public Base, public ElementPath<Container> {
public:
    template <class... Arguments>
    explicit ContainerElementAccess(const Variable* prototype, Arguments&&... arguments)
        : element_(*this, std::forward<Arguments>(arguments)...),
          prototype_(static_cast<const Container*>(prototype)) {}

    Container* result() override { return element_.find(); }
    void note(ElementTrail& trail) override { element_.note(trail); }
    Container* follow(ElementTrail& trail) override { return element_.follow(trail); }
    int containerType() const override { return prototype_->containerType(); }
    Variable* defaultValue() const override { return prototype_->defaultValue(); }

private:
    Element element_;
    const Container* const prototype_;  // the outer container's
};

/// An element that is a file; no file when there is no element.
template <class Element>
class FileElementAccess final : public FileData {
public:
    template <class... Arguments>
    explicit FileElementAccess(const Variable* /*prototype*/, Arguments&&... arguments)
        : element_(*this, std::forward<Arguments>(arguments)...) {}

    std::int32_t execute() override {
        find();
        return goOn;
    }
    void note(ElementTrail& trail) override { element_.note(trail); }
    void follow(ElementTrail& trail) override {
        trail.rewind();
        variable_ = element_.follow(trail);
    }

private:
    void findElement() override { variable_ = element_.find(); }

    Element element_;
};

/// The class of the accesses to elements of the type `Type` that `Element` finds.
template <class Type, class Element>
struct AccessTo {
    using Class = ElementAccess<Type, Element>;
};
template <class Element>
struct AccessTo<AdtType, Element> {
    using Class = AdtElementAccess<Element>;
};
template <class Element>
struct AccessTo<FileType, Element> {
    using Class = FileElementAccess<Element>;
};
template <class Element>
struct AccessTo<ArrayType, Element> {
    using Class = ContainerElementAccess<ArrayNode, Array, Element>;
};
template <class Element>
struct AccessTo<HashType, Element> {
    using Class = ContainerElementAccess<HashNode, Hash, Element>;
};

/// The same for elements of an array or of a hash.
template <class Type>
using ArrayAccess = typename AccessTo<Type, ArrayElement<typename Type::Variable>>::Class;
template <class Type>
using HashAccess = typename AccessTo<Type, HashElement<typename Type::Variable>>::Class;

}  // namespace SCR
