#pragma once

#include <cstddef>
#include <cstdint>

#include "fsm/Budget.h"
#include "fsm/store/Account.h"

namespace SCR {

class Interpreter;

/// The memory of the automata and regular expressions of one interpreter's scripts, as long as they
/// exist. It counts against the limits `automata` and `memory`. Building them counts as work of the
/// script. A script that would pass a limit is stopped, by `ScriptStopped`.
class AutomataAccount final : public FSM::Budget {
public:
    explicit AutomataAccount(Interpreter& interpreter) : interpreter_(interpreter) {}

    void take(std::size_t bytes) override;
    void give(std::size_t bytes) noexcept override;
    void work(std::size_t steps) override;

    /// The bytes taken and not given back.
    std::int64_t held() const { return held_; }

    // Regular expressions keep results of earlier searches. The memory for these is shared among
    // them when they are made, so their number must be known first.

    /// Announces that so many more, or fewer, regular expressions will be made.
    void expect(int expressions) { expected_ += expressions; }
    /// The bytes of results that the next expression may keep.
    std::int64_t expressionShare() const;
    /// Adds the bytes that an expression may keep.
    void shareTaken(std::int64_t bytes) { shared_ += bytes; }

private:
    Interpreter& interpreter_;
    std::int64_t held_ = 0;
    std::int64_t expected_ = 0;
    std::int64_t shared_ = 0;
};

/// While it lives, automata that the calling thread builds are charged to the account of
/// `interpreter`, if its scripts run or compile.
class AutomataScope {
public:
    explicit AutomataScope(Interpreter& interpreter);

private:
    FSM::BudgetScope scope_;
};

}  // namespace SCR
