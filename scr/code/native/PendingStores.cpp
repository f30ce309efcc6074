#include "scr/code/native/PendingStores.h"

#include <algorithm>
#include <utility>

namespace SCR::Code {

namespace {

bool endsPath(Op op) { return op == Op::Jump || op == Op::Switch || op == Op::Leave; }

}  // namespace

PendingStores::PendingStores(const Listing& listing, const std::vector<std::size_t>& cached)
    : listing_(listing),
      bits_(listing.variables.size()),
      before_(listing.operations.size()),
      isLate_(listing.operations.size()),
      isReached_(listing.operations.size()) {
    for (std::size_t i = 0; i < cached.size(); ++i) bits_[cached[i]] = Set{1} << i;
    findLateStores();
    follow();
}

// A store waits if its innermost loop makes no calls; outside of loops, if nothing at all does.
void PendingStores::findLateStores() {
    const std::vector<Operation>& operations = listing_.operations;
    std::vector<std::size_t> calls(operations.size() + 1);  // before the operation
    for (std::size_t i = 0; i < operations.size(); ++i) {
        calls[i + 1] = calls[i] + (operations[i].op == Op::Call ? 1 : 0);
    }
    // From the first to the last operation, the longest first.
    std::vector<std::pair<std::size_t, std::size_t>> loops{{0, operations.size()}};
    for (std::size_t i = 0; i < operations.size(); ++i) {
        const Operation& operation = operations[i];
        if (!isJump(operation.op)) continue;
        const std::size_t target = listing_.labels[operation.label];
        if (target <= i) loops.emplace_back(target, i + 1);
    }
    std::stable_sort(loops.begin(), loops.end(), [](const auto& left, const auto& right) {
        return left.second - left.first > right.second - right.first;
    });
    for (const auto& [first, end] : loops) {
        const bool isLate = calls[first] == calls[end];
        std::fill(isLate_.begin() + static_cast<std::ptrdiff_t>(first),
                  isLate_.begin() + static_cast<std::ptrdiff_t>(end), isLate);
    }
}

void PendingStores::follow() {
    reach(0, 0);
    while (!waiting_.empty()) {
        const std::size_t at = waiting_.back();
        waiting_.pop_back();
        const Operation& operation = listing_.operations[at];
        Set pending = before_[at];
        if (operation.op == Op::Call) pending = 0;
        if (const Set set = bitOf(operation.target)) {
            pending = isLate_[at] || operation.isPassing ? pending | set : pending & ~set;
        }
        if (isJump(operation.op)) reach(listing_.labels[operation.label], pending);
        if (operation.op == Op::Switch) {
            const SwitchTable& table = listing_.switches[operation.label];
            for (const Label label : table.labels) reach(listing_.labels[label], pending);
            reach(listing_.labels[table.otherwise], pending);
        }
        if (!endsPath(operation.op)) reach(at + 1, pending);
    }
}

void PendingStores::reach(std::size_t operation, Set pending) {
    if (operation >= isReached_.size()) return;
    if (isReached_[operation] && (pending & ~before_[operation]) == 0) return;
    isReached_[operation] = true;
    before_[operation] |= pending;
    waiting_.push_back(operation);
}

}  // namespace SCR::Code
