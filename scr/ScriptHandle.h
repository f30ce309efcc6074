#pragma once

#include <array>
#include <cmath>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "fnd/Export.h"
#include "scr/HostTypes.h"
#include "scr/Interpreter.h"
#include "scr/Outcome.h"

namespace SCR {

struct Link;

/// A Decimal as the nearest double, for hosts that ask for it: reading rounds to the precision of
/// a double. Plain `double` refuses a Decimal that a double cannot hold.
struct Rounded {
    double value = 0;
};

/// What the handles of variables and functions have in common. A handle belongs to the script that
/// the interpreter had compiled when it was made. It is dead once that script is gone, and when the
/// interpreter is. Every use of a handle tells by its outcome what is wrong, and has no effect
/// then: the handle is dead or was never made, another thread uses the interpreter, or a value does
/// not fit. A plain value to copy. Thread rule of the interpreter.
class KESTREL_API ScriptHandle {
public:
    /// Whether it can be used now, or why not.
    Outcome outcome() const noexcept;
    explicit operator bool() const noexcept { return static_cast<bool>(outcome()); }

protected:
    ScriptHandle() noexcept = default;

    friend class Interpreter;
    friend class HandleUse;

    std::shared_ptr<Link> link_;
    std::uint64_t generation_ = 0;
    void* target_ = nullptr;  // a variable, or what a call needs
    std::shared_ptr<const void> owner_;
    FND::String name_;
    Outcome refusal_{Outcome::Kind::Refused};  // why it was not made
};

/// Keeps a handle in use.
class KESTREL_API HandleUse {
public:
    explicit HandleUse(const ScriptHandle& handle) noexcept;
    HandleUse(const HandleUse&) = delete;
    HandleUse& operator=(const HandleUse&) = delete;
    ~HandleUse();

    explicit operator bool() const { return target_ != nullptr; }
    /// Why it cannot be used.
    Outcome refusal() const noexcept;
    /// A refusal for `problem`, about the value that the handle stands for.
    Outcome refusal(const char* problem) const noexcept;

    void* target() const { return target_; }
    Interpreter& interpreter() const;

private:
    const ScriptHandle& handle_;
    void* target_ = nullptr;
    bool isOutermost_ = false;
    bool isForeign_ = false;  // another thread uses the interpreter
};

/// How values of C++ and values of scripts become each other.
namespace Host {

/// Why a value does not fit; null when it does.
using Problem = const char*;

/// `Storage` is what a script stores for the type `T`. `read` and `write` copy a value. `shape`
/// has the type codes of the script's type from the outermost inwards.
template <class T>
struct Exchange {};

template <class T, class StorageT>
struct PlainExchange {
    using Storage = StorageT;
    static constexpr std::array<int, 1> shape{ElementOf<StorageT>::typeCode};
};

template <Stored T>
struct Exchange<T> : PlainExchange<T, T> {
    static Problem read(const T& stored, T& value, Interpreter* /*interpreter*/) {
        value = stored;
        return nullptr;
    }
    static Problem write(T& stored, const T& value, Interpreter* /*interpreter*/) {
        stored = value;
        return nullptr;
    }
};

template <class T>
requires(Integer<T> && !Stored<T>) struct Exchange<T> : PlainExchange<T, long> {
    static Problem read(long stored, T& value, Interpreter* /*interpreter*/) {
        if (!std::in_range<T>(stored)) return "the number does not fit the integer type";
        value = static_cast<T>(stored);
        return nullptr;
    }
    static Problem write(long& stored, T value, Interpreter* /*interpreter*/) {
        if (!std::in_range<long>(value)) return "the number does not fit a Long";
        stored = static_cast<long>(value);
        return nullptr;
    }
};

template <>
struct Exchange<std::string_view> : PlainExchange<std::string_view, FND::String> {
    static Problem read(const FND::String& stored, std::string_view& value,
                        Interpreter* /*interpreter*/) {
        value = stored;
        return nullptr;
    }
    static Problem write(FND::String& stored, std::string_view value,
                         Interpreter* /*interpreter*/) {
        stored.assign(value);
        return nullptr;
    }
};

template <>
struct Exchange<Rounded> : PlainExchange<Rounded, FND::Decimal> {
    static Problem read(const FND::Decimal& stored, Rounded& value, Interpreter* /*interpreter*/) {
        value.value = stored.toDouble();
        return nullptr;
    }
    static Problem write(FND::Decimal& stored, Rounded value, Interpreter* /*interpreter*/) {
        const FND::Decimal decimal = FND::Decimal::fromDouble(value.value);
        if (!decimal.isValid()) return "the number does not fit a Decimal";
        stored = decimal;
        return nullptr;
    }
};

/// Exact in both directions: a double is the decimal with the fewest digits that it is nearest to.
template <>
struct Exchange<double> : PlainExchange<double, FND::Decimal> {
    static Problem read(const FND::Decimal& stored, double& value, Interpreter* /*interpreter*/) {
        const double number = stored.toDouble();
        if (FND::Decimal::fromDouble(number) != stored) return "no double has the Decimal's value";
        value = number;
        return nullptr;
    }
    static Problem write(FND::Decimal& stored, double value, Interpreter* /*interpreter*/) {
        const FND::Decimal decimal = FND::Decimal::fromDouble(value);
        if (!decimal.isValid() || decimal.toDouble() != value) {
            return "no Decimal has the number's value";
        }
        stored = decimal;
        return nullptr;
    }
};

/// Nothing is the invalid Decimal, the invalid Date and the null Nexid.
template <class T>
concept Nullable = std::same_as<T, FND::Decimal> || std::same_as<T, FND::DateTime> ||
    std::same_as<T, FND::Identifier>;

template <Nullable T>
T nothing() {
    if constexpr (std::same_as<T, FND::Decimal>) {
        return FND::Decimal::invalid();
    } else {
        return TypeOf<T>::Type::null();
    }
}

template <Nullable T>
struct Exchange<std::optional<T>> : PlainExchange<std::optional<T>, T> {
    static Problem read(const T& stored, std::optional<T>& value, Interpreter* /*interpreter*/) {
        value = stored == nothing<T>() ? std::nullopt : std::optional<T>(stored);
        return nullptr;
    }
    static Problem write(T& stored, const std::optional<T>& value, Interpreter* /*interpreter*/) {
        stored = value ? *value : nothing<T>();
        return nullptr;
    }
};

/// A null or dead handle reads as no object.
template <class T>
struct Exchange<Object<T>> : PlainExchange<Object<T>, AdtVariable> {
    using Facts = ObjectFacts<Object<T>>;

    static Problem read(const AdtVariable& stored, Object<T>& value, Interpreter* interpreter) {
        if (!isOfKind(*interpreter, Facts::kind(), stored.subType())) return otherType;
        value = objectIn<T>(&stored, interpreter);
        return nullptr;
    }
    static Problem write(AdtVariable& stored, const Object<T>& value, Interpreter* interpreter) {
        if (!isOfKind(*interpreter, Facts::kind(), stored.subType())) return otherType;
        return storeObject(&stored, value, interpreter) ? nullptr : "there is no room for it";
    }

private:
    static constexpr Problem otherType = "its type is not that of the object's class";
};

template <class Inner>
constexpr auto shapeAround(int code, const Inner& inner) {
    std::array<int, std::tuple_size_v<Inner> + 1> made{code};
    for (std::size_t i = 0; i < inner.size(); ++i) made[i + 1] = inner[i];
    return made;
}

template <class T>
concept Exchanged = requires {
    typename Exchange<T>::Storage;
};

template <Exchanged T, class Allocator>
struct Exchange<std::vector<T, Allocator>> {
    using Storage = Array;
    using Element = Exchange<T>;
    using Values = std::vector<T, Allocator>;
    static constexpr auto shape = shapeAround(TypeCode::Array, Element::shape);

    static Problem read(const Array& stored, Values& values, Interpreter* interpreter) {
        const ArrayView<typename Element::Storage> view(stored);
        values.clear();
        values.reserve(view.size());
        for (unsigned long i = 0; i < view.size(); ++i) {
            T value{};
            if (const Problem problem = Element::read(view[i], value, interpreter)) return problem;
            values.push_back(std::move(value));
        }
        return nullptr;
    }
    static Problem write(Array& stored, const Values& values, Interpreter* interpreter) {
        const ArrayRef<typename Element::Storage> to(stored, interpreter);
        if (!to.resize(values.size())) return noRoom;
        unsigned long index = 0;
        for (const T& value : values) {
            if (const Problem problem = store(to, index++, value, interpreter)) return problem;
        }
        return nullptr;
    }

private:
    static constexpr Problem noRoom = "there is no room for the elements";

    template <class Key, class To>
    static Problem store(const To& to, const Key& key, const T& value, Interpreter* interpreter) {
        auto* const element = to.at(key);
        return element != nullptr ? Element::write(*element, value, interpreter) : noRoom;
    }
};

template <Exchanged T, class... Rest>
struct Exchange<std::unordered_map<FND::String, T, Rest...>> {
    using Storage = Hash;
    using Element = Exchange<T>;
    using Values = std::unordered_map<FND::String, T, Rest...>;
    static constexpr auto shape = shapeAround(TypeCode::Hash, Element::shape);

    static Problem read(const Hash& stored, Values& values, Interpreter* interpreter) {
        Problem problem = nullptr;
        values.clear();
        HashView<typename Element::Storage>(stored).forEach(
            [&](const FND::String& key, const typename Element::Storage& element) {
                T value{};
                const Problem found = Element::read(element, value, interpreter);
                if (problem == nullptr) problem = found;
                values.emplace(key, std::move(value));
            });
        return problem;
    }
    static Problem write(Hash& stored, const Values& values, Interpreter* interpreter) {
        const HashRef<typename Element::Storage> to(stored, interpreter);
        to.clear();
        for (const auto& [key, value] : values) {
            auto* const element = to.at(key);
            const Problem problem = element != nullptr
                                        ? Element::write(*element, value, interpreter)
                                        : "there is no room for the elements";
            if (problem != nullptr) return problem;
        }
        return nullptr;
    }
};

/// What a variable of the type of `T` stores.
template <class T>
typename Exchange<T>::Storage& storageIn(Variable& variable) {
    using Holder = typename ElementOf<typename Exchange<T>::Storage>::Variable;
    if constexpr (std::same_as<typename Exchange<T>::Storage, Holder>) {
        return static_cast<Holder&>(variable);
    } else {
        return static_cast<Holder&>(variable).value();
    }
}

}  // namespace Host

/// A variable of the script, or one that its extensions declare. `T` decides what the variable must
/// be: an integer type a Long, `bool` a Bool, `FND::String` or `std::string_view` a String, the FND
/// values what they are to functions of a host, `double` or `Rounded` a Decimal, `std::vector<T>`
/// an array, `std::unordered_map<FND::String, T>` a hash, nested as you like, and `std::optional`
/// of a Decimal, Date or Nexid the same with nothing for its null value (of a Decimal the invalid
/// one). See `ScriptHandle` for what may go wrong.
template <class T>
class ScriptVariable : public ScriptHandle {
public:
    static_assert(Host::Exchanged<T>,
                  "the variables of scripts are read and written as integers, bool, FND::String, "
                  "std::string_view, FND::Decimal, double, SCR::Rounded, FND::DateTime, "
                  "FND::Identifier, std::optional of a Decimal, Date or Nexid, and std::vector and "
                  "std::unordered_map<FND::String, ...> of them");

    /// A dead one.
    ScriptVariable() = default;

    /// A copy of its value; a view is valid until the variable changes.
    Result<T> get() const {
        T value{};
        Outcome outcome = get(value);
        if (!outcome) return outcome;
        return value;
    }
    /// Copies its value into `value`, whose memory is used again. In case of a refusal containers
    /// may have been copied in part.
    Outcome get(T& value) const {
        const HandleUse use(*this);
        if (!use) [[unlikely]]
            return use.refusal();
        const Host::Problem problem =
            Host::Exchange<T>::read(storage(use), value, &use.interpreter());
        if (problem != nullptr) [[unlikely]]
            return use.refusal(problem);
        return {};
    }
    /// Stores a copy of `value`. Refused for a constant. Elements count under the limits; in case
    /// of a refusal a container may have been written in part.
    Outcome set(const T& value) const {
        const HandleUse use(*this);
        if (!use) [[unlikely]]
            return use.refusal();
        if (!Node::isLeft(static_cast<Variable*>(use.target())->dataType()) && isScalar)
            [[unlikely]]
            return use.refusal("it is a constant");
        const Host::Problem problem =
            Host::Exchange<T>::write(storage(use), value, &use.interpreter());
        if (problem != nullptr) [[unlikely]]
            return use.refusal(problem);
        return {};
    }

private:
    static constexpr bool isScalar = Host::Exchange<T>::shape.size() == 1;

    static auto& storage(const HandleUse& use) {
        return Host::storageIn<T>(*static_cast<Variable*>(use.target()));
    }
};

/// A function of the script: `ScriptFunction<long(std::string_view, FND::Decimal)>` takes a String
/// and a Decimal and gives a Long. Result and parameters are types as for `ScriptVariable`, a
/// result may be void. A call is a run of its own under the limits of the interpreter, or, when a
/// function of the host makes it, a part of the run. A function that ends without a return gives
/// the null value of its type. As in scripts, nested calls of one function share its parameters.
template <class Signature>
class ScriptFunction;

/// One call of a script's function; its parts are used in the order in which they stand here.
class KESTREL_API FunctionUse : public HandleUse {
public:
    explicit FunctionUse(const ScriptHandle& handle) noexcept : HandleUse(handle) {}

    std::size_t parameterCount() const;
    /// The parameter `index`.
    Variable& parameter(std::size_t index) const;
    /// Runs the body; `hasResult` tells whether it returned.
    Outcome run(bool& hasResult) const;
    /// The value that it returned; null for a function that returns none.
    Variable* resultVariable() const;
};

namespace Host {

template <class T>
struct ResultExchange : Exchange<std::remove_cvref_t<T>> {};
template <>
struct ResultExchange<void> {
    static constexpr std::array<int, 1> shape{TypeCode::Void};
};

}  // namespace Host

template <class R, class... Arguments>
class ScriptFunction<R(Arguments...)> : public ScriptHandle {
public:
    static_assert((Host::Exchanged<std::remove_cvref_t<Arguments>> && ...) &&
                      (std::is_void_v<R> || Host::Exchanged<R>),
                  "result and parameters of a script's function are types that variables of "
                  "scripts may be read as, see SCR::ScriptVariable");

    /// A dead one.
    ScriptFunction() = default;

    /// Calls the function.
    Result<R> operator()(const std::remove_cvref_t<Arguments>&... arguments) const {
        const FunctionUse use(*this);
        if (!use) [[unlikely]]
            return use.refusal();
        Host::Problem problem = nullptr;
        [[maybe_unused]] std::size_t index = 0;
        (write(use, index++, arguments, problem), ...);
        if (problem != nullptr) [[unlikely]]
            return use.refusal(problem);
        bool hasResult = false;
        if (Outcome outcome = use.run(hasResult); !outcome) [[unlikely]]
            return outcome;
        if constexpr (std::is_void_v<R>) {
            return {};
        } else {
            R value{};
            if (hasResult)
                problem = Host::Exchange<R>::read(Host::storageIn<R>(*use.resultVariable()), value,
                                                  &use.interpreter());
            if (problem != nullptr) [[unlikely]]
                return use.refusal(problem);
            return value;
        }
    }

private:
    template <class T>
    static void write(const FunctionUse& use, std::size_t index, const T& value,
                      Host::Problem& problem) {
        if (problem != nullptr) return;
        problem = Host::Exchange<T>::write(Host::storageIn<T>(use.parameter(index)), value,
                                           &use.interpreter());
    }
};

namespace Host {

template <class Signature>
struct ShapesOf;
template <class R, class... Arguments>
struct ShapesOf<R(Arguments...)> {
    using Shape = std::span<const int>;
    static constexpr std::array<Shape, sizeof...(Arguments) + 1> shapes{
        Shape(ResultExchange<R>::shape), Shape(Exchange<std::remove_cvref_t<Arguments>>::shape)...};
};

}  // namespace Host

template <class T>
ScriptVariable<T> Interpreter::variable(const FND::String& name) {
    ScriptVariable<T> handle;
    if constexpr (Host::Exchanged<T>) bindVariable(handle, name, Host::Exchange<T>::shape);
    return handle;
}

template <class Signature>
ScriptFunction<Signature> Interpreter::function(const FND::String& name) {
    ScriptFunction<Signature> handle;
    bindFunction(handle, name, Host::ShapesOf<Signature>::shapes);
    return handle;
}

}  // namespace SCR
