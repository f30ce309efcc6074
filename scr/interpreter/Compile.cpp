#include <algorithm>
#include <utility>

#include "scr/CompareInterface.h"
#include "scr/Observation.h"
#include "scr/Program.h"
#include "scr/advice/Scout.h"
#include "scr/check/Analyses.h"
#include "scr/check/Reentry.h"
#include "scr/interpreter/State.h"
#include "scr/message/Messages.h"
#include "scr/parser/Parser.h"
#include "scr/run/Entry.h"
#include "scr/run/MemoryCharge.h"
#include "scr/tree/StatementParts.h"

// What an interpreter does to compile: scripts, additions to them, conditions, queries, and checks.

namespace SCR {

namespace {

constexpr const char* beginFunctionS = "BEGIN";

// Passes messages on to the log of an interpreter, as the interpreter itself does.
class InterpreterLog final : public Log {
public:
    explicit InterpreterLog(Interpreter& interpreter) : interpreter_(interpreter) {}
    void log(const FND::String& message, FND::Status::Severity severity) override {
        interpreter_.log(message, severity);
    }
    void diagnose(const Diagnostic& diagnostic) override { interpreter_.diagnose(diagnostic); }

private:
    Interpreter& interpreter_;
};

}  // namespace

// Keeps others from compiling; false, after a message, while something is compiled or executed, as
// a compile would destroy it.
class Interpreter::CompileScope {
public:
    explicit CompileScope(State& state) : state_(state) {
        isEntered_ = !state.isCompiling && !state.control.isRunning();
        if (isEntered_) {
            state.isCompiling = true;
            state.diagnostics.clear();
            state.ofCompile = 0;
            state.hasRunDiagnostics = false;
        } else {
            contain(state.interpreter, [&] {
                state.interpreter.noteStop(Outcome::Kind::Refused, {}, {});
                state.interpreter.logError(
                    "ERROR: can not compile while the interpreter " +
                    FND::String(state.isCompiling ? "compiles" : "executes"));
                return false;
            });
        }
    }
    CompileScope(const CompileScope&) = delete;
    CompileScope& operator=(const CompileScope&) = delete;
    ~CompileScope() {
        if (!isEntered_) return;
        state_.isCompiling = false;
        state_.ofCompile = state_.diagnostics.size();
        state_.analyses = nullptr;
        state_.isChecking = false;
    }
    explicit operator bool() const { return isEntered_; }

private:
    State& state_;
    bool isEntered_;
};

bool Interpreter::compile(const FND::String& text) {
    return state_ != nullptr &&
           state_->attempt([&] { return state_->compileScript({.text = &text}); });
}

bool Interpreter::compile(const Program& program) {
    return state_ != nullptr &&
           state_->attempt([&] { return state_->compileScript({.shared = program.script()}); });
}

bool Interpreter::extend(const FND::String& text) {
    return state_ != nullptr && state_->attempt([&] { return state_->extendScript(text); });
}

bool Interpreter::State::extendScript(const FND::String& text) {
    {
        const CompileScope scope(*this);
        if (!scope || !link->isReady) return false;
        // A query may use what this replaces.
        query.reset();
        control.giveBuffer(static_cast<std::size_t>(std::exchange(queryBuffers, 0)));
        places.truncate(scriptPlaces);
        Observation* const observation = control.observation();
        const std::size_t declared = observation != nullptr ? observation->declared() : 0;
        const bool isStarted = contain(interpreter, [&] {
            symbols.startAddition();
            return true;
        });
        const auto parse = [&] {
            const NodeMemory::Scope memory;
            ExpandedText expanded;
            if (!expand(text, expanded)) return false;
            const BufferCharge charge(expanded.storage.size());
            chargeBuffer(expanded.body.size());
            return SCR_parseScript(interpreter, expanded);
        };
        if (!isStarted) return false;
        if (!enterRun(interpreter, parse)) {
            symbols.dropAddition();
            if (observation != nullptr) observation->keepDeclared(declared);
            places.truncate(scriptPlaces);
            return false;
        }
    }
    bool isDone = false;
    enterRun(interpreter, [&] {
        isDone = symbols.mainFunction()->parts().runFrom(symbols.addedFrom()) == Node::goOn;
        return true;
    });
    if (symbols.keepAddition()) {
        scriptPlaces = places.size();
    } else {
        places.truncate(scriptPlaces);
    }
    return isDone;
}

Outcome Interpreter::tryCompile(const FND::String& text) {
    if (state_ == nullptr) return Outcome(Outcome::Kind::Failed);
    return state_->watch(true, [&] {
        return state_->compileScript({.text = &text}) ? Outcome::Kind::Finished
                                                      : Outcome::Kind::Invalid;
    });
}

Outcome Interpreter::tryCompile(const Program& program) {
    if (!program) return program.outcome();
    if (state_ == nullptr) return Outcome(Outcome::Kind::Failed);
    return state_->watch(true, [&] {
        return state_->compileScript({.shared = program.script()}) ? Outcome::Kind::Finished
                                                                   : Outcome::Kind::Invalid;
    });
}

Outcome Interpreter::tryCheck(const FND::String& text) {
    if (state_ == nullptr) return Outcome(Outcome::Kind::Failed);
    return state_->watch(true, [&] {
        const bool isGood = contain(*this, [&] { return state_->checkScript(text, nullptr); });
        return isGood ? Outcome::Kind::Finished : Outcome::Kind::Invalid;
    });
}

bool Interpreter::check(const FND::String& text) {
    return state_ != nullptr && state_->attempt([&] {
        return contain(*this, [&] { return state_->checkScript(text, nullptr); });
    });
}

bool Interpreter::check(const FND::String& text, std::vector<Finding>& findings) {
    findings.clear();
    return state_ != nullptr && state_->attempt([&] {
        return contain(*this, [&] {
            FlowAnalysis flow(state_->timeZone != nullptr);
            const bool isGood = state_->checkScript(text, &flow);
            if (isGood) findings = flow.findings();
            return isGood;
        });
    });
}

Outcome Interpreter::share(const FND::String& text, SharedScript& script,
                           std::vector<Finding>& findings) {
    if (state_ == nullptr) return Outcome(Outcome::Kind::Failed);
    return state_->watch(true, [&] {
        const bool isGood = contain(*this, [&] {
            FlowAnalysis flow(state_->timeZone != nullptr);
            if (!state_->checkScript(text, &flow, &script)) return false;
            findings = flow.findings();
            return true;
        });
        return isGood ? Outcome::Kind::Finished : Outcome::Kind::Invalid;
    });
}

bool Interpreter::State::checkScript(const FND::String& text, FlowAnalysis* flow,
                                     SharedScript* fills) {
    Analyses followers;
    followers.flow = flow;
    if (!compileScript({.text = &text, .follower = &followers, .filled = fills})) return false;
    logReentries(followers.recorder.record(), text);
    return true;
}

void Interpreter::State::logReentries(const ScriptRecord& record, const FND::String& text) {
    constexpr std::size_t most = 50;
    const std::vector<Finding> findings = findReentries(record);
    for (std::size_t i = 0; i < std::min(findings.size(), most); ++i) {
        Diagnostic warning;
        warning.severity = warning.logSeverity = FND::Status::Warning;
        warning.code = codeName(MessageCode::LostValue);
        warning.place = {findings[i].file, findings[i].line, 0, 0};
        warning.text = Messages::warning(
            findings[i].file, "line " + std::to_string(findings[i].line) + ": " + findings[i].text);
        warning.isDetail =
            findings[i].file.empty() && isIgnoredInLine(text, findings[i].line, warning.code);
        interpreter.diagnose(std::move(warning));
    }
    if (findings.size() > most) {
        interpreter.log(Messages::warning({}, Messages::moreLostValues(findings.size() - most)),
                        FND::Status::Warning);
    }
}

bool Interpreter::State::parseScript(const Source& source) {
    if (mainExtension == nullptr) return false;
    if (source.text == nullptr && source.shared == nullptr) {
        interpreter.logError("ERROR: the program did not compile");
        return false;
    }
    const NodeMemory::Scope memory;
    symbols.startScript();
    // A text without includes is not copied, so the one that is shared is.
    struct Owner {
        FND::String text;
        ExpandedText expanded;
    };
    const auto own = std::make_shared<Owner>();
    const ExpandedText* expanded = &own->expanded;
    if (source.shared != nullptr) {
        expanded = source.shared->text.get();
    } else {
        if (source.filled != nullptr) own->text = *source.text;
        if (!expand(source.filled != nullptr ? own->text : *source.text, own->expanded)) {
            return false;
        }
        own->expanded.wasScrambled = source.text->starts_with("0A42");
    }
    const BufferCharge charge(own->expanded.storage.size());
    // The texts of the script's constants.
    chargeBuffer(expanded->body.size());
    filled = source.filled;
    shared = source.shared.get();
    if (!SCR_parseScript(interpreter, *expanded)) return false;
    if (filled != nullptr) filled->text = {own, expanded};
    symbols.mainFunction()->close();
    return true;
}

bool Interpreter::State::compileScript(const Source& source) {
    const CompileScope scope(*this);
    if (!scope) return false;
    analyses = source.follower;
    isChecking = source.follower != nullptr;
    discardScript();
    if (Observation* const observation = control.observation();
        observation != nullptr && source.follower == nullptr) {
        observation->clear();
    }
    program = source.shared;
    bool isGood = enterRun(interpreter, [&] { return parseScript(source); });
    filled = nullptr;
    shared = nullptr;
    link->isReady = isGood;
    scriptPlaces = places.size();
    if (isGood && source.follower == nullptr) {
        isGood = runFunction(beginFunctionS);
        runsEnd = isGood;
    }
    // A failed compile leaves an incomplete script; nothing may be bound to it.
    if (!isGood) discardScript();
    return isGood;
}

void Interpreter::State::discardScript() {
    ++link->generation;
    link->isReady = false;
    // A query may use the script's variables and functions.
    query.reset();
    queryBuffers = 0;
    symbols.clearScript();
    objects.clear();
    control.clearCharges();
    places.clear();
    scriptPlaces = 0;
    compiledLines = 0;
    runsEnd = false;
    program.reset();
}

bool Interpreter::State::expand(const FND::String& text, ExpandedText& expanded) {
    const Limits& limits = control.limits();
    PreprocessorOptions options;
    options.searchPath = includePath;
    options.lastSearchPath = lastIncludePath;
    options.includesAllowed = capabilities.include;
    options.files = includeFiles;
    options.maxBytes = std::min(limits.sourceBytes(),
                                static_cast<std::size_t>(std::max<std::int64_t>(limits.memory, 1)));
    InterpreterLog interpreterLog(interpreter);
    Preprocessor preprocessor(&interpreterLog, options);
    return preprocessor.expand(text, expanded);
}

bool Interpreter::compileConditions(const FND::String& text, CompareInterface& target) {
    if (state_ == nullptr) return false;
    std::int64_t buffers = 0;
    const bool isGood = compileConditions(text, target, buffers, false);
    // It is not known how long the host keeps them.
    state_->control.giveBuffer(static_cast<std::size_t>(buffers));
    return isGood;
}

bool Interpreter::compileConditions(const FND::String& text, CompareInterface& target,
                                    std::int64_t& buffers, bool isChecking) {
    if (state_ == nullptr) return false;
    const LightUse use(*state_->link);
    if (!use) return false;
    const CompileScope scope(*state_);
    if (scope) state_->isChecking = isChecking;
    const auto parse = [&] {
        if (state_->mainExtension == nullptr) return false;
        const NodeMemory::Scope memory;
        ExpandedText expanded;
        if (!state_->expand(text, expanded)) return false;
        const BufferCharge charge(expanded.storage.size());
        chargeBuffer(expanded.body.size());
        return SCR_parseCondition(*this, target, expanded);
    };
    return scope && enterRun(*this, parse, &buffers);
}

bool Interpreter::compileQuery(const FND::String& text) {
    return state_ != nullptr && state_->attempt([&] { return state_->compileQuery(text); });
}

Outcome Interpreter::tryCompileQuery(const FND::String& text) {
    if (state_ == nullptr) return Outcome(Outcome::Kind::Failed);
    return state_->watch(true, [&] {
        return state_->compileQuery(text) ? Outcome::Kind::Finished : Outcome::Kind::Invalid;
    });
}

bool Interpreter::State::compileQuery(const FND::String& text) {
    const CompileScope scope(*this);
    if (!scope) return false;
    query.reset();
    control.giveBuffer(static_cast<std::size_t>(std::exchange(queryBuffers, 0)));
    places.truncate(scriptPlaces);
    const auto parse = [&] {
        if (mainExtension == nullptr) return false;
        const NodeMemory::Scope memory;
        chargeBuffer(text.size());
        return SCR_parseQuery(interpreter, text, query);
    };
    if (enterRun(interpreter, parse, &queryBuffers)) return true;
    query.reset();
    return false;
}

}  // namespace SCR
