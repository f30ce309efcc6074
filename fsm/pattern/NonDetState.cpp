#include "fsm/pattern/NonDetState.h"

#include <algorithm>
#include <atomic>
#include <ostream>
#include <string>

#include "fsm/StateSet.h"
#include "fsm/store/Pool.h"

namespace FSM {

namespace {

std::atomic<std::int64_t> nonDetStateobjIdS = 0;

// Never destroyed: states may outlive the other statics of the process.
Pool<NonDetState>& nonDetStatePool() {
    static auto& pool = *new Pool<NonDetState>;
    return pool;
}

// Made while the library is loaded, so that a fork never finds it half made.
[[maybe_unused]] const auto& statePoolS = nonDetStatePool();

}  // namespace

NonDetState::NonDetState(std::int64_t id)
    : State(id != -1 ? id : nonDetStateobjIdS.fetch_add(1, std::memory_order_relaxed)),
      charge_(blockBytes(sizeof(NonDetState))) {
    constexpr std::size_t stepsToMake = 8;
    countWork(stepsToMake);
}

void* NonDetState::operator new(std::size_t) { return nonDetStatePool().take(); }

void NonDetState::operator delete(void* memory) { nonDetStatePool().give(memory); }

void NonDetState::freeMemoryPool() { nonDetStatePool().freeMemory(); }

State* NonDetState::succState(unsigned char c) const {
    for (const Transition& transition : transitions()) {
        if (transition.last < c) continue;
        if (transition.first > c) break;
        return transition.target;
    }
    return c == '\n' ? nullptr : wildCard_;
}

void NonDetState::succStates(unsigned char first, unsigned char last, State* target) {
    if (last < first) return;
    if (target != nullptr && transitions().empty()) {
        only_ = {first, last, target};
        return;
    }
    std::vector<Transition> changed;
    bool placed = target == nullptr;
    auto append = [&](unsigned char from, unsigned char to, State* reached) {
        if (!changed.empty() && changed.back().target == reached &&
            changed.back().last + 1 == from) {
            changed.back().last = to;
        } else {
            changed.push_back({from, to, reached});
        }
    };
    auto place = [&] {
        if (!placed) append(first, last, target);
        placed = true;
    };
    for (const Transition& old : transitions()) {
        if (old.last < first) {
            append(old.first, old.last, old.target);
            continue;
        }
        if (old.first < first) {
            append(old.first, static_cast<unsigned char>(first - 1), old.target);
        }
        if (old.last > last) {
            place();
            append(std::max(old.first, static_cast<unsigned char>(last + 1)), old.last, old.target);
        }
    }
    place();
    if (changed.size() < 2) {
        only_ = changed.empty() ? Transition() : changed[0];
        std::vector<Transition>().swap(changed);
    }
    const std::size_t before = transitions_.capacity() * sizeof(Transition);
    if (!changed.empty()) charge_.take(blockBytes(changed.capacity() * sizeof(Transition)));
    transitions_ = std::move(changed);
    if (before > 0) charge_.give(blockBytes(before));
}

State* NonDetState::addEpsilonSuccState() {
    makeRoom(epsilons_, charge_);
    State* added = new NonDetState;
    epsilonSuccState(added);
    return added;
}

void NonDetState::epsilonClosure(StateSet& set) const {
    std::vector<State*> open{const_cast<NonDetState*>(this)};
    while (!open.empty()) {
        State* state = open.back();
        open.pop_back();
        if (!set.insert(state)) continue;
        const std::vector<State*>& next = state->epsilonSuccStates();
        open.insert(open.end(), next.rbegin(), next.rend());
    }
}

void NonDetState::print(const std::map<const State*, int>& numbers, std::ostream& out,
                        int indent) const {
    State::print(numbers, out, indent);
    if (epsilons_.empty()) return;
    out << std::string(static_cast<std::size_t>(indent), ' ') << "  epsilon ->";
    for (const State* target : epsilons_) {
        out << ' ';
        printNumber(numbers, out, target);
    }
    out << '\n';
}

}  // namespace FSM
