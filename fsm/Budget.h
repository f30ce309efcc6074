#pragma once

#include <cstddef>

#include "fnd/Export.h"

namespace FSM {

/// What the building of automata may take. A host that builds patterns of strangers derives from it
/// and builds within a `BudgetScope`. The budget is asked before memory is taken and is told of
/// work done; it may throw to give up.
///
/// Its exceptions pass through the function of the engine that was called. The engine is then as
/// after a failure: a pattern that was being inserted is not in it. An engine that was being set up
/// has given its memory back and matches nothing until `clear`.
class KESTREL_API Budget {
public:
    Budget() = default;
    Budget(const Budget&) = delete;
    Budget& operator=(const Budget&) = delete;
    virtual ~Budget();

    /// Asked before `bytes` of memory are taken; throws to refuse them.
    virtual void take(std::size_t bytes) = 0;
    /// Told when `bytes` that were taken are free again: after a build, or when an engine is
    /// destroyed, in whatever scope and thread that happens.
    virtual void give(std::size_t bytes) noexcept = 0;
    /// Told of `steps` of work, of some nanoseconds each, several times per millisecond; throws to
    /// give up.
    virtual void work(std::size_t steps) = 0;
};

/// While it lives, the engines that the calling thread makes, fills and sets up, and its analyses,
/// are charged to a budget. May be nested; the innermost one counts.
class KESTREL_API BudgetScope {
public:
    /// `budget` is not owned and must outlive these engines; null charges nobody.
    explicit BudgetScope(Budget* budget);
    BudgetScope(const BudgetScope&) = delete;
    BudgetScope& operator=(const BudgetScope&) = delete;
    ~BudgetScope();

private:
    Budget* const outer_;
};

}  // namespace FSM
