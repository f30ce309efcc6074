#pragma once

#include <concepts>
#include <cstddef>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "fnd/Export.h"
#include "scr/HostContainers.h"
#include "scr/Variable.h"

namespace SCR {

/// An object of the host, as scripts hold it: a parameter or the result of a host's function.
/// Scripts see a handle of the type that `HostExtension::type<T>` declares; to them it can only be
/// kept, given to functions for this type, and stored in variables, arrays and hashes of it.
///
/// Who owns the object is said where it is given to a script:
///   `Object(pointer)`      is lent: it stays with the host, which calls `HostExtension::forget`
///                          before it destroys it.
///   `Object(shared_ptr)`   is shared: the script has a share as long as a variable, an array or a
///                          hash of it holds the handle. After a run that was given such objects,
///                          the interpreter looks which ones are still held.
/// All handles are dead when another script is compiled, and when the interpreter is gone. As a
/// parameter it is never null: a call with a null or dead handle fails, as if the function had
/// thrown. During the call it has a share of a shared object.
template <class T>
class Object {
public:
    static_assert(std::is_class_v<T> || std::is_union_v<T>, "objects are of classes of the host");

    /// None: scripts get the null handle.
    Object(std::nullptr_t = nullptr) {}
    Object(T* lent) : object_(lent) {}
    Object(std::shared_ptr<T> shared) : object_(shared.get()), share_(std::move(shared)) {}

    T* get() const { return object_; }
    T& operator*() const { return *object_; }
    T* operator->() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }
    /// A share of it; empty when it is lent.
    const std::shared_ptr<T>& share() const { return share_; }
    /// Whether both are the same object.
    friend bool operator==(const Object& a, const Object& b) { return a.object_ == b.object_; }

private:
    T* object_ = nullptr;
    std::shared_ptr<T> share_;
};

/// A parameter that is null for null and dead handles.
template <class T>
class ObjectOrNull : public Object<T> {
public:
    using Object<T>::Object;
};

namespace Host {

/// Stands for the class `T`; by its address only.
template <class T>
inline char kindOfS = 0;

/// Where an object is that a handle stands for.
struct Place {
    void* object = nullptr;
    std::shared_ptr<void> share;  ///< empty when it is lent
};

template <class T>
inline constexpr bool isObjectS = false;
template <class T>
inline constexpr bool isObjectS<Object<T>> = true;
template <class T>
inline constexpr bool isObjectS<ObjectOrNull<T>> = true;

template <class T>
inline constexpr bool mayBeNullS = false;
template <class T>
inline constexpr bool mayBeNullS<ObjectOrNull<T>> = true;

template <class O>
struct ObjectFacts;
template <template <class> class O, class T>
struct ObjectFacts<O<T>> {
    using Class = T;
    static const void* kind() { return &kindOfS<T>; }
    static O<T> from(const Place& place) {
        if (!place.share) return O<T>(static_cast<T*>(place.object));
        return O<T>(std::static_pointer_cast<T>(place.share));
    }
    static Place place(const O<T>& object) {
        using Bare = std::remove_const_t<T>;
        return {const_cast<Bare*>(object.get()), std::const_pointer_cast<Bare>(object.share())};
    }
};

/// Where the object of a handle is; null for the null handle, a dead one and one of another class.
/// Valid until a script or the host gives or forgets an object.
KESTREL_API const Place* objectOf(Interpreter& interpreter, const void* kind, long handle) noexcept;
/// Sets `handle` to that of an object, 0 for none. False when there is no room: the script stops
/// then.
KESTREL_API bool handleOf(Interpreter& interpreter, const void* kind, const Place& place,
                          long& handle) noexcept;

/// Whether `type` is the name of the type of a class.
KESTREL_API bool isOfKind(Interpreter& interpreter, const void* kind,
                          const FND::String& type) noexcept;

template <class T>
struct ElementOf<Object<T>> {
    static constexpr int typeCode = TypeCode::Adt;
};

/// The object of a handle in a container, which may be missing.
template <class T>
Object<T> objectIn(const AdtVariable* element, Interpreter* interpreter) {
    using Facts = ObjectFacts<Object<T>>;
    const Place* const place =
        element != nullptr ? objectOf(*interpreter, Facts::kind(), element->value()) : nullptr;
    return place != nullptr ? Facts::from(*place) : Object<T>();
}
template <class T>
bool storeObject(AdtVariable* element, const Object<T>& object, Interpreter* interpreter) {
    using Facts = ObjectFacts<Object<T>>;
    return element != nullptr &&
           handleOf(*interpreter, Facts::kind(), Facts::place(object), element->value());
}

}  // namespace Host

/// An array of objects, read by a function of a host. The rules of other arrays hold, but elements
/// are read and set by value: an object for its handle, none for null and dead handles.
template <class T>
class ArrayView<Object<T>> {
public:
    ArrayView() = default;
    ArrayView(Array& array, Interpreter* interpreter)
        : handles_(array, interpreter), interpreter_(interpreter) {}

    bool exists() const { return handles_.exists(); }
    unsigned long size() const { return handles_.size(); }
    Object<T> operator[](unsigned long index) const {
        return Host::objectIn<T>(&handles_[index], interpreter_);
    }

protected:
    ArrayRef<AdtVariable> handles_;
    Interpreter* interpreter_ = nullptr;
};

/// An array of objects that a function of a host reads and changes.
template <class T>
class ArrayRef<Object<T>> : public ArrayView<Object<T>> {
public:
    using ArrayView<Object<T>>::ArrayView;

    bool set(unsigned long index, const Object<T>& value) const {
        return Host::storeObject(this->handles_.at(index), value, this->interpreter_);
    }
    bool append(const Object<T>& value) const { return set(this->size(), value); }
    bool resize(unsigned long size) const { return this->handles_.resize(size); }
    void clear() const { resize(0); }
};

/// A hash of objects, read by a function of a host.
template <class T>
class HashView<Object<T>> {
public:
    HashView() = default;
    HashView(Hash& hash, Interpreter* interpreter)
        : handles_(hash, interpreter), interpreter_(interpreter) {}

    bool exists() const { return handles_.exists(); }
    unsigned long size() const { return handles_.size(); }
    Object<T> operator[](const FND::String& key) const {
        return Host::objectIn<T>(handles_.find(key), interpreter_);
    }
    std::vector<const FND::String*> keys() const noexcept { return handles_.keys(); }

protected:
    HashRef<AdtVariable> handles_;
    Interpreter* interpreter_ = nullptr;
};

/// A hash of objects that a function of a host reads and changes.
template <class T>
class HashRef<Object<T>> : public HashView<Object<T>> {
public:
    using HashView<Object<T>>::HashView;

    bool set(const FND::String& key, const Object<T>& value) const {
        return Host::storeObject(this->handles_.at(key), value, this->interpreter_);
    }
    bool remove(const FND::String& key) const { return this->handles_.remove(key); }
    void clear() const { this->handles_.clear(); }
};

/// The name of a record's field, as a script gives it to one of the field functions ("edrString"
/// and others): `edrString(customer.name)` passes "customer.name". A view into the call's node.
class FieldAlias {
public:
    FieldAlias(const FND::String& name, long id) : name_(&name), id_(id) {}
    /// The identifier; lives as long as the compiled script.
    const FND::String& name() const { return *name_; }
    /// What the extension's `fieldIds` gave for the name when the script was compiled; 0 without.
    long id() const { return id_; }

private:
    const FND::String* name_;
    long id_;
};

/// The arguments of a call from some position on, any number of them: the last parameter of a
/// host's function. `T` is long, bool, FND::String, FND::Decimal, FND::DateTime or FND::Identifier.
/// The values are valid during the call.
template <class T>
class Rest {
public:
    class Iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = const T*;
        using reference = const T&;

        Iterator() = default;
        explicit Iterator(void* const* at) : at_(at) {}
        const T& operator*() const { return *static_cast<const T*>(*at_); }
        const T* operator->() const { return static_cast<const T*>(*at_); }
        Iterator& operator++() {
            ++at_;
            return *this;
        }
        Iterator operator++(int) { return Iterator(at_++); }
        bool operator==(const Iterator&) const = default;

    private:
        void* const* at_ = nullptr;
    };

    Rest(void* const* places, std::size_t size) : places_(places), size_(size) {}
    std::size_t size() const { return size_; }
    const T& operator[](std::size_t index) const { return *static_cast<const T*>(places_[index]); }
    Iterator begin() const { return Iterator(places_); }
    Iterator end() const { return Iterator(places_ + size_); }

private:
    void* const* places_;
    std::size_t size_;
};

/// How the C++ types of a host's functions and variables map to types of the language.
namespace Host {

template <class T>
concept Integer = std::integral<T> && !std::same_as<T, bool> && !std::same_as<T, char> &&
                  !std::same_as<T, wchar_t> && !std::same_as<T, char8_t> &&
                  !std::same_as<T, char16_t> && !std::same_as<T, char32_t>;

/// The value type of the language for the C++ type `T`; none for types without one.
template <class T>
struct TypeOf {};
template <Integer T>
struct TypeOf<T> {
    using Type = LongType;
};
template <>
struct TypeOf<bool> {
    using Type = BoolType;
};
template <>
struct TypeOf<FND::String> {
    using Type = StringType;
};
template <>
struct TypeOf<std::string_view> {
    using Type = StringType;
};
template <>
struct TypeOf<FND::Decimal> {
    using Type = DecimalType;
};
template <>
struct TypeOf<FND::DateTime> {
    using Type = DateType;
};
template <>
struct TypeOf<FND::Identifier> {
    using Type = NexidType;
};

template <class T>
struct TypeOf<Object<T>> {
    using Type = AdtType;
};
template <class T>
struct TypeOf<ObjectOrNull<T>> {
    using Type = AdtType;
};

/// A type whose values scripts know.
template <class T>
concept Known = requires {
    typename TypeOf<T>::Type;
};

/// A type in which the language itself keeps values, so that a host can share a script's storage.
template <class T>
concept Stored = Known<T> && std::same_as<typename TypeOf<T>::Type::Value, T>;

/// The role of a parameter of a host's function, as the script sees it.
enum class Passing { Refused, Value, Out, Optional, Field, Container, Rest };

/// What a view of a container stands for; none for other types.
template <class T>
struct ContainerOf {};
template <Element T>
struct ContainerOf<ArrayView<T>> {
    using Container = Array;
    static constexpr int typeCode = TypeCode::Array;
    static constexpr int elementType = ElementOf<T>::typeCode;
    static constexpr bool isChanged = false;
};
template <Element T>
struct ContainerOf<ArrayRef<T>> : ContainerOf<ArrayView<T>> {
    static constexpr bool isChanged = true;
};
template <Element T>
struct ContainerOf<HashView<T>> {
    using Container = Hash;
    static constexpr int typeCode = TypeCode::Hash;
    static constexpr int elementType = ElementOf<T>::typeCode;
    static constexpr bool isChanged = false;
};
template <Element T>
struct ContainerOf<HashRef<T>> : ContainerOf<HashView<T>> {
    static constexpr bool isChanged = true;
};

template <class T>
concept Contained = requires {
    ContainerOf<T>::typeCode;
};

template <class Parameter>
struct PassingOf {
    using Bare = std::remove_cvref_t<Parameter>;
    static constexpr bool isMutableReference = std::is_lvalue_reference_v<Parameter> &&
                                               !std::is_const_v<std::remove_reference_t<Parameter>>;
    static constexpr Passing value = std::is_rvalue_reference_v<Parameter> ? Passing::Refused
                                     : isMutableReference
                                         ? (Stored<Bare> ? Passing::Out : Passing::Refused)
                                     : Contained<Bare>                ? Passing::Container
                                     : std::same_as<Bare, FieldAlias> ? Passing::Field
                                     : Known<Bare>                    ? Passing::Value
                                                                      : Passing::Refused;
};
template <class T>
struct PassingOf<std::optional<T>> {
    static constexpr Passing value = Known<T> ? Passing::Optional : Passing::Refused;
};
template <class T>
struct PassingOf<const std::optional<T>&> : PassingOf<std::optional<T>> {};
template <class T>
struct PassingOf<Rest<T>> {
    static constexpr Passing value = Stored<T> ? Passing::Rest : Passing::Refused;
};
template <class T>
struct PassingOf<const Rest<T>&> : PassingOf<Rest<T>> {};

template <class Parameter>
inline constexpr Passing passingOfS = PassingOf<Parameter>::value;

template <class... T>
struct List {
    static constexpr std::size_t size = sizeof...(T);
};

/// The last type of a list, and those before it.
template <class All, class Others = List<>>
struct LastOf;
template <class T, class... Before>
struct LastOf<List<T>, List<Before...>> {
    using Type = T;
    using Others = List<Before...>;
};
template <class T, class U, class... Rest, class... Before>
struct LastOf<List<T, U, Rest...>, List<Before...>> : LastOf<List<U, Rest...>, List<Before..., T>> {
};

/// Result and parameters of a callable, without a leading `Interpreter&`.
template <bool interpreter, class ResultT, class... ParameterT>
struct Signature {
    static constexpr bool takesInterpreter = interpreter;
    using Result = ResultT;
    using Parameters = List<ParameterT...>;
    static constexpr bool parametersKnown = ((passingOfS<ParameterT> != Passing::Refused) && ...);
    /// A field's functions take values only.
    static constexpr bool writesArguments =
        ((passingOfS<ParameterT> == Passing::Out || passingOfS<ParameterT> == Passing::Container) ||
         ...);
    /// The number of arguments that a call may give besides those for `Rest`.
    static constexpr int maximum = ((passingOfS<ParameterT> != Passing::Rest ? 1 : 0) + ... + 0);
    /// The number of arguments that every call gives.
    static constexpr int minimum =
        ((passingOfS<ParameterT> != Passing::Optional && passingOfS<ParameterT> != Passing::Rest
              ? 1
              : 0) +
         ... + 0);
    /// Whether the parameters that need not be given come after the others, `Rest` at the very end.
    static constexpr bool optionalsLast = [] {
        int last = 0;
        bool holds = true;
        [[maybe_unused]] const auto next = [&](Passing passing) {
            const int rank = passing == Passing::Rest ? 2 : passing == Passing::Optional ? 1 : 0;
            holds = holds && rank >= last && last < 2;
            last = rank;
        };
        (next(passingOfS<ParameterT>), ...);
        return holds;
    }();
    static constexpr bool resultKnown =
        std::is_void_v<ResultT> ||
        (Known<std::remove_cvref_t<ResultT>> &&
         !(std::is_reference_v<ResultT> && !std::is_const_v<std::remove_reference_t<ResultT>>));
};

template <class Result, class... Parameters>
struct SignatureFor {
    using Type = Signature<false, Result, Parameters...>;
};
template <class Result, class... Parameters>
struct SignatureFor<Result, Interpreter&, Parameters...> {
    using Type = Signature<true, Result, Parameters...>;
};

/// The signature of a callable of type `F`: of functors and lambdas, that of their `operator()`.
template <class F>
struct SignatureOf {};
template <class F>
requires requires { &F::operator(); }
struct SignatureOf<F> : SignatureOf<decltype(&F::operator())> {};
template <class R, class... P>
struct SignatureOf<R (*)(P...)> : SignatureFor<R, P...> {};
template <class R, class... P>
struct SignatureOf<R (*)(P...) noexcept> : SignatureFor<R, P...> {};
template <class C, class R, class... P>
struct SignatureOf<R (C::*)(P...)> : SignatureFor<R, P...> {};
template <class C, class R, class... P>
struct SignatureOf<R (C::*)(P...) const> : SignatureFor<R, P...> {};
template <class C, class R, class... P>
struct SignatureOf<R (C::*)(P...) noexcept> : SignatureFor<R, P...> {};
template <class C, class R, class... P>
struct SignatureOf<R (C::*)(P...) const noexcept> : SignatureFor<R, P...> {};

/// A callable with one known signature. A pointer to a member lacks its object.
template <class F>
concept Callable = !std::is_member_pointer_v<F> && requires {
    typename SignatureOf<F>::Type;
};

/// Whether `Writer` takes what `Reader` takes and then what that gives. Both are signatures.
template <class Reader, class Writer>
inline constexpr bool fieldFitsS = false;
template <bool a, class R, class... P, bool b, class Stored, class... Q>
requires(sizeof...(Q) == sizeof...(P) + 1 &&
         sizeof...(P) <= 9) inline constexpr bool fieldFitsS<Signature<a, R, P...>,
                                                             Signature<b, Stored, Q...>> = [] {
    using Reads = Signature<a, R, P...>;
    using Writes = Signature<b, Stored, Q...>;
    using Value = std::remove_cvref_t<std::tuple_element_t<sizeof...(P), std::tuple<Q...>>>;
    if constexpr (!Reads::parametersKnown || !Writes::parametersKnown || !Reads::resultKnown ||
                  !Reads::optionalsLast || std::is_void_v<R> || !Known<Value> || isObjectS<Value>) {
        return false;
    } else {
        // The parameters of both, without the value.
        const auto samePrefix = []<std::size_t... i>(std::index_sequence<i...>) {
            return (std::same_as<std::remove_cvref_t<P>,
                                 std::remove_cvref_t<std::tuple_element_t<i, std::tuple<Q...>>>> &&
                    ...);
        };
        return samePrefix(std::index_sequence_for<P...>()) && !Reads::writesArguments &&
               !Writes::writesArguments &&
               (std::is_void_v<Stored> || std::same_as<Stored, bool>)&&std::same_as<
                   typename TypeOf<Value>::Type, typename TypeOf<std::remove_cvref_t<R>>::Type>;
    }
}();

}  // namespace Host

}  // namespace SCR
