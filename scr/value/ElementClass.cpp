#include "scr/value/ElementClass.h"

#include <memory>
#include <new>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "scr/Array.h"
#include "scr/FctDescr.h"
#include "scr/Hash.h"
#include "scr/run/MemoryCharge.h"
#include "scr/value/TypeVisitor.h"

namespace SCR {

namespace {

template <class Value>
void assign(Value& target, const Value& source) {
    target = source;
}

// A long string gives its room back when it becomes short.
void assign(FND::String& target, const FND::String& source) {
    constexpr std::size_t kept = 256;
    if (target.capacity() > kept && source.size() <= kept) {
        FND::String(source).swap(target);
    } else {
        target = source;
    }
}

}  // namespace

/// Makes and copies the elements of the class `V`.
template <class V>
struct ElementMaker {
    static constexpr bool needsDestructorCM = !std::is_trivially_destructible_v<
        std::remove_cvref_t<decltype(std::declval<V&>().value())>>;

    static void construct(std::byte* slot, const V& prototype) {
        auto* made = new (slot) V(prototype.value());
        made->dataType(prototype.dataType());
    }
    static void copy(V& element, const V& source) {
        assign(element.value(), source.value());
        element.dataType(source.dataType());
    }
};

template <>
struct ElementMaker<AdtVariable> {
    static constexpr bool needsDestructorCM = true;

    static void construct(std::byte* slot, const AdtVariable& prototype) {
        auto* made = new (slot) AdtVariable(prototype.value());
        try {
            copy(*made, prototype);
        } catch (...) {
            made->~AdtVariable();
            throw;
        }
    }
    static void copy(AdtVariable& element, const AdtVariable& source) {
        element.subType(source.subType());
        element.value() = source.value();
        element.dataType(source.dataType());
    }
};

template <>
struct ElementMaker<FileVariable> {
    static constexpr bool needsDestructorCM = true;

    static void construct(std::byte* slot, const FileVariable& /*prototype*/) {
        new (slot) FileVariable;
    }
    static void copy(FileVariable& element, const FileVariable& /*source*/) { element.close(); }
};

// Containers in containers. Prototypes rarely hold elements, so making one is cheap at any depth.
template <class Container>
struct NestedMaker {
    static constexpr bool needsDestructorCM = true;

    static void construct(std::byte* slot, const Container& prototype) {
        new (slot) Container(prototype, prototype.prototype_);
    }
    static void copy(Container& element, const Container& source) {
        element.freeElements();
        element.copyElements(source);
    }
};

template <>
struct ElementMaker<Array> : NestedMaker<Array> {};
template <>
struct ElementMaker<Hash> : NestedMaker<Hash> {};

namespace {

/// How many elements ahead memory is asked for.
constexpr std::size_t aheadS = 8;

// Told before `element` is destroyed. The texts of a sorted array lie all over the memory, and the
// allocator writes into their blocks and reads the size of the next ones.
template <class V>
void expect([[maybe_unused]] V& element) {
    if constexpr (std::is_same_v<V, StringVariable>) {
        const FND::String& text = element.value();
        __builtin_prefetch(text.data(), 1);
        __builtin_prefetch(text.data() + text.capacity());
    }
}

// The elements of the class `V`, stored in the slots.
template <class V>
struct InPlace {
    static_assert(alignof(V) <= 8 && sizeof(V) % sizeof(void*) == 0);

    static V* at(std::byte* slots, std::size_t index) {
        return std::launder(reinterpret_cast<V*>(slots + index * sizeof(V)));
    }
    static void construct(std::byte* slots, std::size_t count, const Variable& prototype) {
        std::size_t made = 0;
        try {
            for (; made < count; ++made) {
                ElementMaker<V>::construct(slots + made * sizeof(V),
                                           static_cast<const V&>(prototype));
            }
        } catch (...) {
            destroy(slots, made);
            throw;
        }
    }
    static void destroy([[maybe_unused]] std::byte* slots,
                        [[maybe_unused]] std::size_t count) noexcept {
        // Destroying plain values has no effect, and doing it one by one would cost as much as
        // making them.
        if constexpr (ElementMaker<V>::needsDestructorCM) {
            for (std::size_t i = 0; i < count; ++i) {
                if (i + aheadS < count) expect(*at(slots, i + aheadS));
                at(slots, i)->~V();
            }
        }
    }
    static void copy(std::byte* slot, const Variable& source) {
        ElementMaker<V>::copy(*at(slot, 0), static_cast<const V&>(source));
    }

    static std::size_t heapBytesOf(const std::byte* slots, std::size_t count) {
        std::size_t bytes = 0;
        for (std::size_t i = 0; i < count; ++i) {
            const V& element = *std::launder(reinterpret_cast<const V*>(slots + i * sizeof(V)));
            if constexpr (std::is_same_v<V, StringVariable>) {
                bytes += heapBytes(element.value());
            } else {
                bytes += element.heapBytes();
            }
        }
        return bytes;
    }

    static constexpr bool takesMemoryCM =
        std::is_same_v<V, StringVariable> || std::is_same_v<V, Array> || std::is_same_v<V, Hash>;
    static constexpr auto heapBytesCM = [] {
        if constexpr (takesMemoryCM) {
            return heapBytesOf;
        } else {
            return nullptr;
        }
    }();

    static constexpr ElementClass classCM{sizeof(V), false, construct, destroy, copy, heapBytesCM};
};

// The bare values of elements of the class `V`.
template <class V>
struct ValuesOnly {
    using Value = std::remove_cvref_t<decltype(std::declval<V&>().value())>;
    static_assert(std::is_trivially_copyable_v<Value>);
    static_assert(std::is_trivially_destructible_v<Value> && alignof(Value) <= 8);

    static void construct(std::byte* slots, std::size_t count, const Variable& prototype) {
        std::uninitialized_fill_n(reinterpret_cast<Value*>(slots), count,
                                  static_cast<const V&>(prototype).value());
    }
    static void destroy(std::byte* /*slots*/, std::size_t /*count*/) noexcept {}
    static void copy(std::byte* slot, const Variable& source) { construct(slot, 1, source); }
    static void load(Variable& element, const std::byte* slot) {
        static_cast<V&>(element).value() = *std::launder(reinterpret_cast<const Value*>(slot));
    }

    static constexpr ElementClass classCM{sizeof(Value), false,   construct, destroy,
                                          copy,          nullptr, load};
};

// The elements of any other class, each a separate object.
struct Boxed {
    static constexpr std::size_t sizeCM = sizeof(void*);

    static Variable*& at(std::byte* slots, std::size_t index) {
        return *reinterpret_cast<Variable**>(slots + index * sizeCM);
    }
    static void construct(std::byte* slots, std::size_t count, const Variable& prototype) {
        std::size_t made = 0;
        try {
            for (; made < count; ++made) {
                new (slots + made * sizeCM) Variable*(prototype.clone());
            }
        } catch (...) {
            destroy(slots, made);
            throw;
        }
    }
    static void destroy(std::byte* slots, std::size_t count) noexcept {
        for (std::size_t i = 0; i < count; ++i) delete at(slots, i);
    }
    static void copy(std::byte* slot, const Variable& source) {
        delete std::exchange(at(slot, 0), source.clone());
    }

    static constexpr ElementClass classCM{sizeCM, true, construct, destroy, copy, nullptr};
};

template <class V>
bool isA(const Variable& variable) {
    return typeid(variable) == typeid(V);
}

}  // namespace

const ElementClass& ElementClass::of(const Variable& prototype) {
    const ElementClass* found = &Boxed::classCM;
    anyType(StorageTypes(), [&]<class Type>(Type) {
        if (!isA<typename Type::Variable>(prototype)) return false;
        found = &InPlace<typename Type::Variable>::classCM;
        return true;
    });
    return *found;
}

const ElementClass* ElementClass::ofValues(const Variable& prototype) {
    const ElementClass* found = nullptr;
    anyType(TypeList<LongType, DecimalType, BoolType, DateType>(), [&]<class Type>(Type) {
        if (!isA<typename Type::Variable>(prototype)) return false;
        found = &ValuesOnly<typename Type::Variable>::classCM;
        return true;
    });
    return found;
}

bool hasClassOfType(const Variable& variable) {
    if (Node::baseType(variable.dataType()) == TypeCode::Function) {
        return dynamic_cast<const FctDescr*>(&variable) != nullptr;
    }
    return withType(StorageTypes(), variable.dataType(),
                    [&]<class Type>(Type) { return isA<typename Type::Variable>(variable); });
}

const Variable& prototypeOf(const Node& node) {
    const auto* const array = dynamic_cast<const ArrayNode*>(&node);
    return array != nullptr ? *array->defaultValue()
                            : *static_cast<const HashNode&>(node).defaultValue();
}

bool holdsStrings(const ArrayNode& array) { return isA<StringVariable>(*array.defaultValue()); }

}  // namespace SCR
