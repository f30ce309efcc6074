#pragma once

#include <cstddef>
#include <cstdint>

#include "fsm/Account.h"
#include "fsm/Budget.h"

namespace SCR {

class Interpreter;

/// What the automata and regular expressions of one interpreter's scripts take, as long as they
/// last: it counts against the limits `automata` and `memory`. Building them counts as work of the
/// script. One that would pass a limit is stopped, by `ScriptStopped`.
class AutomataAccount final : public FSM::Budget {
public:
    explicit AutomataAccount(Interpreter& interpreter) : interpreter_(interpreter) {}

    void take(std::size_t bytes) override;
    void give(std::size_t bytes) noexcept override;
    void work(std::size_t steps) override;

    /// The bytes taken and not given back.
    std::int64_t held() const { return held_; }

    // Regular expressions keep what they found out about texts. What they all may keep is shared
    // among them when they are made, for which their number is to be known.

    /// Tells that so many more regular expressions, or fewer, are going to be made.
    void expect(int expressions) { expected_ += expressions; }
    /// The bytes that the next expression may keep.
    std::int64_t expressionShare() const;
    /// Adds what an expression may keep.
    void shareTaken(std::int64_t bytes) { shared_ += bytes; }

private:
    Interpreter& interpreter_;
    std::int64_t held_ = 0;
    std::int64_t expected_ = 0;
    std::int64_t shared_ = 0;
};

/// While it lives, what the calling thread builds is charged to the account of `interpreter`, if
/// its scripts run or compile.
class AutomataScope {
public:
    explicit AutomataScope(Interpreter& interpreter);

private:
    FSM::BudgetScope scope_;
};

}  // namespace SCR
