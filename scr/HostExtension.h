#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <type_traits>
#include <utility>

#include "fnd/Export.h"
#include "scr/Extension.h"
#include "scr/FctDescr.h"
#include "scr/HostFunction.h"
#include "scr/HostTypes.h"
#include "scr/Interpreter.h"

namespace SCR {

namespace Host {

/// What stands next to a variable of type `T` in an expression, as a `T`.
template <class T, class U>
decltype(auto) operandOf(const U& value) {
    if constexpr (requires { value.isDeclared(); }) {
        return operandOf<T>(value.value());
    } else if constexpr (std::is_same_v<T, U>) {
        return (value);
    } else if constexpr (std::is_same_v<T, long>) {
        static_assert(Integer<U> && (sizeof(U) < sizeof(long) || std::is_signed_v<U>),
                      "a variable of type long takes integers that fit it");
        return static_cast<long>(value);
    } else if constexpr (std::is_same_v<T, FND::Decimal>) {
        static_assert(Integer<U> && (sizeof(U) < sizeof(long) || std::is_signed_v<U>),
                      "a variable of type FND::Decimal takes an FND::Decimal or an integer; for a "
                      "double say FND::Decimal::fromDouble, for a text fromString");
        return FND::Decimal(static_cast<std::int64_t>(value));
    } else if constexpr (std::is_same_v<T, FND::String>) {
        static_assert(std::is_convertible_v<const U&, std::string_view>,
                      "a variable of type FND::String takes texts");
        return std::string_view(value);
    } else {
        static_assert(std::is_same_v<T, U>,
                      "a variable of type bool, FND::DateTime or FND::Identifier takes values of "
                      "its own type only");
        return T();
    }
}

template <class T>
concept Ordered = std::three_way_comparable<T, std::weak_ordering>;

/// Where a variable's value lies, and whether scripts see it.
struct Storage {
    void* value;
    bool isDeclared;
};

}  // namespace Host

/// A variable that a host shares with scripts: reads and writes go straight to the storage that the
/// script uses. It stands for that variable like a reference: it is assigned, compared and changed
/// as its value is, by values of its own type and of those that become it without loss, such as
/// integers for a Decimal and `const char*` for a String. The extension that made it owns the
/// variable, and this object is valid as long as the extension. Do not write to it while a callable
/// still reads a reference into it.
template <class T>
class HostVariable {
public:
    HostVariable(T& value, bool isDeclared) : value_(&value), isDeclared_(isDeclared) {}
    HostVariable(const HostVariable&) = default;
    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment): assigns the value, which may be its own
    HostVariable& operator=(const HostVariable& other) { return *this = *other.value_; }
    HostVariable& operator=(const T& value) {
        *value_ = value;
        return *this;
    }
    template <class U>
    HostVariable& operator=(const U& value) {
        *value_ = Host::operandOf<T>(value);
        return *this;
    }

    template <class U>
    HostVariable& operator+=(const U& value) {
        if constexpr (std::is_same_v<T, FND::String>) {
            value_->append(std::string_view(Host::operandOf<T>(value)));
            return *this;
        } else {
            return change(value, std::plus<>());
        }
    }
    template <class U>
    HostVariable& operator-=(const U& value) {
        return change(value, std::minus<>());
    }
    template <class U>
    HostVariable& operator*=(const U& value) {
        return change(value, std::multiplies<>());
    }
    template <class U>
    HostVariable& operator/=(const U& value) {
        return change(value, std::divides<>());
    }

    template <class U>
    friend bool operator==(const HostVariable& a, const U& b) {
        return *a.value_ == Host::operandOf<T>(b);
    }
    template <class U>
    friend auto operator<=>(const HostVariable& a, const U& b) {
        static_assert(Host::Ordered<T>, "variables of type FND::Identifier have no order");
        return *a.value_ <=> Host::operandOf<T>(b);
    }

    const T& value() const { return *value_; }
    void value(const T& value) { *value_ = value; }
    operator const T&() const { return *value_; }
    /// Whether scripts see it: false when its name was refused.
    bool isDeclared() const { return isDeclared_; }

private:
    template <class U, class Change>
    HostVariable& change(const U& value, const Change& made) {
        constexpr bool isKnown =
            std::is_invocable_v<const Change&, const T&, const T&> && !std::is_same_v<T, bool>;
        static_assert(isKnown,
                      "this operator works on variables of type long and FND::Decimal, += on "
                      "FND::String too");
        if constexpr (isKnown) *value_ = made(*value_, Host::operandOf<T>(value));
        return *this;
    }

    T* value_;  // in a variable of the extension
    bool isDeclared_;
};

/// An extension that a host fills with functions, variables and constants of its own, without
/// writing a class:
///
///     SCR::HostExtension* host = SCR::HostExtension::insert(interpreter, "host");
///     host->function("area", [](long width, long height) { return width * height; });
///     auto total = host->variable<long>("total");
/// Add names before compiling the scripts that use them. A name must be an identifier and may be
/// given only once; any other name is refused: nothing changes, the result says so and an error is
/// logged. A name that scripts can reach only as "host::name", because it is a keyword, built in or
/// a global constant of the host, causes a warning. The interpreter's log gets these messages, at
/// the latest when the extension is inserted. Scripts call the functions on the thread that runs
/// the interpreter. Only this thread uses the extension and its variables.
class KESTREL_API HostExtension final : public Extension {
public:
    /// `name` is the module name, which scripts may put before the extension's names. It must be an
    /// identifier; otherwise no interpreter takes the extension.
    explicit HostExtension(FND::String name);
    ~HostExtension() override;

    /// Inserts a new extension, which `interpreter` owns. Null, after a logged error, when the
    /// interpreter already has one of this name or the name is no identifier.
    static HostExtension* insert(Interpreter& interpreter, const FND::String& name);

    /// Makes `callable`, a function pointer, lambda or functor, the function `name` of scripts. The
    /// extension keeps a copy. The parameters' types decide what the script passes:
    ///   any integer type                       Long; one that does not fit is an error
    ///   `bool`                                 Bool
    ///   `std::string_view`, `const FND::String&`  String
    ///   `FND::Decimal`, `FND::DateTime`, `FND::Identifier`  Decimal, Date, Nexid
    ///   `long&`, `bool&`, `FND::String&`, ...  a variable that the callable reads and writes
    ///   `std::optional` of a value, at the end an argument that may be left out
    ///   `SCR::Rest<T>`, the very last one      any number of arguments of the type `T`
    ///   `SCR::ArrayView<T>`, `SCR::HashView<T>`  an array or a hash of elements `T`, which it
    ///   reads `SCR::ArrayRef<T>`, `SCR::HashRef<T>`  the same, which it may change
    ///   `SCR::Object<T>`                       an object of the type declared for the class `T`
    ///   `SCR::FieldAlias`                      a name, as of a field (only as the first argument)
    /// and the result's type, one of the values above or void, decides what it gets. A first
    /// parameter `SCR::Interpreter&` is the interpreter that runs the script. References and views
    /// are valid during the call; a result of type `const FND::String&` must not change before the
    /// next call. At most nine arguments.
    ///
    /// A callable that throws, or calls `Interpreter::fail`, stops the script as a limit does: the
    /// log says where and "name: what", variables keep their values, and `execute` gives false.
    /// Gives the descriptor, owned by the extension, or null when the name is refused. If scripts
    /// should go on after a failure of the function, set `nullOnFailure(true)`: the log then gets
    /// "name: what", and the script gets the null value of the type. If the function runs no script
    /// code, set `mayRunScript(false)`: scripts then avoid copies of strings next to its calls. One
    /// that writes variables or changes containers keeps true, whatever is set.
    template <class F>
    FctDescr* function(const FND::String& name, F&& callable);

    /// Makes `name` a function over containers of any of the types `Elements`: `callable` is a
    /// functor whose constant `operator()` is a template of the element type, such as
    ///
    ///     host->functionOver<long, FND::Decimal>("top", []<class T>(SCR::ArrayView<T> all) {
    ///         return all.size() > 0 ? *std::max_element(all.begin(), all.end()) : T();
    ///     });
    /// A call takes the instance for the elements of its first container. All instances take the
    /// same number of arguments.
    template <class... Elements, class F>
    FctDescr* functionOver(const FND::String& name, const F& callable);

    /// Makes `name` a function that may stand on the left of "=": `reader` as for `function`, and
    /// `writer`, which takes the reader's arguments and then the value, and gives void or whether
    /// it stored. Neither has out-parameters.
    ///
    ///     record->field("edrLong", [&](FieldAlias field) { return read(field.id()); },
    ///                   [&](FieldAlias field, long value) { write(field.id(), value); });
    template <class R, class W>
    FctDescr* field(const FND::String& name, R&& reader, W&& writer);

    /// Sets how field names become the numbers that `FieldAlias::id` gives. Called once for each
    /// place in a script that names a field, while the script is compiled; a negative number is a
    /// compile error, "unknown field". Functions that throw or are empty give errors and 0.
    /// `names` gives the names that there are, for messages about others.
    void fieldIds(Host::FieldIds ids, Host::FieldNames names = {});

    /// Declares a variable that scripts see as `name` and the host uses through the result: `T` is
    /// `long`, `bool`, `FND::String`, `FND::Decimal`, `FND::DateTime` or `FND::Identifier`. When
    /// the name is taken by a variable of the same type, gives that one, unchanged. When the name
    /// is refused, gives a variable that scripts do not see; `isDeclared` tells.
    template <class T>
    HostVariable<T> variable(const FND::String& name, const std::type_identity_t<T>& value = T{});

    /// Declares a constant of the type that fits `value`: an integer, a bool, a text or one of the
    /// value classes. False when the name is refused.
    template <class T>
    bool constant(const FND::String& name, const T& value);

    /// Declares `name` as the type of objects of the class `T`, which functions take and give as
    /// `SCR::Object<T>` (scr/HostObject.h). Scripts declare variables, arrays, hashes, parameters
    /// and results of the type; handles of two types do not mix. A name that scripts have for such
    /// types already (Ebuf, Flist, Iterator, Nxid) will do, too. Do this before the functions that
    /// use it. False, after an error, when the name or the class is taken.
    template <class T>
    bool type(const FND::String& name) {
        return declareType(&Host::kindOfS<T>, name);
    }
    /// The object is gone, or will be: all handles of it are dead from now on, and its share is
    /// given up. False when scripts have none.
    template <class T>
    bool forget(const T* object) {
        return forgetObject(&Host::kindOfS<T>, object);
    }

    /// Says what the function `name` does, for those who write scripts: `parameters` are the names
    /// of its parameters, apart by commas, `manual` is sentences in Markdown, `example` a piece of
    /// a script. False, after an error, when there is no such function, or another number of names.
    bool describe(const FND::String& name, const FND::String& parameters, const FND::String& manual,
                  const FND::String& example = {});
    /// The functions as JSON, as `kestrel functions --json` prints those of the library. The
    /// language server reads it as the option `functions`, for hover, completion and checks.
    FND::String functionsAsJson() const;

    // For bindings to other languages, where types are known at run time only.

    /// Makes a function of what `description` says; null when the name is refused.
    FctDescr* insert(const FND::String& name, Host::Description description);
    /// Declares a variable, or a constant, of the base type `typeCode` with a copy of the value of
    /// that type at `value`.
    Host::Storage declare(const FND::String& name, int typeCode, const void* value);
    bool declareConstant(const FND::String& name, int typeCode, const void* value);
    /// What `type` and `forget` do; `kind` is an address that stands for a class.
    bool declareType(const void* kind, const FND::String& name);
    bool forgetObject(const void* kind, const void* object);

    void visitNames(const std::function<void(const FND::String& name)>& visit) const override;
    FND::String extensionName() const override;
    Variable* variable(const FND::String& name) override;

    /// Called before `interpreter` takes ownership of the extension; its log gets the messages from
    /// now on. False, after a message, when the extension's name is no identifier.
    KESTREL_HIDDEN bool enter(Interpreter& interpreter);

private:
    struct State;

    const std::unique_ptr<State> state_;
};

template <class F>
FctDescr* HostExtension::function(const FND::String& name, F&& callable) {
    using Bare = std::decay_t<F>;
    static_assert(Host::Callable<Bare>,
                  "a host function must be a function pointer, or a lambda or functor with one "
                  "operator() that is no template, so that its parameter types are known; a "
                  "member function is called from a lambda");
    if constexpr (Host::Callable<Bare>) {
        using Signature = typename Host::SignatureOf<Bare>::Type;
        static_assert(
            Signature::parametersKnown,
            "a parameter of a host function must be an integer, bool, std::string_view, "
            "FND::String, FND::Decimal, FND::DateTime, FND::Identifier or SCR::Object (by value "
            "or const reference), std::optional or SCR::Rest of one of them, SCR::FieldAlias, "
            "SCR::ArrayView, ArrayRef, HashView or HashRef of a type of elements, or as "
            "an out-parameter a reference to long, bool or one of the FND classes");
        static_assert(
            Signature::optionalsLast,
            "std::optional parameters of a host function must be the last ones, and after "
            "them at most one SCR::Rest");
        static_assert(Signature::resultKnown,
                      "the result of a host function must be void, an integer, bool, "
                      "std::string_view, FND::String, FND::Decimal, FND::DateTime, "
                      "FND::Identifier or SCR::Object, by value or const reference");
        static_assert(Signature::maximum <= 9, "a host function takes at most nine arguments");
        if constexpr (Signature::parametersKnown && Signature::optionalsLast &&
                      Signature::resultKnown && Signature::maximum <= 9) {
            return insert(name, Host::describe(std::make_shared<Bare>(std::forward<F>(callable))));
        }
    }
    return nullptr;
}

template <class... Elements, class F>
FctDescr* HostExtension::functionOver(const FND::String& name, const F& callable) {
    static_assert(sizeof...(Elements) > 0 && (Host::Element<Elements> && ...),
                  "the elements of containers are long, bool, FND::String, FND::Decimal, "
                  "FND::DateTime, FND::Identifier, SCR::Array or SCR::Hash");
    static_assert((Host::SignatureOf<Host::Instance<F, Elements>>::Type::parametersKnown && ...) &&
                      (Host::SignatureOf<Host::Instance<F, Elements>>::Type::resultKnown && ...),
                  "parameters and result of a function over containers are those of any host "
                  "function, and its first container has elements of the type of the template");
    std::vector<Host::Description> all{Host::describe(
        std::make_shared<Host::Instance<F, Elements>>(Host::Instance<F, Elements>{callable}))...};
    Host::Description first = all.front();
    first.variants = std::move(all);
    return insert(name, std::move(first));
}

template <class R, class W>
FctDescr* HostExtension::field(const FND::String& name, R&& reader, W&& writer) {
    using Reader = std::decay_t<R>;
    using Writer = std::decay_t<W>;
    static_assert(Host::Callable<Reader> && Host::Callable<Writer>,
                  "reader and writer of a field must be function pointers, or lambdas or functors "
                  "with one operator() that is no template, so that their parameter types are "
                  "known");
    if constexpr (Host::Callable<Reader> && Host::Callable<Writer>) {
        constexpr bool fits = Host::fieldFitsS<typename Host::SignatureOf<Reader>::Type,
                                               typename Host::SignatureOf<Writer>::Type>;
        static_assert(fits,
                      "the writer of a field must take the reader's parameters and then a value "
                      "of the type that the reader gives, and give void or bool; neither has "
                      "out-parameters, and the reader gives a value");
        if constexpr (fits) {
            Host::Description field =
                Host::describe(std::make_shared<Reader>(std::forward<R>(reader)));
            field.result |= TypeCode::LeftFlag;
            field.writer = std::make_shared<Writer>(std::forward<W>(writer));
            field.write = Host::writeBy<Writer>;
            return insert(name, std::move(field));
        }
    }
    return nullptr;
}

template <class T>
HostVariable<T> HostExtension::variable(const FND::String& name,
                                        const std::type_identity_t<T>& value) {
    static_assert(Host::Stored<T>,
                  "a host variable is of type long, bool, FND::String, FND::Decimal, "
                  "FND::DateTime or FND::Identifier");
    if constexpr (Host::Stored<T>) {
        const Host::Storage made = declare(name, Host::TypeOf<T>::Type::typeCode, &value);
        return HostVariable<T>(*static_cast<T*>(made.value), made.isDeclared);
    }
}

template <class T>
bool HostExtension::constant(const FND::String& name, const T& value) {
    if constexpr (Host::Integer<T>) {
        static_assert(sizeof(T) < sizeof(long) || std::is_signed_v<T>,
                      "a constant of the type Long holds signed numbers of 64 bits");
        const long number = value;
        return declareConstant(name, TypeCode::Long, &number);
    } else if constexpr (Host::Stored<T>) {
        return declareConstant(name, Host::TypeOf<T>::Type::typeCode, &value);
    } else {
        constexpr bool isText = std::is_convertible_v<const T&, std::string_view>;
        static_assert(isText,
                      "a host constant is an integer, a bool, a text, FND::Decimal, "
                      "FND::DateTime or FND::Identifier");
        if constexpr (isText) {
            const FND::String text{std::string_view(value)};
            return declareConstant(name, TypeCode::String, &text);
        } else {
            return false;
        }
    }
}

}  // namespace SCR
