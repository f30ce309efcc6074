#include "scr/Interpreter.h"

#include <algorithm>
#include <cerrno>
#include <typeinfo>
#include <utility>

#include "scr/CompareInterface.h"
#include "scr/Extension.h"
#include "scr/Function.h"
#include "scr/HostExtension.h"
#include "scr/MainExtension.h"
#include "scr/Variable.h"
#include "scr/check/Analyses.h"
#include "scr/check/Reentry.h"
#include "scr/message/Messages.h"
#include "scr/os/FileAccess.h"
#include "scr/parser/Parser.h"
#include "scr/parser/Preprocessor.h"
#include "scr/run/AutomataAccount.h"
#include "scr/run/Entry.h"
#include "scr/run/Memory.h"
#include "scr/run/PendingBuilds.h"

namespace SCR {

namespace {

constexpr const char* beginFunctionS = "BEGIN";
constexpr const char* endFunctionS = "END";
constexpr std::string_view standardOutputS = "standard output";
const FND::String outOfMemoryS = "ERROR: out of memory";

// Makes the next push_back allocate nothing, so that it can not fail once an object is taken over.
template <class Element>
void makeRoom(std::vector<Element>& elements) {
    if (elements.size() == elements.capacity()) elements.reserve(2 * elements.size() + 8);
}

// Passes on to the log of an interpreter, as that itself does.
class InterpreterLog final : public Log {
public:
    explicit InterpreterLog(Interpreter& interpreter) : interpreter_(interpreter) {}
    void log(const FND::String& message, FND::Status::Severity severity) override {
        interpreter_.log(message, severity);
    }

private:
    Interpreter& interpreter_;
};

}  // namespace

Interpreter::Interpreter(Log* log) : log_(log), runControl_(*this) {
    isValid_ = contain(*this, [&] {
        files_ = includeFiles_ = FileAccess::any();
        automata_ = std::make_unique<AutomataAccount>(*this);
        auto mainExtension = std::make_unique<MainExtension>();
        if (!insertExtension(mainExtension.get())) return false;
        mainExtension_ = mainExtension.release();
        return true;
    });
}

Interpreter::~Interpreter() {
    finish();
    query_.reset();
    mainFunction_.reset();
    functions_.clear();
    globalIdentifiers_.clear();
    // In the order of insertion; a container's own order of destruction is not fixed.
    for (std::unique_ptr<Extension>& extension : extensions_) extension.reset();
}

class Interpreter::CompileScope {
public:
    explicit CompileScope(Interpreter& interpreter) : interpreter_(interpreter) {
        isEntered_ = !interpreter.isCompiling_ && !interpreter.runControl_.isRunning();
        if (isEntered_) {
            interpreter.isCompiling_ = true;
        } else {
            contain(interpreter, [&] {
                interpreter.logError(
                    "ERROR: can not compile while the interpreter " +
                    FND::String(interpreter.isCompiling_ ? "compiles" : "executes"));
                return false;
            });
        }
    }
    CompileScope(const CompileScope&) = delete;
    CompileScope& operator=(const CompileScope&) = delete;
    ~CompileScope() {
        if (!isEntered_) return;
        interpreter_.isCompiling_ = false;
        interpreter_.analyses_ = nullptr;
    }
    explicit operator bool() const { return isEntered_; }

private:
    Interpreter& interpreter_;
    bool isEntered_;
};

bool Interpreter::compile(const FND::String& text) { return compileScript(text, nullptr); }

bool Interpreter::check(const FND::String& text) {
    return contain(*this, [&] { return checkScript(text, nullptr); });
}

bool Interpreter::check(const FND::String& text, std::vector<Finding>& findings) {
    findings.clear();
    return contain(*this, [&] {
        FlowAnalysis flow(timeZone_ != nullptr);
        const bool isGood = checkScript(text, &flow);
        if (isGood) findings = flow.findings();
        return isGood;
    });
}

bool Interpreter::checkScript(const FND::String& text, FlowAnalysis* flow) {
    Analyses analyses;
    analyses.flow = flow;
    if (!compileScript(text, &analyses)) return false;
    logReentries(analyses.recorder.record());
    return true;
}

void Interpreter::logReentries(const ScriptRecord& record) {
    constexpr std::size_t most = 50;
    const std::vector<Finding> findings = findReentries(record);
    for (std::size_t i = 0; i < std::min(findings.size(), most); ++i) {
        log(Messages::warning(findings[i].file,
                              "line " + std::to_string(findings[i].line) + ": " + findings[i].text),
            FND::Status::Warning);
    }
    if (findings.size() > most) {
        log(Messages::warning({}, Messages::moreLostValues(findings.size() - most)),
            FND::Status::Warning);
    }
}

bool Interpreter::compileScript(const FND::String& text, Analyses* analyses) {
    const CompileScope scope(*this);
    if (!scope) return false;
    analyses_ = analyses;
    discardScript();
    bool isGood = enterRun(*this, [&] {
        if (mainExtension_ == nullptr) return false;
        const NodeMemory::Scope memory;
        mainFunction_ = std::make_unique<Function>();
        statementStack_.push_back(mainFunction_.get());
        ExpandedText expanded;
        if (!expand(text, expanded)) return false;
        const BufferCharge charge(expanded.storage.size());
        // The texts of its constants.
        chargeBuffer(expanded.body.size());
        if (!SCR_parseScript(*this, expanded)) return false;
        mainFunction_->close();
        return true;
    });
    isCompiled_ = isGood;
    scriptPlaces_ = places_.size();
    if (isGood && analyses == nullptr) {
        isGood = runFunction(beginFunctionS);
        runsEnd_ = isGood;
    }
    // What a failed compile leaves is built in part only; nothing may be bound to it.
    if (!isGood) discardScript();
    return isGood;
}

void Interpreter::discardScript() {
    ++generation_;
    // A query may use the script's variables and functions.
    query_.reset();
    queryBuffers_ = 0;
    growing_.clear();
    statementStack_.clear();
    functions_.clear();
    mainFunction_.reset();
    runControl_.clearCharges();
    places_.clear();
    scriptPlaces_ = 0;
    compiledLines_ = 0;
    isCompiled_ = false;
    runsEnd_ = false;
}

bool Interpreter::expand(const FND::String& text, ExpandedText& expanded) {
    PreprocessorOptions options;
    options.searchPath = includePath_;
    options.includesAllowed = capabilities_.include;
    options.files = includeFiles_;
    options.maxBytes =
        std::min(limits().sourceBytes(),
                 static_cast<std::size_t>(std::max<std::int64_t>(limits().memory, 1)));
    InterpreterLog log(*this);
    Preprocessor preprocessor(&log, options);
    return preprocessor.expand(text, expanded);
}

bool Interpreter::compileConditions(const FND::String& text, CompareInterface& target) {
    std::int64_t buffers = 0;
    const bool isGood = compileConditions(text, target, buffers);
    // How long the host keeps them is not known.
    runControl_.giveBuffer(static_cast<std::size_t>(buffers));
    return isGood;
}

bool Interpreter::compileConditions(const FND::String& text, CompareInterface& target,
                                    std::int64_t& buffers) {
    const CompileScope scope(*this);
    return scope && enterRun(
                        *this,
                        [&] {
                            if (mainExtension_ == nullptr) return false;
                            const NodeMemory::Scope memory;
                            ExpandedText expanded;
                            if (!expand(text, expanded)) return false;
                            const BufferCharge charge(expanded.storage.size());
                            chargeBuffer(expanded.body.size());
                            return SCR_parseCondition(*this, target, expanded);
                        },
                        &buffers);
}

bool Interpreter::compileQuery(const FND::String& text) {
    const CompileScope scope(*this);
    if (!scope) return false;
    query_.reset();
    runControl_.giveBuffer(static_cast<std::size_t>(std::exchange(queryBuffers_, 0)));
    places_.truncate(scriptPlaces_);
    const auto parse = [&] {
        if (mainExtension_ == nullptr) return false;
        const NodeMemory::Scope memory;
        chargeBuffer(text.size());
        return SCR_parseQuery(*this, text, query_);
    };
    if (enterRun(*this, parse, &queryBuffers_)) return true;
    query_.reset();
    return false;
}

bool Interpreter::execute() {
    if (!isCompiled_) return false;
    return enterRun(*this, [&] { return mainFunction_->run() == Node::goOn; });
}

bool Interpreter::evaluateQuery(bool& value) {
    if (!query_) return false;
    return enterRun(
        *this,
        [&] {
            value = query_->result();
            return true;
        },
        &queryBuffers_);
}

bool Interpreter::evaluate(BoolNode& condition, bool& value) {
    return enterRun(*this, [&] {
        value = condition.result();
        return true;
    });
}

bool Interpreter::runFunction(const FND::String& name) {
    Function* const function = getFunction(name);
    return function == nullptr || enterRun(*this, [&] {
               function->execute();
               return true;
           });
}

bool Interpreter::finish() {
    const bool mayWait = !wasStopped();
    const bool isDone = !std::exchange(runsEnd_, false) || runFunction(endFunctionS);
    openFiles_.closeAll();
    return flushOutput(mayWait && isDone) && isDone;
}

void Interpreter::print(const Node* place, std::string_view text) {
    hasPrinted_ = true;
    const bool isTaken = output_->write(text);
    if (!isTaken) openFiles_.failures().add(standardOutputS, errno);
    // The standard output gives up when it has waited in vain; a host's may take its time.
    if (!isTaken || output_ != &standardOutput()) runControl_.ask(place);
}

bool Interpreter::flushOutput(bool mayWait) {
    if (!std::exchange(hasPrinted_, false)) return true;
    const auto flush = [&] {
        if (output_->flush(mayWait)) return true;
        // What would have to wait is not lost yet.
        if (mayWait || errno != EAGAIN) openFiles_.failures().add(standardOutputS, errno);
        return true;
    };
    return mayWait ? enterRun(*this, flush) : contain(*this, flush);
}

bool Interpreter::capabilities(const Capabilities& capabilities) {
    return contain(*this, [&] {
        Capabilities copy = capabilities;
        FND::String error;
        auto files = FileAccess::ofFiles(copy, error);
        auto includeFiles = FileAccess::ofIncludes(copy, error);
        capabilities_ = std::move(copy);
        files_ = std::move(files);
        includeFiles_ = std::move(includeFiles);
        if (!error.empty()) logError("ERROR: " + error);
        return error.empty();
    });
}

bool Interpreter::timeZone(const FND::String& name) {
    return contain(*this, [&] {
        auto zone = name.empty() ? nullptr : FND::TimeZone::find(name);
        if (!name.empty() && zone == nullptr) {
            logError("ERROR: unknown time zone `" + name + "'");
            return false;
        }
        timeZone_ = std::move(zone);
        return true;
    });
}

bool Interpreter::addGlobalConstant(const FND::String& name, const FND::String& value) {
    return contain(*this, [&] {
        auto& identifier = globalIdentifiers_[name];
        if (identifier) return false;
        identifier = std::make_unique<StringVariable>(value, true);
        return true;
    });
}

Extension* Interpreter::extension(const FND::String& name) {
    Extension* found = nullptr;
    contain(*this, [&] {
        for (const std::unique_ptr<Extension>& extension : extensions_) {
            if (extension->extensionName() != name) continue;
            found = extension.get();
            return true;
        }
        return false;
    });
    return found;
}

bool Interpreter::insertExtension(Extension* extension) {
    return contain(*this, [&] {
        if (extension == nullptr) return false;
        if (this->extension(extension->extensionName()) != nullptr) return false;
        makeRoom(extensions_);
        // By address: a program built without type information has none to compare by name.
        if (&typeid(*extension) == &typeid(HostExtension) &&
            !static_cast<HostExtension&>(*extension).enter(*this)) {
            return false;
        }
        extensions_.emplace_back(extension);
        return true;
    });
}

void Interpreter::logError(const FND::String& message) { log(message, FND::Status::Error); }

void Interpreter::logOutOfMemory() { deliver(outOfMemoryS, FND::Status::Error); }

void Interpreter::log(const FND::String& message, FND::Status::Severity severity) {
    if (severity >= FND::Status::Error) ++errorCount_;
    if (pendingBuilds_ != nullptr) {
        pendingBuilds_->hold(message, severity);
    } else {
        deliver(message, severity);
    }
}

void Interpreter::deliver(const FND::String& message, FND::Status::Severity severity) noexcept {
    // A log may call the interpreter, which may log.
    constexpr int most = 8;
    if (log_ == nullptr || openLogs_ >= most) return;
    ++openLogs_;
    try {
        log_->log(message, severity);
    } catch (...) {
    }
    --openLogs_;
}

bool Interpreter::pushStatement(Node* block) {
    makeRoom(statementStack_);
    if (!addStatement(block)) return false;
    statementStack_.push_back(block);
    return true;
}

bool Interpreter::popStatement() {
    if (statementStack_.size() < 2) return false;
    auto* const statement = dynamic_cast<CompoundStatement*>(statementStack_.back());
    if (statement != nullptr) statement->close();
    statementStack_.pop_back();
    return true;
}

Node* Interpreter::topStatement() const {
    return statementStack_.empty() ? nullptr : statementStack_.back();
}

bool Interpreter::addStatement(Node* statement) {
    Node* const block = topStatement();
    return block != nullptr && block->addStatement(statement);
}

bool Interpreter::addIdentifier(const FND::String& name, Variable* variable) {
    // The function of a descriptor follows.
    if (variable->dataType() == TypeCode::Function) functions_.prefetch(name);
    Node* const block = topStatement();
    makeRoom(growing_);
    if (block == nullptr || !block->addIdentifier(name, variable)) return false;
    const int type = Node::baseType(variable->dataType());
    if (type == TypeCode::String || type == TypeCode::Array || type == TypeCode::Hash) {
        growing_.push_back(variable);
    }
    return true;
}

std::int64_t Interpreter::heapBytes() const {
    std::size_t bytes = 0;
    for (const Variable* variable : growing_) bytes += SCR::heapBytes(*variable);
    if (mainExtension_ != nullptr) bytes += mainExtension_->heapBytes();
    bytes += openFiles_.heapBytes();
    return static_cast<std::int64_t>(bytes) + (automata_ ? automata_->held() : 0);
}

Variable* Interpreter::getVariable(const FND::String& module, const FND::String& name) {
    if (module.empty()) {
        for (auto block = statementStack_.rbegin(); block != statementStack_.rend(); ++block) {
            if (Variable* const variable = (*block)->getIdentifier(name)) return variable;
        }
        const auto global = globalIdentifiers_.find(name);
        if (global != globalIdentifiers_.end()) return global->second.get();
    }
    for (const std::unique_ptr<Extension>& extension : extensions_) {
        if (!module.empty() && extension->extensionName() != module) continue;
        if (Variable* const variable = extension->variable(name)) return variable;
    }
    return nullptr;
}

bool Interpreter::isPredefined(const FND::String& name) const {
    return globalIdentifiers_.contains(name) ||
           (mainExtension_ != nullptr && mainExtension_->variable(name) != nullptr);
}

Function* Interpreter::getFunction(const FND::String& name) { return functions_.find(name); }

bool Interpreter::pushFunction(const FND::String& name, Function* function) {
    makeRoom(statementStack_);
    if (!functions_.insert(name, function)) return false;
    statementStack_.push_back(function);
    return true;
}

}  // namespace SCR
