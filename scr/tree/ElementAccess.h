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

// The ways in which an element access holds its container.

/// A container variable, which it does not own.
template <class Container>
class NamedContainer {
public:
    /// Whether it always exists and finding it has no effect.
    static constexpr bool isKnown = true;

    explicit NamedContainer(Container* container) : container_(container) {}
    Container* value() const { return container_; }
    void note(ElementTrail& /*trail*/) const {}
    Container* follow(ElementTrail& /*trail*/) const { return container_; }
    bool operator==(const NamedContainer&) const = default;

private:
    Container* container_;
};

/// Any expression that gives a container or null.
template <class ContainerNode>
class AnyContainer {
public:
    using Container = std::remove_pointer_t<decltype(std::declval<ContainerNode>().result())>;
    static constexpr bool isKnown = false;

    explicit AnyContainer(std::unique_ptr<ContainerNode> node)
        : node_(std::move(node)), path_(dynamic_cast<ElementPath<Container>*>(node_.get())) {}
    Container* value() const { return node_->result(); }
    void note(ElementTrail& trail) const {
        if (path_ != nullptr) path_->note(trail);
    }
    Container* follow(ElementTrail& trail) const {
        if (path_ == nullptr) return node_->result();
        return path_->follow(trail);
    }

private:
    std::unique_ptr<ContainerNode> node_;
    ElementPath<Container>* path_;  // the node, when it gives an element
};

/// Makes the elements that do not exist yet. When one cannot be made, logs that, once per
/// execution, and gives null; for an index that is a negative Long it gives null without a message.
class ElementSource {
public:
    explicit ElementSource(Interpreter& interpreter) : interpreter_(interpreter) {}

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
    std::uint64_t reportedRun_ = std::numeric_limits<std::uint64_t>::max();
};

/// Finds the element of an array: the index is evaluated first, then the container. Null for a
/// negative index, without a container, and for an element that cannot be made.
template <class V, class Container, class Index>
class ArrayElement {
public:
    ArrayElement(Interpreter& interpreter, Container container, Index index)
        : container_(std::move(container)), index_(std::move(index)), source_(interpreter) {}

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

    /// Whether `other` finds the same element. Only for named containers with a variable as index.
    bool isSame(const ArrayElement& other) const {
        return container_ == other.container_ && index_.storage() == other.index_.storage();
    }

private:
    // For a known container a negative index is an element that cannot be made.
    static constexpr bool looksFirst = !Container::isKnown;

    struct Position {
        Array* array = nullptr;  // null when there is no element
        unsigned long index = 0;
    };

    Position locate() {
        const long index = index_.value();
        if (looksFirst && index < 0) [[unlikely]]
            return {};
        return {container_.value(), static_cast<unsigned long>(index)};
    }
    Position locate(ElementTrail& trail) {
        const long index = trail.nextIndex();
        if (looksFirst && index < 0) return {};
        return {container_.follow(trail), static_cast<unsigned long>(index)};
    }

    V* elementAt(Position position) {
        if (looksFirst && position.array == nullptr) [[unlikely]]
            return nullptr;
        if (V* const element = ArrayElements::find<V>(*position.array, position.index)) [[likely]]
            return element;
        return static_cast<V*>(source_.make(*position.array, position.index));
    }
    auto* valueAt(Position position) {
        using Found = decltype(ArrayElements::findValue<V>(*position.array, position.index));
        if (looksFirst && position.array == nullptr) [[unlikely]]
            return Found(nullptr);
        if (const Found value = ArrayElements::findValue<V>(*position.array, position.index))
            [[likely]]
            return value;
        return Found(source_.template makeValue<V>(*position.array, position.index));
    }

    Container container_;
    Index index_;
    ElementSource source_;
};

/// The hash of the key that an operand gives; for a constant it is computed in advance.
template <class Key>
class KeyHasher {
public:
    explicit KeyHasher(const Key& /*operand*/) {}
    std::uint32_t hash(const FND::String& key) const { return keyHash(key); }
};

template <>
class KeyHasher<ConstantOperand<StringType>> {
public:
    explicit KeyHasher(const ConstantOperand<StringType>& operand)
        : hash_(keyHash(operand.value())) {}
    std::uint32_t hash(const FND::String& /*key*/) const { return hash_; }

private:
    std::uint32_t hash_;
};

/// Finds the element of a hash: the key is evaluated first, then the container. Null without a
/// container and for an element that cannot be made.
template <class V, class Container, class Key>
class HashElement {
public:
    /// `copiesKey`: evaluating the container may change the text that the key refers to.
    HashElement(Interpreter& interpreter, Container container, Key key, bool copiesKey)
        : container_(std::move(container)),
          key_(std::move(key)),
          hasher_(key_),
          source_(interpreter),
          copiesKey_(copiesKey) {}

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

    /// Whether `other` finds the same element. Only for named containers with a variable as key.
    bool isSame(const HashElement& other) const {
        return container_ == other.container_ && key_.storage() == other.key_.storage();
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
        if (V* const element = HashElements::find<V>(*hash, key, hasher_.hash(key))) [[likely]] {
            return element;
        }
        return static_cast<V*>(source_.make(*hash, key));
    }

    Container container_;
    Key key_;
    [[no_unique_address]] KeyHasher<Key> hasher_;
    ElementSource source_;
    const bool copiesKey_;
};

// The accesses. Each is built from the container's prototype, which it does not own, and the
// arguments of its `Element`.

/// An element that holds a value of the type `Type`.
template <class Type, class Element>
class ElementAccess : public Type::DataNode, public ElementPath<typename Type::Value> {
public:
    template <class... Arguments>
    explicit ElementAccess(const Variable* /*prototype*/, Arguments&&... arguments)
        : element_(std::forward<Arguments>(arguments)...) {}

    typename Type::Argument result() override {
        if (const auto* const found = element_.findValue()) [[likely]]
            return *found;
        return emptyCM;
    }
    bool set(typename Type::Argument value) override {
        auto* const found = element_.findValue();
        if (found == nullptr) [[unlikely]]
            return false;
        store(*found, value);
        return true;
    }
    void note(ElementTrail& trail) override { element_.note(trail); }
    typename Type::Value* follow(ElementTrail& trail) override {
        return element_.followValue(trail);
    }

    Element& element() { return element_; }

private:
    inline static const typename Type::Value emptyCM{};

    Element element_;
};

/// The access to an element of a named array under a named index.
template <class Type>
using NamedElementAccess = ElementAccess<
    Type, ArrayElement<typename Type::Variable, NamedContainer<Array>, VariableOperand<LongType>>>;

/// Such an access as an operand: reading it needs no call of its node.
template <class Type>
class ElementOperand {
public:
    using Access = NamedElementAccess<Type>;

    explicit ElementOperand(std::unique_ptr<Node> node)
        : node_(static_cast<Access*>(node.release())) {}
    typename Type::Argument value() const { return node_->Access::result(); }

private:
    std::unique_ptr<Access> node_;
};

/// Whether `node` is such an access.
template <class Type>
bool isNamedElement(const Node& node) {
    return &typeid(node) == &typeid(NamedElementAccess<Type>);
}

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
        : element_(std::forward<Arguments>(arguments)...),
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
        : element_(std::forward<Arguments>(arguments)...) {}

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

/// The same for elements of an array or of a hash, found by operands of these kinds.
template <class Type, class... Operands>
using ArrayAccess =
    typename AccessTo<Type, ArrayElement<typename Type::Variable, Operands...>>::Class;
template <class Type, class... Operands>
using HashAccess =
    typename AccessTo<Type, HashElement<typename Type::Variable, Operands...>>::Class;

}  // namespace SCR
