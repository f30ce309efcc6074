#include "fsm/StateSet.h"

#include <algorithm>

#include "fsm/State.h"

namespace FSM {

namespace {

// Up to this many members, comparing all of them is faster than the hash index.
constexpr std::size_t linearLimitS = 16;

}  // namespace

bool StateSet::contains(State* state) const {
    if (!index_.empty()) return index_.count(state) != 0;
    return std::find(members_.begin(), members_.end(), state) != members_.end();
}

bool StateSet::insert(State* state) {
    if (!allowDuplicates_) {
        if (contains(state)) return false;
        if (!index_.empty()) {
            index_.insert(state);
        } else if (members_.size() == linearLimitS) {
            index_.insert(members_.begin(), members_.end());
            index_.insert(state);
        }
    }
    members_.push_back(state);
    return true;
}

void StateSet::takeAll(StateSet& other) {
    if (members_.size() < other.members_.size()) members_.swap(other.members_);
    members_.insert(members_.end(), other.members_.begin(), other.members_.end());
    other.members_.clear();
}

void StateSet::clear() {
    members_.clear();
    index_.clear();
}

void StateSet::destroyEntries() {
    for (State* state : members_) delete state;
}

void StateSet::clearAndDestroy() {
    destroyEntries();
    clear();
}

bool StateSet::operator==(const StateSet& other) const {
    if (members_.size() != other.members_.size()) return false;
    std::unordered_set<const State*> others(other.members_.begin(), other.members_.end());
    return std::all_of(members_.begin(), members_.end(),
                       [&](const State* state) { return others.count(state) != 0; });
}

bool StateSet::operator<(const StateSet& other) const {
    if (members_.empty() || other.members_.empty()) {
        return members_.empty() && !other.members_.empty();
    }
    return std::less<const State*>()(members_.front(), other.members_.front());
}

}  // namespace FSM
