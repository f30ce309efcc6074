#include "scr/Interpreter.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <typeinfo>
#include <utility>

#include "scr/CompareInterface.h"
#include "scr/HostExtension.h"
#include "scr/MainExtension.h"
#include "scr/Observation.h"
#include "scr/Program.h"
#include "scr/advice/Scout.h"
#include "scr/check/Analyses.h"
#include "scr/check/Reentry.h"
#include "scr/code/native/Native.h"
#include "scr/message/Messages.h"
#include "scr/os/FileAccess.h"
#include "scr/os/OpenFiles.h"
#include "scr/parser/Parser.h"
#include "scr/parser/Preprocessor.h"
#include "scr/run/AutomataAccount.h"
#include "scr/run/Entry.h"
#include "scr/run/Link.h"
#include "scr/run/MemoryCharge.h"
#include "scr/run/PendingBuilds.h"
#include "scr/run/PlaceTable.h"
#include "scr/run/RunControl.h"
#include "scr/run/ScriptMutexes.h"
#include "scr/run/SharedScript.h"
#include "scr/tree/StatementParts.h"
#include "scr/tree/SymbolTable.h"
#include "scr/value/ObjectTable.h"

namespace SCR {

namespace {

constexpr const char* beginFunctionS = "BEGIN";
constexpr const char* endFunctionS = "END";
constexpr std::string_view standardOutputS = "standard output";
const FND::String outOfMemoryS = "ERROR: out of memory";

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

// What becomes known of a call whose outcome is wanted.
struct Interpreter::Watching {
    Outcome::Kind kind = Outcome::Kind::Failed;
    int depth = 0;                              // of the runs around it
    bool isCompile = false;                     // the first error counts, otherwise the last one
    bool isStopped = false;                     // kind, limit and function are known
    bool isExhausted = false;                   // there was no memory
    bool hasError = false;                      // the diagnostic is that of an error
    std::unique_ptr<Outcome::Details> details;  // rarely needed, so it takes no time to make
};

// The whole state of an interpreter.
struct Interpreter::State {
    State(Interpreter& self, Log* sink)
        : interpreter(self), log(sink), control(self), automata(self) {
        link->interpreter = &self;
    }
    ~State() {
        link->interpreter = nullptr;
        link->isReady = false;
        // Before the functions of the host.
        objects.clear();
    }

    // A text, or one that is shared, and what follows its parse or is filled by it.
    struct Source {
        const FND::String* text = nullptr;
        Analyses* follower = nullptr;
        SharedScript* filled = nullptr;
        std::shared_ptr<const SharedScript> shared = {};
    };
    // Runs "BEGIN", unless there are analyses, which then follow the parse.
    bool compileScript(const Source& source);
    bool extendScript(const FND::String& text);
    bool checkScript(const FND::String& text, FlowAnalysis* flow, SharedScript* filled = nullptr);
    bool parseScript(const Source& source);
    Outcome::Kind executeScript();
    bool compileQuery(const FND::String& text);
    bool evaluateQuery(bool& value);
    bool finish();
    // Calls action(), which throws nothing and gives the kind of the outcome; nothing while another
    // thread uses the interpreter.
    template <class Action>
    Outcome watch(bool isCompile, Action action);
    // Calls action(), which tells whether it is done, and tells nothing else.
    template <class Action>
    bool attempt(Action action);
    // Notes, for the outcome, why a call is not possible.
    void refuse(const char* reason);
    void logReentries(const ScriptRecord& record, const FND::String& text);
    void discardScript();
    bool runFunction(const FND::String& name);
    bool expand(const FND::String& text, ExpandedText& expanded);
    void deliver(const Diagnostic& diagnostic) noexcept;
    void dropRunDiagnostics() noexcept {
        if (control.isRunning()) return;
        diagnostics.resize(ofCompile);
        hasRunDiagnostics = false;
    }
    bool flushOutput(bool mayWait);

    Interpreter& interpreter;
    Log* const log;
    const std::shared_ptr<Link> link = std::make_shared<Link>();
    Watching* watching = nullptr;            // of the innermost call whose outcome is wanted
    MainExtension* mainExtension = nullptr;  // owned by the symbols
    std::int64_t compiledLines = 0;
    std::uint64_t errorCount = 0;
    int openLogs = 0;  // nested calls of the log
    bool isCompiling = false;
    bool isChecking = false;
    bool isValid = false;
    bool runsEnd = false;
    bool hasPrinted = false;       // something may wait in the output
    Analyses* analyses = nullptr;  // not owned
    std::vector<Diagnostic> diagnostics;
    std::vector<Diagnostic>* keptMessages = nullptr;  // not owned
    std::size_t ofCompile = 0;                        // the first of them, which no run drops
    bool hasRunDiagnostics = false;                   // there are others
    PendingBuilds* pendingBuilds = nullptr;           // not owned
    std::vector<FND::String> includePath;
    std::vector<FND::String> modulePath;
    std::vector<FND::String> lastIncludePath;
    std::shared_ptr<const FND::TimeZone> timeZone;  // null for the zone of the process
    Capabilities capabilities;
    std::shared_ptr<const FileAccess> files = FileAccess::any();  // granted by `capabilities`
    std::shared_ptr<const FileAccess> includeFiles = files;       // the same for include lines
    PlaceTable places;
    std::size_t scriptPlaces = 0;  // of the script; those of the query follow
    RunControl control;
    OpenFiles openFiles{control};
    Output* output = &standardOutput();  // not owned
    AutomataAccount automata;
    std::shared_ptr<const SharedScript> program;  // whose automata the script uses
    SharedScript* filled = nullptr;               // while it is compiled
    const SharedScript* shared = nullptr;
    ObjectTable objects;
    // These are destroyed first, as they use the rest.
    SymbolTable symbols;
    std::unique_ptr<BoolNode> query;
    std::int64_t queryBuffers = 0;  // bytes taken by the query's nodes
};

Interpreter::Interpreter(Log* log) {
    try {
        state_ = std::make_unique<State>(*this, log);
        control_ = &state_->control;
        auto mainExtension = std::make_unique<MainExtension>();
        if (insertExtension(mainExtension.get())) {
            state_->mainExtension = mainExtension.release();
            state_->isValid = true;
        }
    } catch (...) {
        if (state_ != nullptr) {
            logOutOfMemory();
        } else if (log != nullptr) {
            try {
                log->log(outOfMemoryS, FND::Status::Error);
            } catch (...) {
            }
        }
    }
}

Interpreter::Interpreter(const Program& program, Log* log) : Interpreter(log) {
    contain(*this, [&] {
        if (program.setup()) program.setup()(*this);
        return true;
    });
    if (!compile(program)) isValid(false);
}

Interpreter::~Interpreter() { finish(); }

template <class Action>
Outcome Interpreter::State::watch(bool isCompile, Action action) {
    const Use use(*link);
    if (!use) return Outcome::refused("another thread uses the interpreter");
    Watching now;
    now.isCompile = isCompile;
    now.depth = control.depth();
    Watching* const outer = std::exchange(watching, &now);
    const Outcome::Kind kind = action();
    watching = outer;
    if (kind <= Outcome::Kind::Returned) [[likely]]
        return Outcome(kind);
    if (now.isExhausted) return Outcome(Outcome::Kind::Failed);
    return {now.isStopped ? now.kind : kind,
            now.details != nullptr ? std::move(*now.details) : Outcome::Details()};
}

template <class Action>
bool Interpreter::State::attempt(Action action) {
    const LightUse use(*link);
    return use && action();
}

Outcome Interpreter::watch(const std::function<Outcome::Kind()>& action) {
    if (state_ == nullptr) return Outcome(Outcome::Kind::Failed);
    return state_->watch(false, [&] { return action(); });
}

void Interpreter::noteStop(Outcome::Kind kind, const FND::String& limit,
                           const FND::String& function) {
    if (state_ == nullptr || state_->watching == nullptr) return;
    Watching& watching = *state_->watching;
    if (watching.depth != state_->control.depth()) return;  // a call within the call
    watching.isStopped = true;
    watching.isCompile = false;
    watching.kind = kind;
    if (!watching.details) watching.details = std::make_unique<Outcome::Details>();
    watching.details->limit = limit;
    watching.details->function = function;
}

void Interpreter::State::refuse(const char* reason) {
    contain(interpreter, [&] {
        interpreter.noteStop(Outcome::Kind::Refused, {}, {});
        watching->details->diagnostic = Outcome::refused(reason).diagnostic();
        return false;
    });
}

Link& Interpreter::link() { return *state_->link; }
const std::shared_ptr<Link>& Interpreter::sharedLink() const { return state_->link; }
Function& Interpreter::mainFunction() { return *state_->symbols.mainFunction(); }
SharedScript* Interpreter::filledScript() const { return state_->filled; }
const SharedScript* Interpreter::sharedScript() const { return state_->shared; }

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

// A host calls this for every record.
Outcome::Kind Interpreter::State::executeScript() {
    if (!link->isReady) return Outcome::Kind::Refused;
    if (hasRunDiagnostics) [[unlikely]]
        dropRunDiagnostics();
    Function* const main = symbols.mainFunction();
    Outcome::Kind kind = Outcome::Kind::Failed;
    const bool isDone = enterRun(interpreter, [&] {
        const std::int32_t code = main->parts().runBody();
        kind = code == Node::goOn ? Outcome::Kind::Finished : Outcome::Kind::Returned;
        return true;
    });
    if (!isDone) kind = Outcome::Kind::Failed;
    if (kind != Outcome::Kind::Finished) [[unlikely]]
        mainExtension->mutexes().giveUp();
    return kind;
}

bool Interpreter::execute() {
    return state_ != nullptr &&
           state_->attempt([&] { return state_->executeScript() == Outcome::Kind::Finished; });
}

Outcome Interpreter::tryExecute() {
    if (state_ == nullptr) return Outcome(Outcome::Kind::Failed);
    return state_->watch(false, [&] {
        if (!state_->link->isReady) state_->refuse("no script is compiled");
        return state_->executeScript();
    });
}

bool Interpreter::shareMutexes(const Interpreter& other) {
    if (state_ == nullptr || other.state_ == nullptr) return false;
    return state_->mainExtension->mutexes().share(other.state_->mainExtension->mutexes());
}

bool Interpreter::evaluateQuery(bool& value) {
    return state_ != nullptr && state_->attempt([&] { return state_->evaluateQuery(value); });
}

Result<bool> Interpreter::tryQuery() {
    if (state_ == nullptr) return Outcome(Outcome::Kind::Failed);
    bool value = false;
    Outcome outcome = state_->watch(false, [&] {
        if (!state_->query) state_->refuse("no query is compiled");
        return state_->evaluateQuery(value) ? Outcome::Kind::Finished : Outcome::Kind::Failed;
    });
    if (!outcome) return outcome;
    return value;
}

bool Interpreter::State::evaluateQuery(bool& value) {
    if (!query) return false;
    return enterRun(
        interpreter,
        [&] {
            value = query->result();
            return true;
        },
        &queryBuffers);
}

bool Interpreter::evaluate(BoolNode& condition, bool& value) {
    return state_ != nullptr && state_->attempt([&] {
        return enterRun(*this, [&] {
            value = condition.result();
            return true;
        });
    });
}

bool Interpreter::State::runFunction(const FND::String& name) {
    Function* const function = symbols.getFunction(name);
    if (function == nullptr) return true;
    return enterRun(interpreter, [&] {
        function->execute();
        return true;
    });
}

bool Interpreter::finish() {
    return state_ != nullptr && state_->attempt([&] { return state_->finish(); });
}

Outcome Interpreter::tryFinish() {
    if (state_ == nullptr) return Outcome(Outcome::Kind::Failed);
    return state_->watch(
        false, [&] { return state_->finish() ? Outcome::Kind::Finished : Outcome::Kind::Failed; });
}

bool Interpreter::State::finish() {
    const bool mayWait = !control.wasStopped();
    const bool isDone = !std::exchange(runsEnd, false) || runFunction(endFunctionS);
    openFiles.closeAll();
    return flushOutput(mayWait && isDone) && isDone;
}

void Interpreter::skipEnd() {
    if (state_ != nullptr) state_->runsEnd = false;
}

void Interpreter::print(const Node* place, std::string_view text) {
    // A stream that is written to at the end of each line calls the system.
    constexpr std::size_t workOfCall = 1024;
    State& state = *state_;
    state.hasPrinted = true;
    countWork(workOfCall);
    const bool isTaken = state.output->write(text);
    if (!isTaken) state.openFiles.failures().add(standardOutputS, errno);
    // The standard output gives up when it has waited in vain; a host's output may take its time.
    if (!isTaken || state.output != &standardOutput()) state.control.ask(place);
}

bool Interpreter::State::flushOutput(bool mayWait) {
    if (!std::exchange(hasPrinted, false)) return true;
    const auto flush = [&] {
        if (output->flush(mayWait)) return true;
        // Text that would have to wait is not lost yet.
        if (mayWait || errno != EAGAIN) openFiles.failures().add(standardOutputS, errno);
        return true;
    };
    return mayWait ? enterQuietly(interpreter, flush) : contain(interpreter, flush);
}

bool Interpreter::interrupt() { return state_ != nullptr && state_->control.interrupt(); }

bool Interpreter::fail(const FND::String& message) {
    return state_ != nullptr && state_->control.fail(message);
}

std::uint64_t Interpreter::generation() const {
    return state_ != nullptr ? state_->link->generation : 0;
}

bool Interpreter::isValid() const { return state_ != nullptr && state_->isValid; }

void Interpreter::isValid(bool valid) {
    if (state_ != nullptr) state_->isValid = valid;
}

void Interpreter::includePath(const std::vector<FND::String>& directories) {
    contain(*this, [&] {
        if (state_ != nullptr) state_->includePath = directories;
        return true;
    });
}

void Interpreter::modulePath(const std::vector<FND::String>& directories) {
    contain(*this, [&] {
        if (state_ != nullptr) state_->modulePath = directories;
        return true;
    });
}

void Interpreter::lastIncludePath(const std::vector<FND::String>& directories) {
    contain(*this, [&] {
        if (state_ != nullptr) state_->lastIncludePath = directories;
        return true;
    });
}

const std::vector<FND::String>& Interpreter::modulePath() const { return state_->modulePath; }

const Capabilities& Interpreter::capabilities() const {
    static const Capabilities none;
    return state_ != nullptr ? state_->capabilities : none;
}

bool Interpreter::capabilities(const Capabilities& capabilities) {
    return contain(*this, [&] {
        if (state_ == nullptr) return false;
        Capabilities copy = capabilities;
        FND::String error;
        auto files = FileAccess::ofFiles(copy, error);
        auto includeFiles = FileAccess::ofIncludes(copy, error);
        state_->capabilities = std::move(copy);
        state_->files = std::move(files);
        state_->includeFiles = std::move(includeFiles);
        if (!error.empty()) diagnose(Messages::setting("ERROR: " + error, FND::Status::Error));
        return error.empty();
    });
}

bool Interpreter::timeZone(const FND::String& name) {
    return contain(*this, [&] {
        if (state_ == nullptr) return false;
        auto zone = name.empty() ? nullptr : FND::TimeZone::find(name);
        if (!name.empty() && zone == nullptr) {
            diagnose(
                Messages::setting("ERROR: unknown time zone `" + name + "'", FND::Status::Error));
            return false;
        }
        state_->timeZone = std::move(zone);
        return true;
    });
}

const FND::TimeZone& Interpreter::timeZone() const {
    return state_ != nullptr && state_->timeZone != nullptr ? *state_->timeZone
                                                            : FND::TimeZone::local();
}

const Limits& Interpreter::limits() const {
    static const Limits defaults;
    return state_ != nullptr ? state_->control.limits() : defaults;
}

void Interpreter::limits(const Limits& limits) {
    if (state_ != nullptr) state_->control.limits(limits);
}

CodeTier Interpreter::codeTier() const {
    return state_ != nullptr ? std::min(state_->control.codeTier(), highestCodeTier())
                             : CodeTier::Tree;
}

void Interpreter::codeTier(CodeTier tier) {
    if (state_ != nullptr) state_->control.codeTier(tier);
}

CodeTier Interpreter::highestCodeTier() {
    static const bool hasNative = Code::hasNative();
    return hasNative ? CodeTier::Native : CodeTier::Portable;
}

bool Interpreter::wasStopped() const { return state_ != nullptr && state_->control.wasStopped(); }

bool Interpreter::mustStop() const { return state_ != nullptr && state_->control.mustStop(); }

void Interpreter::observe(Observation* observation) {
    if (state_ != nullptr) state_->control.observation(observation);
}

Observation* Interpreter::observation() const {
    return state_ != nullptr ? state_->control.observation() : nullptr;
}

void Interpreter::stackEnd(const void* lowest) {
    if (state_ != nullptr) state_->control.stackEnd(lowest);
}

void Interpreter::output(Output* output) {
    if (state_ != nullptr) state_->output = output != nullptr ? output : &standardOutput();
}

OutputFailures& Interpreter::outputFailures() {
    static thread_local OutputFailures none;
    return state_ != nullptr ? state_->openFiles.failures() : none;
}

bool Interpreter::addGlobalConstant(const FND::String& name, const FND::String& value) {
    return contain(
        *this, [&] { return state_ != nullptr && state_->symbols.addGlobalConstant(name, value); });
}

Extension* Interpreter::extension(const FND::String& name) {
    Extension* found = nullptr;
    contain(*this, [&] {
        if (state_ != nullptr) found = state_->symbols.extension(name);
        return found != nullptr;
    });
    return found;
}

bool Interpreter::insertExtension(Extension* extension) {
    return contain(*this, [&] {
        if (state_ == nullptr || extension == nullptr) return false;
        if (this->extension(extension->extensionName()) != nullptr) return false;
        // By address: a program built without type information has no type to compare by name.
        if (&typeid(*extension) == &typeid(HostExtension) &&
            !static_cast<HostExtension&>(*extension).enter(*this)) {
            return false;
        }
        state_->symbols.insertExtension(extension);
        return true;
    });
}

std::uint64_t Interpreter::errorCount() const { return state_ != nullptr ? state_->errorCount : 0; }

void Interpreter::logError(const FND::String& message) { log(message, FND::Status::Error); }

void Interpreter::logError(const FND::String& message, const Node* place,
                           const std::vector<FND::String>& arguments) {
    if (state_ == nullptr) return;
    Diagnostic diagnostic;
    diagnostic.code = codeName(MessageCode::Run);
    diagnostic.text = message;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        diagnostic.notes.push_back(Messages::argumentNote(i, arguments[i]));
    }
    if (state_->control.isRunning()) state_->control.trace(diagnostic, place);
    diagnose(std::move(diagnostic));
}

void Interpreter::logOutOfMemory() {
    if (state_ != nullptr && state_->watching != nullptr) state_->watching->isExhausted = true;
    if (state_ == nullptr || state_->log == nullptr) return;
    try {
        state_->log->log(outOfMemoryS, FND::Status::Error);
    } catch (...) {
    }
}

void Interpreter::log(const FND::String& message, FND::Status::Severity severity) {
    Diagnostic diagnostic;
    diagnostic.severity = diagnostic.logSeverity = severity;
    diagnostic.code = codeName(MessageCode::Run);
    diagnostic.text = message;
    if (state_ != nullptr && !state_->isCompiling && state_->control.isRunning()) {
        state_->control.trace(diagnostic, nullptr);
    }
    diagnose(std::move(diagnostic));
}

void Interpreter::diagnose(Diagnostic diagnostic) {
    if (state_ == nullptr) return;
    if (state_->keptMessages != nullptr && state_->pendingBuilds == nullptr) {
        constexpr std::size_t most = 20;
        const bool isKept = !diagnostic.isDetail && state_->keptMessages->size() < most;
        if (isKept) state_->keptMessages->push_back(std::move(diagnostic));
        return;
    }
    if (diagnostic.logSeverity >= FND::Status::Error) ++state_->errorCount;
    if (state_->pendingBuilds != nullptr) {
        state_->pendingBuilds->hold(std::move(diagnostic));
        return;
    }
    Watching* const watching = state_->watching;
    if (watching != nullptr && diagnostic.logSeverity >= FND::Status::Error &&
        !diagnostic.isDetail && !(watching->isCompile && watching->hasError)) {
        if (!watching->details) watching->details = std::make_unique<Outcome::Details>();
        watching->details->diagnostic = diagnostic;
        watching->hasError = true;
    }
    state_->deliver(diagnostic);
    Observation* const observation = state_->control.observation();
    if (observation != nullptr && observation->listens()) observation->message(diagnostic);
    constexpr std::size_t mostKept = 100;
    const bool isKept =
        state_->isCompiling || state_->diagnostics.size() < state_->ofCompile + mostKept;
    if (isKept && !diagnostic.isDetail) {
        state_->diagnostics.push_back(std::move(diagnostic));
        state_->hasRunDiagnostics = !state_->isCompiling;
    }
}

const std::vector<Diagnostic>& Interpreter::diagnostics() const {
    static const std::vector<Diagnostic> none;
    return state_ != nullptr ? state_->diagnostics : none;
}

void Interpreter::State::deliver(const Diagnostic& diagnostic) noexcept {
    // A log may call the interpreter, which may log.
    constexpr int most = 8;
    if (log == nullptr || openLogs >= most) return;
    ++openLogs;
    try {
        log->diagnose(diagnostic);
    } catch (...) {
    }
    --openLogs;
}

bool Interpreter::pushStatement(Node* block) { return pushStatement(block, block); }

bool Interpreter::pushStatement(Node* block, Node* open) {
    return state_->symbols.pushStatement(block, open);
}

bool Interpreter::popStatement() { return state_->symbols.popStatement(); }

Node* Interpreter::topStatement() const { return state_->symbols.topStatement(); }

int Interpreter::statementDepth() const { return state_->symbols.statementDepth(); }

bool Interpreter::addStatement(Node* statement) { return state_->symbols.addStatement(statement); }

bool Interpreter::addIdentifier(const FND::String& name, Variable* variable) {
    if (!state_->symbols.addIdentifier(name, variable)) return false;
    Observation* const observation = state_->control.observation();
    if (observation != nullptr) [[unlikely]]
        observation->declare(name, variable, topStatement());
    return true;
}

Variable* Interpreter::getVariable(const FND::String& module, const FND::String& name) {
    return state_->symbols.getVariable(module, name);
}

bool Interpreter::isPredefined(const FND::String& name) const {
    return state_->symbols.isGlobalConstant(name) ||
           (state_->mainExtension != nullptr && state_->mainExtension->variable(name) != nullptr);
}

Function* Interpreter::getFunction(const FND::String& name) {
    return state_->symbols.getFunction(name);
}

bool Interpreter::pushFunction(const FND::String& name, Function* function) {
    return state_->symbols.pushFunction(name, function);
}

std::int64_t Interpreter::compiledLines() const {
    return state_ != nullptr ? state_->compiledLines : 0;
}

const std::vector<Node*>& Interpreter::openBlocks() const { return state_->symbols.openBlocks(); }

void Interpreter::exchangeBlocks(std::vector<Node*>& blocks) {
    state_->symbols.openBlocks().swap(blocks);
}

std::vector<Diagnostic>* Interpreter::keepMessages(std::vector<Diagnostic>* messages) {
    return std::exchange(state_->keptMessages, messages);
}

void Interpreter::compiledLines(std::int64_t lines) { state_->compiledLines = lines; }

std::int64_t Interpreter::heapBytes() const {
    std::size_t bytes =
        state_->symbols.heapBytes() + state_->openFiles.heapBytes() + state_->objects.heapBytes();
    if (state_->mainExtension != nullptr) bytes += state_->mainExtension->mutexes().heapBytes();
    return static_cast<std::int64_t>(bytes) + state_->automata.held();
}

ObjectTable& Interpreter::objects() { return state_->objects; }

void Interpreter::dropObjects() noexcept {
    if (!state_->objects.mustSweep()) return;
    try {
        state_->objects.sweep([&](const auto& visit) { state_->symbols.visitHandles(visit); });
    } catch (const std::bad_alloc&) {
        // Those that are left are looked at after another run.
    }
}

Analyses* Interpreter::analyses() const { return state_->analyses; }
bool Interpreter::isChecking() const { return state_->isChecking; }
void Interpreter::visitNames(const NameVisitor& visit) const { state_->symbols.visitNames(visit); }
PlaceTable& Interpreter::places() { return state_->places; }
const std::shared_ptr<const FileAccess>& Interpreter::files() const { return state_->files; }
OpenFiles& Interpreter::openFiles() { return state_->openFiles; }
AutomataAccount& Interpreter::automata() { return state_->automata; }
PendingBuilds* Interpreter::pendingBuilds() const { return state_->pendingBuilds; }
void Interpreter::pendingBuilds(PendingBuilds* pending) { state_->pendingBuilds = pending; }
MainExtension& Interpreter::mainExtension() { return *state_->mainExtension; }

}  // namespace SCR
