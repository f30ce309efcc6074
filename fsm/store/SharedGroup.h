#pragma once

#include <cstddef>
#include <memory>

#include "fnd/String.h"
#include "fsm/EngineGroup.h"
#include "fsm/store/Account.h"

namespace FSM {

/// A hold on a finished group. All that hold groups with the same patterns, numbers, options and
/// limits share one, which is forgotten with its last hold. Each charges it to a budget of its own.
/// Used by one thread at a time; different holds are independent.
class SharedGroup {
public:
    /// Sets `group` up, or takes an equal one that is held already. False, with the reason in
    /// `error`, if its patterns pass a limit. Throws the exceptions of the budget.
    bool take(std::unique_ptr<EngineGroup> group, FND::String& error);

    /// Holds the group of `other` as well, and charges nothing: `other` does.
    void share(const SharedGroup& other) {
        held_ = other.held_;
        group_ = other.group_;
    }

    explicit operator bool() const { return held_ != nullptr; }
    /// Only when there is one.
    const EngineGroup& operator*() const { return *group_; }
    const EngineGroup* operator->() const { return group_; }

private:
    struct Held;
    class Cache;

    std::shared_ptr<const Held> held_;
    const EngineGroup* group_ = nullptr;  // in it
    Charge charge_;
};

}  // namespace FSM
