#include "fsm/store/Account.h"

namespace FSM {

namespace {

struct Current {
    Budget* budget = nullptr;
    std::size_t steps = 0;  // not reported yet
};

// In the library's own static storage, so that reading it needs no call.
[[gnu::tls_model("initial-exec")]] constinit thread_local Current currentS;

}  // namespace

Budget::~Budget() = default;

BudgetScope::BudgetScope(Budget* budget) : outer_(std::exchange(currentS.budget, budget)) {}

BudgetScope::~BudgetScope() { currentS.budget = outer_; }

Budget* currentBudget() { return currentS.budget; }

void countWork(std::size_t steps) {
    constexpr std::size_t interval = 4096;
    if (currentS.budget == nullptr) return;
    currentS.steps += steps;
    if (currentS.steps >= interval) [[unlikely]]
        currentS.budget->work(std::exchange(currentS.steps, 0));
}

}  // namespace FSM
