#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "scr/check/ScriptRecord.h"

namespace SCR {

/// A set of small numbers.
class Bits {
public:
    /// Of numbers below `size`; empty.
    explicit Bits(std::size_t size) : words_((size + 63) / 64) {}

    bool has(std::size_t number) const { return (words_[number / 64] & mask(number)) != 0; }
    void set(std::size_t number) { words_[number / 64] |= mask(number); }
    void reset(std::size_t number) { words_[number / 64] &= ~mask(number); }
    void clear() { words_.assign(words_.size(), 0); }
    /// The steps needed to work on all of it.
    std::size_t words() const { return words_.size(); }

    Bits& operator|=(const Bits& other) {
        for (std::size_t i = 0; i < words_.size(); ++i) words_[i] |= other.words_[i];
        return *this;
    }
    Bits& operator&=(const Bits& other) {
        for (std::size_t i = 0; i < words_.size(); ++i) words_[i] &= other.words_[i];
        return *this;
    }
    Bits& operator-=(const Bits& other) {
        for (std::size_t i = 0; i < words_.size(); ++i) words_[i] &= ~other.words_[i];
        return *this;
    }

private:
    static std::uint64_t mask(std::size_t number) { return std::uint64_t{1} << number % 64; }

    std::vector<std::uint64_t> words_;
};

/// The steps that an analysis may still take; an analysis that needs more gives up.
class StepBudget {
public:
    explicit StepBudget(std::size_t steps) : left_(steps) {}

    /// Takes `steps`; false when they are spent.
    bool take(std::size_t steps) {
        left_ = steps < left_ ? left_ - steps : 0;
        return left_ > 0;
    }
    bool isSpent() const { return left_ == 0; }

private:
    std::size_t left_;
};

/// Follows what a function does along all ways through it. `State` has a member `isDead`, true
/// where no way leads; `void merge(const State&)`, which joins two ways that meet; and `std::size_t
/// words() const`, the steps that a merge takes.
template <class State>
class WayFollower {
public:
    WayFollower(StepBudget& budget, State state) : state_(std::move(state)), budget_(budget) {}

    /// Calls `step(state, event)` for all events from `first` on, except those that open or close
    /// ways.
    template <class Step>
    void follow(const std::vector<ScriptRecord::Event>& events, std::uint32_t first, Step step) {
        for (std::uint32_t at = first; at < events.size(); at = events[at].next) {
            if (!budget_.take(1)) return;
            if (!followWay(events[at].kind)) step(state_, events[at]);
        }
    }

private:
    using Event = ScriptRecord::Event;

    struct Ways {
        State base;
        std::optional<State> out;  // where ways ended
        bool isOpen = true;        // one has begun and not ended
        bool isExhaustive = false;
    };

    bool followWay(Event::Kind kind) {
        switch (kind) {
            case Event::OpenMaybe:
                maybes_.push_back(state_);
                return true;
            case Event::CloseMaybe:
                join(state_, maybes_.back());
                maybes_.pop_back();
                return true;
            case Event::OpenWays:
                ways_.push_back({state_, std::nullopt});
                return true;
            case Event::NextWay: {
                State next = ways_.back().base;
                if (ways_.back().isOpen) join(next, state_);
                state_ = std::move(next);
                ways_.back().isOpen = true;
                return true;
            }
            case Event::EndWay:
                endWay();
                return true;
            case Event::Exhaustive:
                ways_.back().isExhaustive = true;
                return true;
            case Event::CloseWays: {
                endWay();
                const Ways ways = std::move(ways_.back());
                ways_.pop_back();
                state_.isDead = state_.isDead || ways.isExhaustive;
                if (ways.out) join(state_, *ways.out);
                return true;
            }
            case Event::Return:
                state_.isDead = true;
                return true;
            default:
                return false;
        }
    }

    void endWay() {
        Ways& ways = ways_.back();
        if (ways.isOpen) {
            if (ways.out) {
                join(*ways.out, state_);
            } else {
                ways.out = state_;
            }
        }
        ways.isOpen = false;
        state_ = ways.base;
    }

    void join(State& state, const State& other) {
        budget_.take(state.words());
        if (other.isDead) return;
        if (state.isDead) {
            state = other;
        } else {
            state.merge(other);
        }
    }

    State state_;
    std::vector<State> maybes_;
    std::vector<Ways> ways_;
    StepBudget& budget_;
};

}  // namespace SCR
