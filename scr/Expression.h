#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/Diagnostic.h"

namespace SCR {

class Array;
class Interpreter;
class Node;
class Variable;

/// An expression of the language, of any type, that somebody asks about the compiled script: for
/// debuggers and consoles. Unlike anything else, it may be compiled and evaluated while the script
/// runs, in an event of its observation; the observation is told nothing of it. Messages are not
/// logged, but kept here. Thread rule of the interpreter, which must outlive it; it must be gone
/// before the next compile of a script.
class KESTREL_API Expression {
public:
    /// The names mean what they mean at `site`, a statement of the interpreter's observation, or
    /// at the end of the script.
    Expression(Interpreter& interpreter, const FND::String& text,
               std::size_t site = ~std::size_t{0});
    Expression(Expression&& other) noexcept;
    Expression& operator=(Expression&& other) noexcept;
    ~Expression();

    /// Whether it compiled.
    explicit operator bool() const { return node_ != nullptr; }
    /// The name of its type, such as "Long" or "String[]"; "Void" for a call without a value.
    const FND::String& type() const { return type_; }
    bool isBool() const;

    /// Evaluates it under the limits of the interpreter, into `value`, as a script would write it:
    /// a long text is cut, of a container the number of elements is told. False when it was
    /// stopped. Assignments and calls have their effects. While a script runs around it, an
    /// interruption stops the evaluation alone.
    bool evaluate(FND::String& value);
    /// The same for a Bool.
    bool holds(bool& value);
    /// The container that it came to when it was evaluated last, or null.
    Variable* container() const { return container_; }
    /// The messages of the compile, or of the last evaluation.
    const std::vector<Diagnostic>& messages() const { return messages_; }

private:
    void free() noexcept;
    template <class Action>
    bool run(Action action);

    Interpreter* interpreter_;
    std::unique_ptr<Node> node_;
    int typeWord_ = 0;
    std::int64_t bytes_ = 0;
    FND::String type_;
    Variable* container_ = nullptr;
    std::vector<Diagnostic> messages_;
};

/// The type of `variable` as a script writes it, with "const " for a constant.
KESTREL_API FND::String typeText(const Variable& variable);
/// Its value, as `Expression::evaluate` gives it.
KESTREL_API FND::String valueText(const Variable& variable);
/// The element `index` of `array`, which has it, as `valueText` gives it. An array that keeps plain
/// values goes on doing so.
KESTREL_API FND::String elementText(const Array& array, unsigned long index);

/// What a variable or an element holds.
struct Content {
    FND::String name;   ///< as a script writes it
    FND::String value;  ///< as `valueText` gives it; of a String all of it, without quotes
    bool isString = false;

    bool operator==(const Content&) const = default;
};
/// What `variable`, called `name`, holds. For a container: how many elements it has, and those, if
/// they are not more than `most` with all that lie in them, and their texts not more than 1 MiB.
/// Nothing is changed by it.
KESTREL_API std::vector<Content> contentOf(const FND::String& name, const Variable& variable,
                                           std::size_t most);

}  // namespace SCR
