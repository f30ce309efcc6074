#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/HostTypes.h"

namespace SCR {

class Interpreter;

/// How scripts call the functions of a host. This code is compiled with the host, which may have no
/// exceptions and no run-time type information. So the nodes, and everything that throws, catches
/// or casts, belong to the library (HostFunction.cpp). This header holds what depends on the types
/// of a callable: reading its arguments and calling it.
namespace Host {

/// Gives the number by which the host knows a field, or a negative one for an unknown field.
using FieldIds = std::function<long(const FND::String&)>;
/// Gives the names of the fields, for the messages about unknown ones.
using FieldNames = std::function<std::vector<FND::String>()>;
struct Fields {
    FieldIds ids;
    FieldNames names;
};

/// One call being made: what its callable needs from the library.
class Call {
public:
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    Interpreter& interpreter() const { return interpreter_; }

    /// Whether the script gives argument `index`.
    KESTREL_API bool isGiven(std::size_t index) const;
    /// Evaluates argument `index` and gives where its value is: of a type that is passed by
    /// reference until the call has ended, of any other until the callable runs. That of a variable
    /// may be changed, and is stored when the callable has returned; that of a field's name is a
    /// `FieldAlias`, and that of a container a pointer to it, which is complete when the callable
    /// runs, and null if there is none. Throws nothing: an exception is kept, and this and all
    /// later arguments give a null value.
    KESTREL_API void* evaluate(std::size_t index) noexcept;

    /// Evaluates all arguments from `first` on and gives where their values are, until the call has
    /// ended; sets `count` to their number.
    KESTREL_API void* const* evaluateRest(std::size_t first, std::size_t& count) noexcept;

    /// Call this when all arguments are evaluated, just before the callable. False when one of them
    /// could not be evaluated.
    bool begin() {
        if (mustLocate_) [[unlikely]]
            locate();
        isCalling_ = !hasFailed_;
        return isCalling_;
    }
    /// Makes the call fail because a number does not fit the C++ type; always false.
    KESTREL_API bool refuse(long number) noexcept;
    KESTREL_API bool refuse(unsigned long number) noexcept;
    /// The same because argument `index` is no handle of an object.
    KESTREL_API bool refuseHandle(std::size_t index, long handle) noexcept;
    /// The same because there is no room for the object of the result.
    KESTREL_API bool refuseObject() noexcept;

private:
    friend class OpenCall;

    // Finds the containers anew whose place script code may have changed since they were evaluated.
    KESTREL_API void locate() noexcept;

    explicit Call(Interpreter& interpreter) : interpreter_(interpreter) {}
    ~Call() = default;

    Interpreter& interpreter_;
    bool hasFailed_ = false;
    bool isCalling_ = false;
    bool mustLocate_ = false;
};

/// The value of argument `index`, of the value type `Type`, as it is held until the call: by
/// pointer when nodes give a reference.
template <class Type>
using Given =
    std::conditional_t<Type::byReference, const typename Type::Value*, typename Type::Value>;

template <class Type>
Given<Type> valueOf(Call& call, std::size_t index) {
    const auto* const value = static_cast<const typename Type::Value*>(call.evaluate(index));
    if constexpr (Type::byReference) {
        return value;
    } else {
        return *value;
    }
}

/// How one parameter gets its argument. `read` evaluates that; `fits` tells whether the
/// parameter can hold the value, or makes the call fail; `pass` gives the argument.
template <class Parameter, Passing passing = passingOfS<Parameter>>
struct Argument;

template <class Parameter>
struct Argument<Parameter, Passing::Value> {
    using Bare = std::remove_cvref_t<Parameter>;
    using Type = typename TypeOf<Bare>::Type;
    using Held = Given<Type>;
    static constexpr int typeWord = Type::typeCode;

    static Held read(Call& call, std::size_t index) { return valueOf<Type>(call, index); }
    static bool fits([[maybe_unused]] Call& call, [[maybe_unused]] Held value) {
        if constexpr (Integer<Bare>) {
            if (!std::in_range<Bare>(value)) [[unlikely]]
                return call.refuse(value);
        }
        return true;
    }
    static decltype(auto) pass(Held value) {
        if constexpr (Type::byReference) {
            return *value;
        } else {
            return static_cast<Bare>(value);
        }
    }
};

template <class Parameter>
requires(isObjectS<std::remove_cvref_t<Parameter>>) struct Argument<Parameter, Passing::Value> {
    using Bare = std::remove_cvref_t<Parameter>;
    using Facts = ObjectFacts<Bare>;
    struct Held {
        long handle;
        std::size_t index;
        mutable const Place* place;
    };
    static constexpr int typeWord = TypeCode::Adt;

    static Held read(Call& call, std::size_t index) {
        return {*static_cast<const long*>(call.evaluate(index)), index, nullptr};
    }
    static bool fits(Call& call, const Held& held) {
        held.place = objectOf(call.interpreter(), Facts::kind(), held.handle);
        if (held.place == nullptr && !mayBeNullS<Bare>) [[unlikely]]
            return call.refuseHandle(held.index, held.handle);
        return true;
    }
    static Bare pass(const Held& held) {
        return held.place != nullptr ? Facts::from(*held.place) : Bare();
    }
};

template <class Parameter>
struct Argument<Parameter, Passing::Optional> {
    using Bare = typename std::remove_cvref_t<Parameter>::value_type;
    using Value = Argument<Bare, Passing::Value>;
    using Held = std::optional<typename Value::Held>;
    static constexpr int typeWord = Value::typeWord;

    static Held read(Call& call, std::size_t index) {
        if (!call.isGiven(index)) return std::nullopt;
        return Value::read(call, index);
    }
    static bool fits(Call& call, const Held& value) { return !value || Value::fits(call, *value); }
    static std::optional<Bare> pass(const Held& value) {
        if (!value) return std::nullopt;
        return std::optional<Bare>(Value::pass(*value));
    }
};

template <class Parameter>
struct Argument<Parameter, Passing::Out> {
    using Bare = std::remove_cvref_t<Parameter>;
    using Held = Bare*;
    static constexpr int typeWord = TypeOf<Bare>::Type::typeCode | TypeCode::LeftFlag;

    static Held read(Call& call, std::size_t index) {
        return static_cast<Held>(call.evaluate(index));
    }
    static bool fits(Call& /*call*/, Held /*value*/) { return true; }
    static Bare& pass(Held value) { return *value; }
};

template <class Parameter>
struct Argument<Parameter, Passing::Field> {
    using Held = FieldAlias;
    static constexpr int typeWord = TypeCode::EdrAlias;

    static Held read(Call& call, std::size_t index) {
        return *static_cast<const FieldAlias*>(call.evaluate(index));
    }
    static bool fits(Call& /*call*/, Held /*value*/) { return true; }
    static FieldAlias pass(Held value) { return value; }
};

template <class Parameter>
struct Argument<Parameter, Passing::Rest> {
    struct Held {
        void* const* places;
        std::size_t count;
    };
    static constexpr int typeWord = 0;

    static Held read(Call& call, std::size_t index) {
        Held held{};
        held.places = call.evaluateRest(index, held.count);
        return held;
    }
    static bool fits(Call& /*call*/, Held /*held*/) { return true; }
    static std::remove_cvref_t<Parameter> pass(Held held) { return {held.places, held.count}; }
};

template <class Parameter>
struct Argument<Parameter, Passing::Container> {
    using View = std::remove_cvref_t<Parameter>;
    using Facts = ContainerOf<View>;
    struct Held {
        Variable* const* container;
        Interpreter* interpreter;
    };
    static constexpr int typeWord = Facts::typeCode;

    static Held read(Call& call, std::size_t index) {
        return {static_cast<Variable* const*>(call.evaluate(index)), &call.interpreter()};
    }
    static bool fits(Call& /*call*/, Held /*held*/) { return true; }
    static View pass(Held held) {
        auto* const container = static_cast<typename Facts::Container*>(*held.container);
        if (container == nullptr) return View();
        if constexpr (Facts::isChanged || Facts::elementType == TypeCode::Adt) {
            return View(*container, held.interpreter);
        } else {
            return View(*container);
        }
    }
};

/// Calls `callable` with the arguments of `call` for `Parameters` and then `written` for the
/// parameters `Written`. Returns what `take` makes of the call, or null when it failed.
template <bool takesInterpreter, class... Parameters, class... Written, class F, class Take,
          std::size_t... index>
const void* invoke(Call& call, F& callable, const Take& take, List<Parameters...> /*parameters*/,
                   std::index_sequence<index...> /*operands*/, List<Written...> /*last*/,
                   typename Argument<Written>::Held... written) {
    // Braces: left to right.
    [[maybe_unused]] const std::tuple<typename Argument<Parameters>::Held...> held{
        Argument<Parameters>::read(call, index)...};
    static_assert((std::is_trivially_destructible_v<typename Argument<Parameters>::Held> && ...),
                  "what a limit stops here leaves nothing to clean up");
    if (!call.begin()) return nullptr;
    if (!(Argument<Parameters>::fits(call, std::get<index>(held)) && ...)) return nullptr;
    if (!(Argument<Written>::fits(call, written) && ...)) return nullptr;
    return take([&]() -> decltype(auto) {
        if constexpr (takesInterpreter) {
            return callable(call.interpreter(),
                            Argument<Parameters>::pass(std::get<index>(held))...,
                            Argument<Written>::pass(written)...);
        } else {
            return callable(Argument<Parameters>::pass(std::get<index>(held))...,
                            Argument<Written>::pass(written)...);
        }
    });
}

/// Calls the callable `callable` and tells where its result is: in `room`, a value of the result's
/// type, or elsewhere until the next call. Null when the call failed.
using Read = const void* (*)(void* callable, Call& call, void* room);
/// Calls the writer of a field with `value`; gives whether it stored the value.
using Write = bool (*)(void* callable, Call& call, const void* value);

template <class F>
const void* readBy(void* callable, Call& call, void* room) {
    using Signature = typename SignatureOf<F>::Type;
    using Result = typename Signature::Result;
    using Parameters = typename Signature::Parameters;
    return invoke<Signature::takesInterpreter>(
        call, *static_cast<F*>(callable),
        [&](const auto& result) -> const void* {
            if constexpr (std::is_void_v<Result>) {
                result();
                return &call;
            } else {
                using Type = typename TypeOf<std::remove_cvref_t<Result>>::Type;
                using Value = typename Type::Value;
                if constexpr (isObjectS<std::remove_cvref_t<Result>>) {
                    using Facts = ObjectFacts<std::remove_cvref_t<Result>>;
                    const bool isGiven =
                        handleOf(call.interpreter(), Facts::kind(), Facts::place(result()),
                                 *static_cast<long*>(room));
                    if (!isGiven) [[unlikely]]
                        call.refuseObject();
                    return isGiven ? room : nullptr;
                } else if constexpr (Type::byReference && std::is_same_v<Result, const Value&>) {
                    return &result();
                } else if constexpr (std::is_same_v<Type, LongType>) {
                    const auto number = result();
                    if (!std::in_range<long>(number)) [[unlikely]] {
                        call.refuse(static_cast<unsigned long>(number));
                        return nullptr;
                    }
                    *static_cast<long*>(room) = static_cast<long>(number);
                    return room;
                } else {
                    *static_cast<Value*>(room) = result();
                    return room;
                }
            }
        },
        Parameters(), std::make_index_sequence<Parameters::size>(), List<>());
}

template <class F>
bool writeBy(void* callable, Call& call, const void* value) {
    using Signature = typename SignatureOf<F>::Type;
    using Parameters = typename Signature::Parameters;
    using Written = typename LastOf<Parameters>::Type;
    using Held = typename Argument<Written>::Held;
    const Held written = [&]() -> Held {
        if constexpr (std::is_pointer_v<Held>) {
            return static_cast<Held>(value);
        } else {
            return *static_cast<const Held*>(value);
        }
    }();
    return invoke<Signature::takesInterpreter>(
               call, *static_cast<F*>(callable),
               [&](const auto& store) -> const void* {
                   if constexpr (std::is_void_v<typename Signature::Result>) {
                       store();
                       return &call;
                   } else {
                       return store() ? &call : nullptr;
                   }
               },
               typename LastOf<Parameters>::Others(),
               std::make_index_sequence<Parameters::size - 1>(), List<Written>(),
               written) != nullptr;
}

/// What the descriptor of a function is made from.
struct Description {
    std::shared_ptr<void> callable;
    Read read = nullptr;
    std::shared_ptr<void> writer;  ///< only for a field that may be written
    Write write = nullptr;
    int result = TypeCode::Void;
    int minimum = 0;
    int maximum = 0;
    int rest = 0;  ///< the type of any number of further arguments; 0 for none
    std::array<int, 9> arguments{};
    std::array<int, 9> elements{};    ///< of arguments that are containers: the elements' type code
    std::array<bool, 9> isChanged{};  ///< whether an argument is a container that is changed
    /// Of the result and the arguments: what `kindOfS` is for the class of an object, or of objects
    /// in a container; null for other types.
    std::array<const void*, 10> kinds{};
    bool takesInterpreter = false;
    /// Further ones of the same function, for other types of elements.
    std::vector<Description> variants;
};

template <class Parameter>
constexpr int elementTypeS = 0;
template <class Parameter>
requires Contained<std::remove_cvref_t<Parameter>>
constexpr int elementTypeS<Parameter> = ContainerOf<std::remove_cvref_t<Parameter>>::elementType;

template <class Parameter>
constexpr bool isChangedS = false;
template <class Parameter>
requires Contained<std::remove_cvref_t<Parameter>>
constexpr bool isChangedS<Parameter> = ContainerOf<std::remove_cvref_t<Parameter>>::isChanged;

template <class... Parameters>
void describeContainers(Description& made, List<Parameters...> /*parameters*/) {
    std::size_t count = 0;
    ((made.elements[count % 9] = elementTypeS<Parameters>,
      made.isChanged[count++ % 9] = isChangedS<Parameters>),
     ...);
}

template <class T>
const void* kindIn() {
    if constexpr (isObjectS<T>) {
        return ObjectFacts<T>::kind();
    } else {
        return nullptr;
    }
}
template <class T>
struct KindIn {
    static const void* kind() { return kindIn<T>(); }
};
template <class T>
struct KindIn<std::optional<T>> : KindIn<T> {};
template <class T>
struct KindIn<ArrayView<T>> : KindIn<T> {};
template <class T>
struct KindIn<ArrayRef<T>> : KindIn<T> {};
template <class T>
struct KindIn<HashView<T>> : KindIn<T> {};
template <class T>
struct KindIn<HashRef<T>> : KindIn<T> {};

template <class Result, class... Parameters>
void describeObjects(Description& made, List<Parameters...> /*parameters*/) {
    std::size_t count = 0;
    made.kinds[count++] = KindIn<std::remove_cvref_t<Result>>::kind();
    ((made.kinds[count++ % 10] = KindIn<std::remove_cvref_t<Parameters>>::kind()), ...);
}

/// A function object for one type of elements, made from one for many.
template <class F, class Element, class Member>
struct InstanceFor;
template <class F, class Element, class C, class R, class... P>
struct InstanceFor<F, Element, R (C::*)(P...) const> {
    F callable;
    R operator()(P... arguments) const {
        return callable.template operator()<Element>(std::forward<P>(arguments)...);
    }
};
template <class F, class Element>
using Instance = InstanceFor<F, Element, decltype(&F::template operator()<Element>)>;

template <class Parameter>
constexpr int restTypeS = 0;
template <class T>
constexpr int restTypeS<Rest<T>> = TypeOf<T>::Type::typeCode;

template <class... Parameters>
void describeArguments(Description& made, List<Parameters...> /*parameters*/) {
    std::size_t count = 0;
    ((passingOfS<Parameters> != Passing::Rest
          ? void(made.arguments[count++] = Argument<Parameters>::typeWord)
          : void(made.rest = restTypeS<std::remove_cvref_t<Parameters>>)),
     ...);
}

template <class F>
Description describe(std::shared_ptr<F> callable) {
    using Signature = typename SignatureOf<F>::Type;
    using Result = typename Signature::Result;
    Description made;
    made.callable = std::move(callable);
    made.read = readBy<F>;
    if constexpr (!std::is_void_v<Result>) {
        made.result = TypeOf<std::remove_cvref_t<Result>>::Type::typeCode;
    }
    made.minimum = Signature::minimum;
    made.maximum = Signature::maximum;
    describeArguments(made, typename Signature::Parameters());
    describeContainers(made, typename Signature::Parameters());
    describeObjects<Result>(made, typename Signature::Parameters());
    made.takesInterpreter = Signature::takesInterpreter;
    return made;
}

}  // namespace Host

}  // namespace SCR
