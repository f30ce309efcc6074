#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/CompareInterface.h"

namespace SCR {

/// A list of conditions, each an expression of type Bool, that a host evaluates as often as it
/// likes. In it `text =~ pattern` holds when the pattern matches the whole text; a text ends at its
/// first NUL. A constant pattern is compiled once, any other when it differs from the one before;
/// one that is invalid then is logged once and matches nothing.
///
/// The conditions use the variables of the interpreter, which must outlive the list, and of the
/// script that it has compiled. Once the interpreter compiles another script, all that a list does
/// with conditions of the script before is to log an error and give false, until it is cleared. One
/// thread at a time, that of the interpreter. Nothing is thrown.
class KESTREL_API ConditionList final : public CompareInterface {
public:
    /// An empty list. `interpreter` is not owned.
    explicit ConditionList(Interpreter& interpreter);
    ~ConditionList() override;

    /// Compiles conditions, each ended by ";", and adds them at the end. False, after a message,
    /// when one does not compile: then none is added.
    bool compile(const FND::String& text);
    /// Destroys all conditions. While they are evaluated, it logs an error instead.
    void clear();
    /// The number of conditions; they are numbered from 0 in the order of the text.
    std::int32_t size() const;

    // Each of the following counts as one execution for the interpreter's limits. They give false,
    // and leave the result as it was, when the evaluation was stopped or an error ended it.

    /// Puts into `value` whether condition `index` holds; one that does not exist does not.
    bool holds(std::int32_t index, bool& value);
    /// Puts into `value` whether all conditions hold, evaluating no more after one that does not.
    bool all(bool& value);
    /// Puts into `index` the first condition that holds, or -1; evaluates none after it.
    bool first(std::int32_t& index);
    /// Evaluates all conditions and puts into `indices`, ascending, those that hold. What the
    /// vector held before is dropped, whatever is returned; its memory is kept.
    bool holding(std::vector<std::int32_t>& indices);

    /// Adds a condition; called by the interpreter.
    bool condition(BoolNode* condition) override;
    /// Puts a match in the place of its operands; called by the interpreter.
    bool comparePattern(Interpreter& interpreter, ParserStack& stack) override;

private:
    struct State;

    const std::unique_ptr<State> state_;
};

}  // namespace SCR
