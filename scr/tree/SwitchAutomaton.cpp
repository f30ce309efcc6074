#include "scr/tree/SwitchAutomaton.h"

#include <algorithm>
#include <map>
#include <utility>

#include "fsm/Analysis.h"
#include "fsm/PatternOptions.h"
#include "scr/Interpreter.h"
#include "scr/message/Messages.h"
#include "scr/run/AutomataAccount.h"
#include "scr/run/CountedWork.h"

namespace SCR {

namespace {

// The states of an automaton that is searched for unreachable cases. Where it is larger, or the
// list makes several, cases are looked at pair by pair, which takes some seconds at most.
constexpr std::size_t maxAnalysedStatesS = 20000;
// Warnings for one switch; the others are only counted.
constexpr std::size_t maxWarningsS = 50;

Messages::Message tooLarge(const FND::String& error) {
    return {.code = MessageCode::PatternSize, .text = error};
}

}  // namespace

void SwitchAutomaton::add(std::unique_ptr<StringNode> label, int line) {
    lines_.push_back(line);
    if (actInterpreterG != nullptr && actInterpreterG->isChecking()) {
        places_.push_back(parsedText());
    }
    labels_.push_back(std::move(label));
}

std::optional<Messages::Message> SwitchAutomaton::build(Interpreter* interpreter, std::size_t step,
                                                        const FND::String& /*file*/) {
    std::optional<AutomataScope> scope;
    if (interpreter != nullptr) scope.emplace(*interpreter);
    if (list_ == nullptr) {
        isShared_ = interpreter != nullptr && interpreter->filledScript() != nullptr;
        list_ = std::make_unique<FSM::EngineGroup>();
        list_->stateLimit(stateLimit_);
        if (interpreter != nullptr) list_->byteLimit(interpreter->limits().patternBytes());
    }
    if (step != finalStep) {
        auto failure = insert(labels_[step]->result());
        isRefused_ = isRefused_ || failure;
        return failure;
    }
    if (isRefused_) return std::nullopt;  // told already
    FND::String error;
    if (!group_.take(std::move(list_), error)) return tooLarge(error);
    if (interpreter != nullptr && interpreter->isChecking()) {
        warnOfUnreached();
    }
    if (isShared_) {
        for (const auto& label : labels_) patterns_.push_back(label->result());
    }
    dropLabels();
    return std::nullopt;
}

bool SwitchAutomaton::adopt(const PendingBuild& built) {
    const auto* const other = dynamic_cast<const SwitchAutomaton*>(&built);
    const auto isSame = [](const std::unique_ptr<StringNode>& label, const FND::String& pattern) {
        return label->result() == pattern;
    };
    if (other == nullptr || stateLimit_ != other->stateLimit_ ||
        !std::ranges::equal(labels_, other->patterns_, isSame)) {
        return false;
    }
    group_.share(other->group_);
    dropLabels();
    return true;
}

void SwitchAutomaton::dropLabels() {
    decltype(labels_)().swap(labels_);
    decltype(lines_)().swap(lines_);
}

std::optional<Messages::Message> SwitchAutomaton::insert(const FND::String& pattern) {
    FND::String error;
    if (!FSM::checkPattern(pattern, error)) {
        return Messages::illegalRegularExpression(pattern, error);
    }
    if (!list_->insertPattern(pattern)) return tooLarge(list_->error());
    return std::nullopt;
}

void SwitchAutomaton::warnOfUnreached() {
    std::optional<FSM::Analysis> analysis;
    if (group_->stateCount() <= maxAnalysedStatesS) analysis = FSM::analyse(*group_, 0);
    if (!analysis) {
        std::vector<FND::String> patterns;
        patterns.reserve(labels_.size());
        for (const auto& label : labels_) patterns.push_back(label->result());
        analysis = FSM::analyse(patterns, 0);
    }
    if (!analysis) return;
    std::vector<FND::String> sentences = FSM::unreachedCases(*analysis, lines_);
    if (sentences.size() > maxWarningsS) {
        const std::size_t rest = sentences.size() - maxWarningsS;
        sentences.resize(maxWarningsS);
        sentences.push_back(std::to_string(rest) + " more cases are never reached");
    }
    // In the order of the sentences.
    std::map<std::int32_t, FND::String> reasons;
    const auto named = [&](std::int32_t path) {
        const auto index = static_cast<std::size_t>(path);
        return index < labels_.size()
                   ? "`" + labels_[index]->result() + "` in line " + std::to_string(lines_[index])
                   : FND::String();
    };
    for (const std::int32_t path : analysis->empty) reasons[path] = "it matches no text";
    for (const FSM::Analysis::Shadowed& shadowed : analysis->shadowed) {
        constexpr std::size_t mostNamed = 5;
        FND::String& reason = reasons[shadowed.path];
        for (std::size_t i = 0; i < std::min(shadowed.by.size(), mostNamed); ++i) {
            reason += (i == 0 ? "" : ", ") + named(shadowed.by[i]);
        }
        reason +=
            shadowed.by.size() == 1 ? " matches all its texts" : " together match all its texts";
    }
    auto reason = reasons.begin();
    for (const FND::String& sentence : sentences) {
        Warning warning{{.code = MessageCode::CaseNotReached, .text = sentence}, {}, 0};
        if (reason != reasons.end()) {
            const auto index = static_cast<std::size_t>(reason->first);
            warning.message.reason =
                "the case `" + labels_[index]->result() + "` is never reached: " + reason->second;
            warning.line = lines_[index];
            if (index < places_.size()) warning.at = places_[index];
            ++reason;
        }
        warnings_.push_back(std::move(warning));
    }
}

std::int32_t SwitchAutomaton::firstOfLarge(const FND::String& text) const {
    countWork(text.size());
    return group_->firstPath(text, countWork);
}

}  // namespace SCR
