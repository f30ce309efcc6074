#pragma once

#include <concepts>
#include <cstddef>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "scr/HostContainers.h"
#include "scr/HostObject.h"
#include "scr/Types.h"

namespace SCR {

class Interpreter;

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
