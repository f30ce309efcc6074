#include "fsm/NonDetState.h"

#include <algorithm>
#include <atomic>
#include <ostream>
#include <string>

#include "fsm/Pool.h"
#include "fsm/StateSet.h"

namespace FSM {

namespace {

std::atomic<std::int64_t> nonDetStateobjIdS = 0;

// Never destroyed: states may outlive the other statics of the process.
Pool<NonDetState>& nonDetStatePool() {
    static auto& pool = *new Pool<NonDetState>;
    return pool;
}

}  // namespace

NonDetState::NonDetState(std::int64_t id)
    : State(id != -1 ? id : nonDetStateobjIdS.fetch_add(1, std::memory_order_relaxed)) {}

void* NonDetState::operator new(std::size_t) { return nonDetStatePool().take(); }

void NonDetState::operator delete(void* memory) { nonDetStatePool().give(memory); }

void NonDetState::freeMemoryPool() { nonDetStatePool().freeMemory(); }

State* NonDetState::succState(unsigned char c) const {
    for (const Transition& transition : transitions_) {
        if (transition.last < c) continue;
        if (transition.first > c) break;
        return transition.target;
    }
    return c == '\n' ? nullptr : wildCard_;
}

void NonDetState::succStates(unsigned char first, unsigned char last, State* target) {
    if (last < first) return;
    // The common case: the new transition comes after all others.
    if (target != nullptr && (transitions_.empty() || transitions_.back().last < first)) {
        if (!transitions_.empty() && transitions_.back().target == target &&
            transitions_.back().last + 1 == first) {
            transitions_.back().last = last;
        } else {
            transitions_.push_back({first, last, target});
        }
        return;
    }
    std::vector<Transition> changed;
    bool placed = target == nullptr;
    auto place = [&] {
        if (!placed) changed.push_back({first, last, target});
        placed = true;
    };
    for (const Transition& old : transitions_) {
        if (old.last < first) {
            changed.push_back(old);
            continue;
        }
        if (old.first < first) {
            changed.push_back({old.first, static_cast<unsigned char>(first - 1), old.target});
        }
        if (old.last > last) {
            place();
            changed.push_back(
                {std::max(old.first, static_cast<unsigned char>(last + 1)), old.last, old.target});
        }
    }
    place();
    transitions_ = std::move(changed);
}

State* NonDetState::addEpsilonSuccState() {
    epsilons_.reserve(epsilons_.size() + 1);
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
    out << std::string(indent, ' ') << "  epsilon ->";
    for (const State* target : epsilons_) {
        out << ' ';
        printNumber(numbers, out, target);
    }
    out << '\n';
}

}  // namespace FSM
