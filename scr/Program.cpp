#include "scr/Program.h"

#include <utility>

#include "scr/Interpreter.h"
#include "scr/run/SharedScript.h"

namespace SCR {

struct Program::State {
    explicit State(Setup given) : setup(std::move(given)) {}

    const Setup setup;
    Log log;
    // The automata are charged to it.
    Interpreter interpreter{&log};
    SharedScript script;
    std::vector<Finding> findings;
    Outcome outcome{Outcome::Kind::Refused};
};

Program::Program(const FND::String& text, Setup setup) noexcept {
    try {
        const auto state = std::make_shared<State>(std::move(setup));
        if (state->setup) state->setup(state->interpreter);
        state->outcome = state->interpreter.share(text, state->script, state->findings);
        state_ = state;
    } catch (...) {
    }
}

const Outcome& Program::outcome() const {
    static const Outcome none(Outcome::Kind::Refused);
    return state_ != nullptr ? state_->outcome : none;
}

const std::vector<Diagnostic>& Program::diagnostics() const {
    static const std::vector<Diagnostic> none;
    return state_ != nullptr ? state_->interpreter.diagnostics() : none;
}

const std::vector<Finding>& Program::findings() const {
    static const std::vector<Finding> none;
    return state_ != nullptr ? state_->findings : none;
}

std::shared_ptr<const SharedScript> Program::script() const {
    if (!*this) return nullptr;
    return {state_, &state_->script};
}

const Program::Setup& Program::setup() const {
    static const Setup none;
    return state_ != nullptr ? state_->setup : none;
}

}  // namespace SCR
