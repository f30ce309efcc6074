#include "scr/ConditionList.h"

#include <algorithm>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

#include "fsm/PatternOptions.h"
#include "fsm/store/SharedGroup.h"
#include "scr/Interpreter.h"
#include "scr/Node.h"
#include "scr/call/Binding.h"
#include "scr/message/Messages.h"
#include "scr/message/Quote.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParserStack.h"
#include "scr/run/AutomataAccount.h"
#include "scr/run/Entry.h"
#include "scr/run/Link.h"
#include "scr/run/MemoryCharge.h"
#include "scr/run/PendingBuilds.h"
#include "scr/run/RunControl.h"
#include "scr/value/LargeText.h"

namespace SCR {

namespace {

// A pattern that matches whole texts; until it is compiled it matches none.
class WholePattern {
public:
    // False, with the reason in `error`, when the pattern is invalid or needs more states than the
    // limit allows; it matches nothing then.
    bool compile(Interpreter& interpreter, const FND::String& pattern, FND::String& error) {
        const AutomataScope scope(interpreter);
        group_ = FSM::SharedGroup();
        if (!FSM::checkPattern(pattern, error)) return false;
        auto list = std::make_unique<FSM::EngineGroup>();
        // Otherwise a text that leaves the automaton would count as an empty one.
        list->options({.leavesByTextbook = true});
        const std::int64_t states = interpreter.limits().states;
        list->stateLimit(static_cast<std::size_t>(std::max<std::int64_t>(states, 1)));
        list->byteLimit(interpreter.limits().patternBytes());
        if (list->insertPattern(pattern)) return group_.take(std::move(list), error);
        error = list->error();
        return false;
    }

    bool matches(std::string_view text) const { return group_ && group_->firstPath(text) >= 0; }

private:
    FSM::SharedGroup group_;
};

// A constant pattern.
class ConstantPattern final : public PendingBuild {
public:
    explicit ConstantPattern(std::unique_ptr<StringNode> pattern) : pattern_(std::move(pattern)) {}

    std::optional<Messages::Message> build(Interpreter* interpreter, std::size_t /*step*/,
                                           const FND::String& /*file*/) override {
        FND::String error;
        const FND::String& pattern = pattern_->result();
        if (compiled_.compile(*interpreter, pattern, error)) return std::nullopt;
        return Messages::illegalPattern(pattern, error);
    }

    bool matches(std::string_view text) const { return compiled_.matches(text); }

private:
    const std::unique_ptr<StringNode> pattern_;
    WholePattern compiled_;
};

// `text =~ pattern` for a constant pattern.
class ConstantMatch final : public BoolNode {
public:
    ConstantMatch(std::unique_ptr<StringNode> text, std::shared_ptr<ConstantPattern> pattern)
        : text_(std::move(text)), pattern_(std::move(pattern)) {}
    bool result() override { return pattern_->matches(text_->result()); }

private:
    const std::unique_ptr<StringNode> text_;
    const std::shared_ptr<ConstantPattern> pattern_;
};

// `text =~ pattern` for any other pattern.
class VariableMatch final : public BoolNode {
public:
    VariableMatch(Interpreter& interpreter, std::unique_ptr<StringNode> text,
                  std::unique_ptr<StringNode> pattern, bool keepsText)
        : interpreter_(interpreter),
          text_(std::move(text)),
          pattern_(std::move(pattern)),
          keepsText_(keepsText) {}

    bool result() override {
        const FND::String& text = text_->result();
        if (keepsText_) {
            const HeldCopy<FND::String> kept(text);
            return matches(kept.value(), pattern_->result());
        }
        return matches(text, pattern_->result());
    }

private:
    bool matches(const FND::String& text, const FND::String& pattern) {
        if (!isCompiled_ || !areEqual(lastPattern_, pattern)) {
            isCompiled_ = false;
            growBuffer(lastPattern_, pattern.size());
            lastPattern_ = pattern;
            FND::String error;
            if (!compiled_.compile(interpreter_, pattern, error)) {
                interpreter_.logError("=~: illegal pattern " + quotedValue(pattern) + ": " + error,
                                      this, {});
            }
            isCompiled_ = true;
        }
        return compiled_.matches(text);
    }

    Interpreter& interpreter_;
    const std::unique_ptr<StringNode> text_;
    const std::unique_ptr<StringNode> pattern_;
    const bool keepsText_;  // evaluating the pattern may run script code
    FND::String lastPattern_;
    bool isCompiled_ = false;  // lastPattern_ was compiled, or is invalid
    WholePattern compiled_;
};

bool checkString(int type) {
    return Node::baseType(type) == TypeCode::String ||
           SCR_YaccError(Messages::patternComparisonType(type));
}

}  // namespace

struct ConditionList::State {
    explicit State(Interpreter& owner) : interpreter(owner) {}

    // Whether the conditions belong to the script that is compiled now; false after a message.
    bool isCurrent();
    bool holds(std::size_t index);
    template <class Action>
    bool run(Action action);
    // Calls action() as one call of the host.
    template <class Action>
    bool attempt(const Action& action) {
        const LightUse use(interpreter.link());
        return use && action();
    }
    template <class Action>
    Outcome watch(const Action& action, Outcome::Kind otherwise = Outcome::Kind::Failed) {
        const auto call = [&] { return action() ? Outcome::Kind::Finished : otherwise; };
        return interpreter.watch(std::ref(call));
    }
    bool compile(ConditionList& list, const FND::String& text);
    bool check(ConditionList& list, const FND::String& text);
    bool evaluate(std::int32_t index, bool& value);
    bool evaluateAll(bool& value);
    bool findFirst(std::int32_t& index);
    bool findAll(std::vector<std::int32_t>& indices);

    Interpreter& interpreter;
    std::vector<std::unique_ptr<BoolNode>> conditions;
    std::int64_t buffers = 0;  // bytes taken by the conditions' nodes
    std::uint64_t generation = 0;
    bool isEvaluating = false;
};

ConditionList::ConditionList(Interpreter& interpreter)
    : state_(new (std::nothrow) State(interpreter)) {
    if (state_ == nullptr) interpreter.logOutOfMemory();
}

ConditionList::~ConditionList() = default;

std::int32_t ConditionList::size() const {
    return state_ != nullptr ? static_cast<std::int32_t>(state_->conditions.size()) : 0;
}

bool ConditionList::compile(const FND::String& text) {
    return state_ != nullptr && state_->attempt([&] { return state_->compile(*this, text); });
}

Outcome ConditionList::tryCompile(const FND::String& text) {
    if (state_ == nullptr) return Outcome(Outcome::Kind::Failed);
    return state_->watch([&] { return state_->compile(*this, text); }, Outcome::Kind::Invalid);
}

bool ConditionList::State::compile(ConditionList& list, const FND::String& text) {
    if (conditions.empty()) generation = interpreter.generation();
    if (!isCurrent()) return false;
    const std::size_t before = conditions.size();
    std::int64_t taken = 0;
    if (interpreter.compileConditions(text, list, taken, false)) {
        buffers += taken;
        return true;
    }
    conditions.resize(before);
    interpreter.runControl().giveBuffer(static_cast<std::size_t>(taken));
    return false;
}

bool ConditionList::check(const FND::String& text) {
    return state_ != nullptr && state_->attempt([&] { return state_->check(*this, text); });
}

bool ConditionList::State::check(ConditionList& list, const FND::String& text) {
    if (conditions.empty()) generation = interpreter.generation();
    if (!isCurrent()) return false;
    const std::size_t before = conditions.size();
    std::int64_t taken = 0;
    const bool isGood = interpreter.compileConditions(text, list, taken, true);
    conditions.resize(before);
    interpreter.runControl().giveBuffer(static_cast<std::size_t>(taken));
    return isGood;
}

void ConditionList::clear() {
    if (state_ == nullptr) return;
    State& state = *state_;
    if (state.isEvaluating) {
        state.interpreter.logError("ERROR: can not clear conditions while they are evaluated");
        return;
    }
    state.conditions.clear();
    const std::int64_t buffers = std::exchange(state.buffers, 0);
    // Whatever belonged to a script that is gone was given back together with that script.
    if (state.generation == state.interpreter.generation()) {
        state.interpreter.runControl().giveBuffer(static_cast<std::size_t>(buffers));
    }
}

bool ConditionList::State::isCurrent() {
    if (generation == interpreter.generation()) return true;
    interpreter.noteStop(Outcome::Kind::Refused, {}, {});
    interpreter.logError("ERROR: the conditions belong to a script that is gone");
    return false;
}

bool ConditionList::State::holds(std::size_t index) {
    constexpr std::size_t workOfCondition = 64;
    try {
        countWork(workOfCondition);
        return conditions[index]->result();
    } catch (ScriptStopped& stopped) {
        interpreter.runControl().stoppedAt("condition " + std::to_string(index) + ": ");
        throw;
    }
}

template <class Action>
bool ConditionList::State::run(Action action) {
    if (!conditions.empty() && !isCurrent()) return false;
    const bool isInner = std::exchange(isEvaluating, true);
    const bool isDone = enterRun(
        interpreter,
        [&] {
            action();
            return true;
        },
        &buffers);
    isEvaluating = isInner;
    return isDone;
}

bool ConditionList::State::evaluate(std::int32_t index, bool& value) {
    const auto at = static_cast<std::size_t>(index);
    return run([&] { value = index >= 0 && at < conditions.size() && holds(at); });
}

bool ConditionList::State::evaluateAll(bool& value) {
    return run([&] {
        std::size_t i = 0;
        while (i < conditions.size() && holds(i)) ++i;
        value = i == conditions.size();
    });
}

bool ConditionList::State::findFirst(std::int32_t& index) {
    return run([&] {
        std::size_t i = 0;
        while (i < conditions.size() && !holds(i)) ++i;
        index = i < conditions.size() ? static_cast<std::int32_t>(i) : -1;
    });
}

bool ConditionList::State::findAll(std::vector<std::int32_t>& indices) {
    indices.clear();
    return run([&] {
        for (std::size_t i = 0; i < conditions.size(); ++i) {
            if (holds(i)) indices.push_back(static_cast<std::int32_t>(i));
        }
    });
}

bool ConditionList::holds(std::int32_t index, bool& value) {
    return state_ != nullptr && state_->attempt([&] { return state_->evaluate(index, value); });
}

bool ConditionList::all(bool& value) {
    return state_ != nullptr && state_->attempt([&] { return state_->evaluateAll(value); });
}

bool ConditionList::first(std::int32_t& index) {
    return state_ != nullptr && state_->attempt([&] { return state_->findFirst(index); });
}

bool ConditionList::holding(std::vector<std::int32_t>& indices) {
    return state_ != nullptr && state_->attempt([&] { return state_->findAll(indices); });
}

Result<bool> ConditionList::tryHolds(std::int32_t index) {
    if (state_ == nullptr) return Outcome(Outcome::Kind::Failed);
    bool value = false;
    Outcome outcome = state_->watch([&] { return state_->evaluate(index, value); });
    if (!outcome) return outcome;
    return value;
}

Result<bool> ConditionList::tryAll() {
    if (state_ == nullptr) return Outcome(Outcome::Kind::Failed);
    bool value = false;
    Outcome outcome = state_->watch([&] { return state_->evaluateAll(value); });
    if (!outcome) return outcome;
    return value;
}

Result<std::int32_t> ConditionList::tryFirst() {
    if (state_ == nullptr) return Outcome(Outcome::Kind::Failed);
    std::int32_t index = -1;
    Outcome outcome = state_->watch([&] { return state_->findFirst(index); });
    if (!outcome) return outcome;
    return index;
}

Outcome ConditionList::tryHolding(std::vector<std::int32_t>& indices) {
    if (state_ == nullptr) return Outcome(Outcome::Kind::Failed);
    return state_->watch([&] { return state_->findAll(indices); });
}

bool ConditionList::condition(BoolNode* condition) {
    std::unique_ptr<BoolNode> owned(condition);
    if (state_ == nullptr) return false;
    state_->conditions.push_back(std::move(owned));
    return true;
}

bool ConditionList::comparePattern(Interpreter& interpreter, ParserStack& stack) {
    const int patternType = stack.popType();
    const int textType = stack.popType();
    if (!checkString(textType) || !checkString(patternType)) return false;
    const OperandTraits traits = stack.traits(0).with(stack.traits(1));
    const bool patternMayRunScript = stack.traits(0).mayRunScript();
    auto pattern = stack.pop<StringNode>();
    auto text = stack.pop<StringNode>();
    if (!Node::isConst(patternType)) {
        return pushNested(interpreter, stack,
                          std::make_unique<VariableMatch>(interpreter, std::move(text),
                                                          std::move(pattern), patternMayRunScript),
                          TypeCode::Bool, traits);
    }
    auto constant = std::make_shared<ConstantPattern>(std::move(pattern));
    return buildLater(constant) &&
           pushNested(interpreter, stack,
                      std::make_unique<ConstantMatch>(std::move(text), std::move(constant)),
                      TypeCode::Bool, traits);
}

}  // namespace SCR
