#include "scr/Interpreter.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <typeinfo>
#include <utility>

#include "scr/HostExtension.h"
#include "scr/Observation.h"
#include "scr/Program.h"
#include "scr/interpreter/State.h"
#include "scr/message/Messages.h"
#include "scr/run/Entry.h"
#include "scr/run/PendingBuilds.h"
#include "scr/run/ScriptMutexes.h"
#include "scr/tree/StatementParts.h"

namespace SCR {

namespace {

constexpr const char* endFunctionS = "END";
constexpr std::string_view standardOutputS = "standard output";
const FND::String outOfMemoryS = "ERROR: out of memory";

}  // namespace

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

bool Interpreter::wasStopped() const { return state_ != nullptr && state_->control.wasStopped(); }

bool Interpreter::mustStop() const { return state_ != nullptr && state_->control.mustStop(); }

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
