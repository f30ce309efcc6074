#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/Log.h"

namespace SCR {

class Array;
class Interpreter;
class Node;
class Variable;

/// A place of a script that an `Observation` tells about.
struct ObservedSite {
    enum class Kind : std::uint8_t {
        Function,   ///< A function, or the script itself, which is site 0.
        Statement,  ///< A statement, or the head of one that holds others.
        Condition,  ///< The condition of an `if` or a loop.
        Case,       ///< A label of a switch, or its `default`.
        Operand,    ///< An operand of a comparison or of `and` and `or`; only for events.
        Selector,   ///< What a switch chooses by; only for events.
        Argument,   ///< The value passed to a parameter; only for events.
        Assigned,   ///< A value that is assigned, with the name of its target; only for events.
        Returned    ///< The value that a function returns; only for events.
    };
    static constexpr std::size_t none = ~std::size_t{0};

    Kind kind = Kind::Statement;
    FND::String file;  ///< empty for the main text
    int line = 0;      ///< 1-based, where it begins
    int column = 0;    ///< in bytes, 1-based
    int lastLine = 0;
    FND::String text;          ///< as in the script, in one line; of a function its name
    std::size_t function = 0;  ///< the site of the function that it is in
    std::size_t owner = none;  ///< the statement that it belongs to or lies in, or none
    std::size_t count = none;  ///< for `Observation`
    std::size_t otherwise = none;
    std::size_t scope = none;  ///< the innermost block of a statement; for steps and events
    std::size_t names = 0;     ///< how many names were declared before it; likewise
};

/// A variable of a script, or a constant, by the name that a statement uses.
struct ObservedName {
    FND::String name;
    Variable* variable = nullptr;  ///< The script's.
    bool isGlobal = false;         ///< Declared outside of functions and of blocks.
};

/// Watches how the scripts of an interpreter run: how often each place is reached, where a script
/// is at any moment, and, for who derives from this class, each statement, condition and value as
/// it comes. An interpreter that is given one compiles scripts with nodes for it; without one,
/// nothing is there and nothing is paid.
///
/// Counts and positions are kept by the code of a script as well as by its tree. Scripts that send
/// events run where their nodes call this class; take `CodeTier::Tree` for them. What a stopped
/// script did not reach is not counted, provided that no function had called itself.
///
/// The interpreter's thread uses this class; `where` may be called by any thread while no script is
/// being compiled. An observation serves one interpreter at a time, and must outlive what that
/// compiles meanwhile.
class KESTREL_API Observation {
public:
    /// What is observed: a sum of these.
    static constexpr unsigned countsCM = 1;
    static constexpr unsigned positionsCM = 2;
    static constexpr unsigned eventsCM = 4;
    static constexpr unsigned stepsCM = 8;  ///< events except for `value` and `chosen`

    explicit Observation(unsigned aspects) : aspects_(aspects) {}
    Observation(const Observation&) = delete;
    Observation& operator=(const Observation&) = delete;
    virtual ~Observation();

    unsigned aspects() const { return aspects_; }
    bool has(unsigned aspect) const { return (aspects_ & aspect) != 0; }

    /// The sites of the script compiled last, each statement before what lies in it. The same text
    /// gives the same sites.
    const std::deque<ObservedSite>& sites() const { return sites_; }

    /// How often something happened while nodes ran, and how often in code.
    struct Count {
        long tree = 0;
        long code = 0;
        long all() const { return tree + code; }
    };
    /// How often the site was reached: a statement begun, a function entered, a label chosen, and
    /// how often a condition held.
    Count reached(std::size_t site) const;
    /// How often a condition did not hold.
    Count otherwise(std::size_t site) const;

    /// Fills `stack` with the statement that runs now, then the one with the call that it is in,
    /// and so on; empties it when none runs. A function that calls itself is there once. Gives
    /// whether the statement runs in code. Any thread, if positions are observed.
    bool where(std::vector<std::size_t>& stack) const;

    // Events, while `listen(true)`. The arguments are sites.

    virtual void statement(std::size_t site);
    virtual void condition(std::size_t site, bool holds);
    virtual void chosen(std::size_t site);
    virtual void value(std::size_t site, const FND::String& text);
    virtual void entered(std::size_t site);
    virtual void left(std::size_t site);
    /// The running script logged a message, which the log has.
    virtual void message(const Diagnostic& diagnostic);
    /// The run is over, at its end or because it was stopped: after each call of the interpreter,
    /// or of what is bound to it, by which a host compiles, executes or evaluates.
    virtual void ended();
    void listen(bool listens) { listens_ = listens; }
    bool listens() const { return listens_; }

    /// The variables that a statement can use, those of the innermost block first, as far as they
    /// are declared before it; only for steps and events. They stay valid until the next compile.
    std::vector<ObservedName> namesAt(std::size_t site) const;

    // Used by the parts of the library.

    KESTREL_HIDDEN void clear();
    /// Whether the position is kept, for `where` or for what a stopped script did not reach.
    KESTREL_HIDDEN bool keepsPosition() const { return has(countsCM | positionsCM); }
    KESTREL_HIDDEN bool tellsSteps() const { return has(eventsCM | stepsCM); }
    /// A name was declared in `block`.
    KESTREL_HIDDEN void declare(const FND::String& name, Variable* variable, const Node* block);
    /// Notes for the statement `site` what is visible where `open` are the open blocks.
    KESTREL_HIDDEN void setScope(ObservedSite& site, const std::vector<Node*>& open);
    /// The blocks around a statement, from the outermost inwards.
    KESTREL_HIDDEN std::vector<Node*> blocksAt(std::size_t site) const;
    KESTREL_HIDDEN std::size_t add(ObservedSite site);
    KESTREL_HIDDEN std::size_t addCount();
    KESTREL_HIDDEN Count& countAt(std::size_t count) { return counts_[count]; }
    KESTREL_HIDDEN ObservedSite& siteAt(std::size_t site) { return sites_[site]; }
    /// Where the position is kept: twice the number of the site, from 1 on, and 1 more in code.
    KESTREL_HIDDEN long* position() { return &position_; }
    /// Where the position of the call is kept that the function `site` is in.
    KESTREL_HIDDEN long* callerOf(std::size_t site) { return &callers_[site]; }
    /// A label is chosen only right after the selector; otherwise it is passed.
    /// `statement` is the switch; none afterwards.
    KESTREL_HIDDEN void choose(std::size_t statement) { choosing_ = statement; }
    KESTREL_HIDDEN std::size_t choosing() const { return choosing_; }
    /// How many variables were declared, and forgets those after the first `count`.
    KESTREL_HIDDEN std::size_t declared() const { return declared_.size(); }
    KESTREL_HIDDEN void keepDeclared(std::size_t count);
    /// The run is over, at its end or because it was stopped.
    KESTREL_HIDDEN void leave(bool isStopped);

private:
    struct Scope {
        Node* block;
        std::size_t outer;
    };
    struct Declared {
        ObservedName name;
        const Node* block;
    };

    void forget(std::size_t site);

    const unsigned aspects_;
    bool listens_ = false;
    std::size_t choosing_ = ObservedSite::none;
    std::deque<ObservedSite> sites_;
    std::deque<Count> counts_;  // nodes and code know their addresses
    std::deque<long> callers_;  // by site
    std::vector<long> missed_;  // by site: how often a stopped script did not come there
    long position_ = 0;
    std::vector<Scope> scopes_;
    std::vector<std::size_t> openScopes_;  // those of the blocks that were open last
    std::vector<Declared> declared_;
};

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
