#pragma once

#include <cstdint>

#include "fsm/State.h"

namespace FSM {

class Table;

/// A state of a finished deterministic automaton; its transitions lie in the automaton's table.
class DetState final : public State {
public:
    explicit DetState(std::int64_t id = -1) : State(id) {}

    State* succState(unsigned char c) const override;
    void setNextWordFSM(Engine* engine) override { nextWord_ = engine; }
    Engine* getNextWordFSM() const override { return nextWord_; }

private:
    friend class Table;

    const Table* table_ = nullptr;  // owns this state
    Engine* nextWord_ = nullptr;    // not owned
};

}  // namespace FSM
