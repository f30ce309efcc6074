#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/CompareInterface.h"
#include "scr/Outcome.h"

namespace SCR {

/// A list of conditions, each an expression of type Bool, that a host evaluates as often as it
/// likes. In a condition `text =~ pattern` holds when the pattern matches the whole text; a text
/// ends at its first NUL. A constant pattern is compiled once, any other pattern whenever it
/// differs from the one before. A pattern that turns out to be invalid then is logged once and
/// matches nothing.
/// The conditions use the variables of the interpreter, which must outlive the list, and of the
/// script that it has compiled. When the interpreter compiles another script, the list stops
/// working: until it is cleared, it logs an error and gives false. Used by one thread at a time,
/// that of the interpreter. Nothing is thrown.
class KESTREL_API ConditionList final : public CompareInterface {
public:
    /// An empty list. `interpreter` is not owned.
    explicit ConditionList(Interpreter& interpreter);
    ~ConditionList() override;

    /// Compiles conditions, each ended by ";", and adds them at the end. False, after a message,
    /// when one does not compile; none is added then.
    bool compile(const FND::String& text);
    /// As `compile`, but it adds no condition, and goes on after a mistake: it reports all
    /// mistakes, at most 20, and warnings, as `Interpreter::check` does. Whether there is no
    /// mistake.
    bool check(const FND::String& text);
    /// Destroys all conditions. Logs an error instead while they are being evaluated.
    void clear();
    /// The number of conditions; they are numbered from 0 in the order of the text.
    std::int32_t size() const;

    // Each of the following counts as one execution for the interpreter's limits. They give false
    // and leave the result unchanged when the evaluation was stopped or an error ended it.

    /// Sets `value` to whether condition `index` holds; a condition that does not exist does not
    /// hold.
    bool holds(std::int32_t index, bool& value);
    /// Sets `value` to whether all conditions hold; stops at the first one that does not.
    bool all(bool& value);
    /// Sets `index` to the first condition that holds, or to -1; evaluates none after it.
    bool first(std::int32_t& index);
    /// Evaluates all conditions and fills `indices`, ascending, with those that hold. The vector
    /// loses its former contents in any case and keeps its memory.
    bool holding(std::vector<std::int32_t>& indices);

    // The same, with the outcome as a value.

    Outcome tryCompile(const FND::String& text);
    Result<bool> tryHolds(std::int32_t index);
    Result<bool> tryAll();
    Result<std::int32_t> tryFirst();
    Outcome tryHolding(std::vector<std::int32_t>& indices);

    /// Adds a condition. Called by the interpreter.
    bool condition(BoolNode* condition) override;
    /// Replaces the two operands on the stack by a match. Called by the interpreter.
    bool comparePattern(Interpreter& interpreter, ParserStack& stack) override;

private:
    struct State;

    const std::unique_ptr<State> state_;
};

}  // namespace SCR
