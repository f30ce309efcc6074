#include "scr/tree/SwitchAutomaton.h"

#include <utility>

#include "fsm/Analysis.h"
#include "fsm/PatternCheck.h"
#include "scr/Interpreter.h"
#include "scr/message/Messages.h"
#include "scr/run/AutomataAccount.h"
#include "scr/run/CountedWork.h"

namespace SCR {

namespace {

// The steps of a search for unreachable cases, as a check must not take long.
constexpr std::size_t maxAnalysedStatesS = 20000;
// Warnings for one switch; the others are only counted.
constexpr std::size_t maxWarningsS = 50;

}  // namespace

void SwitchAutomaton::add(std::unique_ptr<StringNode> label, int line) {
    lines_.push_back(line);
    labels_.push_back(std::move(label));
}

std::optional<FND::String> SwitchAutomaton::build(Interpreter* interpreter, std::size_t step,
                                                  const FND::String& file) {
    std::optional<AutomataScope> scope;
    if (interpreter != nullptr) scope.emplace(*interpreter);
    if (!group_) {
        group_.emplace();
        group_->stateLimit(stateLimit_);
        if (interpreter != nullptr) group_->byteLimit(interpreter->limits().patternBytes());
    }
    if (step != finalStep) return insert(labels_[step]->result());
    if (!group_->finalSetup()) return group_->error();
    if (interpreter != nullptr && interpreter->isChecking()) {
        warnOfUnreached(*interpreter, file);
    }
    decltype(labels_)().swap(labels_);
    decltype(lines_)().swap(lines_);
    return std::nullopt;
}

std::optional<FND::String> SwitchAutomaton::insert(const FND::String& pattern) {
    FND::String error;
    if (!FSM::checkPattern(pattern, error)) return Messages::illegalRegularExpression(pattern);
    if (!group_->insertPattern(pattern)) return group_->error();
    return std::nullopt;
}

void SwitchAutomaton::warnOfUnreached(Interpreter& interpreter, const FND::String& file) const {
    if (group_->stateCount() > maxAnalysedStatesS) return;
    const std::optional<FSM::Analysis> analysis = FSM::analyse(*group_, 0);
    if (!analysis) return;
    std::vector<FND::String> sentences = FSM::unreachedCases(*analysis, lines_);
    if (sentences.size() > maxWarningsS) {
        const std::size_t rest = sentences.size() - maxWarningsS;
        sentences.resize(maxWarningsS);
        sentences.push_back(std::to_string(rest) + " more cases are never reached");
    }
    for (const FND::String& sentence : sentences) {
        interpreter.log(Messages::warning(file, sentence), FND::Status::Warning);
    }
}

std::int32_t SwitchAutomaton::firstOfLarge(const FND::String& text) const {
    countWork(text.size());
    return group_->firstPath(text, countWork);
}

}  // namespace SCR
