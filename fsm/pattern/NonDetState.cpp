#include "fsm/pattern/NonDetState.h"

#include <algorithm>
#include <atomic>
#include <limits>
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

// Of a state with what most of them hold besides.
constexpr std::size_t bytesPerStateS = 128;

// Bytes of the states that a thread has made, less those of the states that it has destroyed.
struct StateBytes {
    std::int64_t held = 0;
    std::int64_t limit = std::numeric_limits<std::int64_t>::max();
};

[[gnu::tls_model("initial-exec")]] constinit thread_local StateBytes stateBytesS;

void takeRoom(std::size_t bytes) {
    const std::int64_t held = stateBytesS.held + static_cast<std::int64_t>(bytes);
    if (held > stateBytesS.limit) throw NoStateRoom();
    stateBytesS.held = held;
}

void giveRoom(std::size_t bytes) { stateBytesS.held -= static_cast<std::int64_t>(bytes); }

}  // namespace

StateRoom::StateRoom(std::size_t bytes)
    : before_(stateBytesS.held), outerLimit_(stateBytesS.limit) {
    constexpr std::size_t most = std::numeric_limits<std::int64_t>::max() / 2;
    stateBytesS.limit = before_ + static_cast<std::int64_t>(std::min(bytes, most));
}

StateRoom::~StateRoom() { stateBytesS.limit = outerLimit_; }

std::size_t StateRoom::taken() const {
    return static_cast<std::size_t>(std::max<std::int64_t>(stateBytesS.held - before_, 0));
}

NonDetState::NonDetState(std::int64_t id)
    : State(id != -1 ? id : nonDetStateobjIdS.fetch_add(1, std::memory_order_relaxed)),
      charge_(blockBytes(sizeof(NonDetState))) {
    constexpr std::size_t stepsToMake = 8;
    countWork(stepsToMake);
    takeRoom(bytesPerStateS);
}

NonDetState::~NonDetState() { giveRoom(bytesPerStateS + transitions_.size() * sizeof(Transition)); }

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
    // Most sets are given in ascending order.
    if (target != nullptr && !transitions_.empty() && transitions_.back().last + 1 < first) {
        makeRoom(transitions_, charge_);
        takeRoom(sizeof(Transition));
        transitions_.push_back({first, last, target});
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
    takeRoom(changed.size() * sizeof(Transition));
    giveRoom(transitions_.size() * sizeof(Transition));
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
