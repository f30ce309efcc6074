#include "scr/Interpreter.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <typeinfo>
#include <utility>

#include "scr/CompareInterface.h"
#include "scr/HostExtension.h"
#include "scr/MainExtension.h"
#include "scr/check/Analyses.h"
#include "scr/check/Reentry.h"
#include "scr/code/Native.h"
#include "scr/message/Messages.h"
#include "scr/os/FileAccess.h"
#include "scr/os/OpenFiles.h"
#include "scr/parser/Parser.h"
#include "scr/parser/Preprocessor.h"
#include "scr/run/AutomataAccount.h"
#include "scr/run/Entry.h"
#include "scr/run/MemoryCharge.h"
#include "scr/run/PendingBuilds.h"
#include "scr/run/PlaceTable.h"
#include "scr/run/RunControl.h"
#include "scr/run/ScriptMutexes.h"
#include "scr/tree/SymbolTable.h"

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

// The whole state of an interpreter.
struct Interpreter::State {
    State(Interpreter& self, Log* sink)
        : interpreter(self), log(sink), control(self), automata(self) {}

    // Runs "BEGIN", unless there are analyses, which then follow the parse.
    bool compileScript(const FND::String& text, Analyses* follower);
    bool checkScript(const FND::String& text, FlowAnalysis* flow);
    void logReentries(const ScriptRecord& record);
    void discardScript();
    bool runFunction(const FND::String& name);
    bool expand(const FND::String& text, ExpandedText& expanded);
    void deliver(const Diagnostic& diagnostic) noexcept;
    bool flushOutput(bool mayWait);

    Interpreter& interpreter;
    Log* const log;
    MainExtension* mainExtension = nullptr;  // owned by the symbols
    std::int64_t compiledLines = 0;
    std::uint64_t errorCount = 0;
    std::uint64_t generation = 0;
    int openLogs = 0;  // nested calls of the log
    bool isCompiling = false;
    bool isChecking = false;
    bool isCompiled = false;
    bool isValid = false;
    bool runsEnd = false;
    bool hasPrinted = false;       // something may wait in the output
    Analyses* analyses = nullptr;  // not owned
    std::vector<Diagnostic> diagnostics;
    PendingBuilds* pendingBuilds = nullptr;  // not owned
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

Interpreter::~Interpreter() { finish(); }

// Keeps others from compiling; false, after a message, while something is compiled or executed, as
// a compile would destroy it.
class Interpreter::CompileScope {
public:
    explicit CompileScope(State& state) : state_(state) {
        isEntered_ = !state.isCompiling && !state.control.isRunning();
        if (isEntered_) {
            state.isCompiling = true;
            state.diagnostics.clear();
        } else {
            contain(state.interpreter, [&] {
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
        state_.analyses = nullptr;
        state_.isChecking = false;
    }
    explicit operator bool() const { return isEntered_; }

private:
    State& state_;
    bool isEntered_;
};

bool Interpreter::compile(const FND::String& text) {
    return state_ != nullptr && state_->compileScript(text, nullptr);
}

bool Interpreter::check(const FND::String& text) {
    return contain(*this, [&] { return state_ != nullptr && state_->checkScript(text, nullptr); });
}

bool Interpreter::check(const FND::String& text, std::vector<Finding>& findings) {
    findings.clear();
    return contain(*this, [&] {
        if (state_ == nullptr) return false;
        FlowAnalysis flow(state_->timeZone != nullptr);
        const bool isGood = state_->checkScript(text, &flow);
        if (isGood) findings = flow.findings();
        return isGood;
    });
}

bool Interpreter::State::checkScript(const FND::String& text, FlowAnalysis* flow) {
    Analyses followers;
    followers.flow = flow;
    if (!compileScript(text, &followers)) return false;
    logReentries(followers.recorder.record());
    return true;
}

void Interpreter::State::logReentries(const ScriptRecord& record) {
    constexpr std::size_t most = 50;
    const std::vector<Finding> findings = findReentries(record);
    for (std::size_t i = 0; i < std::min(findings.size(), most); ++i) {
        Diagnostic warning;
        warning.severity = warning.logSeverity = FND::Status::Warning;
        warning.code = codeName(MessageCode::LostValue);
        warning.place = {findings[i].file, findings[i].line, 0, 0};
        warning.text = Messages::warning(
            findings[i].file, "line " + std::to_string(findings[i].line) + ": " + findings[i].text);
        interpreter.diagnose(std::move(warning));
    }
    if (findings.size() > most) {
        interpreter.log(Messages::warning({}, Messages::moreLostValues(findings.size() - most)),
                        FND::Status::Warning);
    }
}

bool Interpreter::State::compileScript(const FND::String& text, Analyses* follower) {
    const CompileScope scope(*this);
    if (!scope) return false;
    analyses = follower;
    isChecking = follower != nullptr;
    discardScript();
    bool isGood = enterRun(interpreter, [&] {
        if (mainExtension == nullptr) return false;
        const NodeMemory::Scope memory;
        symbols.startScript();
        ExpandedText expanded;
        if (!expand(text, expanded)) return false;
        const BufferCharge charge(expanded.storage.size());
        // The texts of the script's constants.
        chargeBuffer(expanded.body.size());
        if (!SCR_parseScript(interpreter, expanded)) return false;
        symbols.mainFunction()->close();
        return true;
    });
    isCompiled = isGood;
    scriptPlaces = places.size();
    if (isGood && follower == nullptr) {
        isGood = runFunction(beginFunctionS);
        runsEnd = isGood;
    }
    // A failed compile leaves an incomplete script; nothing may be bound to it.
    if (!isGood) discardScript();
    return isGood;
}

void Interpreter::State::discardScript() {
    ++generation;
    // A query may use the script's variables and functions.
    query.reset();
    queryBuffers = 0;
    symbols.clearScript();
    control.clearCharges();
    places.clear();
    scriptPlaces = 0;
    compiledLines = 0;
    isCompiled = false;
    runsEnd = false;
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
    const bool isGood = compileConditions(text, target, buffers);
    // It is not known how long the host keeps them.
    state_->control.giveBuffer(static_cast<std::size_t>(buffers));
    return isGood;
}

bool Interpreter::compileConditions(const FND::String& text, CompareInterface& target,
                                    std::int64_t& buffers) {
    if (state_ == nullptr) return false;
    const CompileScope scope(*state_);
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
    if (state_ == nullptr) return false;
    const CompileScope scope(*state_);
    if (!scope) return false;
    State& state = *state_;
    state.query.reset();
    state.control.giveBuffer(static_cast<std::size_t>(std::exchange(state.queryBuffers, 0)));
    state.places.truncate(state.scriptPlaces);
    const auto parse = [&] {
        if (state.mainExtension == nullptr) return false;
        const NodeMemory::Scope memory;
        chargeBuffer(text.size());
        return SCR_parseQuery(*this, text, state.query);
    };
    if (enterRun(*this, parse, &state.queryBuffers)) return true;
    state.query.reset();
    return false;
}

bool Interpreter::execute() {
    if (state_ == nullptr || !state_->isCompiled) return false;
    Function* const main = state_->symbols.mainFunction();
    const bool isDone = enterRun(*this, [&] { return main->execute() == Node::goOn; });
    if (!isDone) [[unlikely]]
        state_->mainExtension->mutexes().giveUp();
    return isDone;
}

bool Interpreter::shareMutexes(const Interpreter& other) {
    if (state_ == nullptr || other.state_ == nullptr) return false;
    return state_->mainExtension->mutexes().share(other.state_->mainExtension->mutexes());
}

bool Interpreter::evaluateQuery(bool& value) {
    if (state_ == nullptr || !state_->query) return false;
    return enterRun(
        *this,
        [&] {
            value = state_->query->result();
            return true;
        },
        &state_->queryBuffers);
}

bool Interpreter::evaluate(BoolNode& condition, bool& value) {
    return state_ != nullptr && enterRun(*this, [&] {
               value = condition.result();
               return true;
           });
}

bool Interpreter::State::runFunction(const FND::String& name) {
    Function* const function = symbols.getFunction(name);
    return function == nullptr || enterRun(interpreter, [&] {
               function->execute();
               return true;
           });
}

bool Interpreter::finish() {
    if (state_ == nullptr) return false;
    const bool mayWait = !wasStopped();
    const bool isDone = !std::exchange(state_->runsEnd, false) || state_->runFunction(endFunctionS);
    state_->openFiles.closeAll();
    return state_->flushOutput(mayWait && isDone) && isDone;
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
    return mayWait ? enterRun(interpreter, flush) : contain(interpreter, flush);
}

bool Interpreter::interrupt() { return state_ != nullptr && state_->control.interrupt(); }

bool Interpreter::fail(const FND::String& message) {
    return state_ != nullptr && state_->control.fail(message);
}

std::uint64_t Interpreter::generation() const { return state_ != nullptr ? state_->generation : 0; }

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

void Interpreter::logOutOfMemory() {
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
    diagnose(std::move(diagnostic));
}

void Interpreter::diagnose(Diagnostic diagnostic) {
    if (state_ == nullptr) return;
    if (diagnostic.logSeverity >= FND::Status::Error) ++state_->errorCount;
    if (state_->pendingBuilds != nullptr) {
        state_->pendingBuilds->hold(std::move(diagnostic));
        return;
    }
    state_->deliver(diagnostic);
    constexpr std::size_t mostKept = 100;
    const bool isKept = state_->isCompiling || state_->diagnostics.size() < mostKept;
    if (isKept && !diagnostic.isDetail) state_->diagnostics.push_back(std::move(diagnostic));
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

bool Interpreter::pushStatement(Node* block) { return state_->symbols.pushStatement(block); }

bool Interpreter::popStatement() { return state_->symbols.popStatement(); }

Node* Interpreter::topStatement() const { return state_->symbols.topStatement(); }

int Interpreter::statementDepth() const { return state_->symbols.statementDepth(); }

bool Interpreter::addStatement(Node* statement) { return state_->symbols.addStatement(statement); }

bool Interpreter::addIdentifier(const FND::String& name, Variable* variable) {
    return state_->symbols.addIdentifier(name, variable);
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

void Interpreter::compiledLines(std::int64_t lines) { state_->compiledLines = lines; }

std::int64_t Interpreter::heapBytes() const {
    std::size_t bytes = state_->symbols.heapBytes() + state_->openFiles.heapBytes();
    if (state_->mainExtension != nullptr) bytes += state_->mainExtension->mutexes().heapBytes();
    return static_cast<std::int64_t>(bytes) + state_->automata.held();
}

Analyses* Interpreter::analyses() const { return state_->analyses; }
void Interpreter::dropAnalyses() { state_->analyses = nullptr; }
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
