#pragma once

#include <cstddef>

#include "fnd/Export.h"

namespace FSM {

/// What the building of automata may take. A host that builds patterns of strangers derives from
/// it and builds within a `BudgetScope`: it is asked before memory is taken and told of the work
/// done, and may throw to give up.
///
/// What it throws passes through the function of the engine that was called. The engine then is as
/// after a failure: a pattern that was being inserted is not in it, and one that was being set up
/// has given its memory back and matches nothing until `clear`.
class KESTREL_API Budget {
public:
    Budget() = default;
    Budget(const Budget&) = delete;
    Budget& operator=(const Budget&) = delete;
    virtual ~Budget();

    /// Asked before `bytes` of memory are taken; throws to refuse them.
    virtual void take(std::size_t bytes) = 0;
    /// Told when `bytes` that were taken are free again: after a build, or when an engine ends, in
    /// whichever scope and thread that is.
    virtual void give(std::size_t bytes) noexcept = 0;
    /// Told of `steps` of work, of some nanoseconds each, several times in a millisecond; throws to
    /// give up.
    virtual void work(std::size_t steps) = 0;
};

/// While it lives, the engines that the calling thread makes, fills and sets up are charged to a
/// budget, and so is what it analyses. May be nested; the innermost one holds.
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
