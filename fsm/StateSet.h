#pragma once

#include <cstddef>
#include <unordered_set>

#include "fsm/store/Account.h"

namespace FSM {

class State;

/// An unordered collection of states. It does not own them, but destroys them on request. Used by
/// one thread at a time.
class StateSet {
public:
    /// 0: `insert` refuses a state that is already a member. 1: it appends without checking.
    explicit StateSet(int allowDuplicates) : allowDuplicates_(allowDuplicates != 0) {}
    StateSet(const StateSet&) = delete;
    StateSet& operator=(const StateSet&) = delete;

    /// Adds `state`; false if it was refused.
    bool insert(State* state);
    bool isEmpty() const { return members_.empty(); }
    std::size_t size() const { return members_.size(); }
    /// The members in the order of insertion, until the next change.
    const Vector<State*>& members() const { return members_; }

    /// Moves all members of `other` here; `other` is empty then. Neither set may refuse duplicates.
    void takeAll(StateSet& other);

    /// Removes all members.
    void clear();
    /// Deletes the member states; the set keeps its now dangling members.
    void destroyEntries();
    /// Deletes the member states and removes them.
    void clearAndDestroy();

    /// Whether both have the same members, in any order.
    bool operator==(const StateSet& other) const;
    /// Compares only the addresses of the first members; an empty set is less than any other.
    bool operator<(const StateSet& other) const;

private:
    bool contains(State* state) const;

    bool allowDuplicates_;
    Vector<State*> members_;
    std::unordered_set<const State*> index_;  // of the members, once there are many
};

}  // namespace FSM
