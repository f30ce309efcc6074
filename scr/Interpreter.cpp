#include "scr/Interpreter.h"

#include <utility>

#include "scr/AutomataAccount.h"
#include "scr/CompareInterface.h"
#include "scr/Contain.h"
#include "scr/Extension.h"
#include "scr/Function.h"
#include "scr/MainExtension.h"
#include "scr/Memory.h"
#include "scr/Variable.h"
#include "scr/parser/FlowAnalysis.h"
#include "scr/parser/Parser.h"
#include "scr/parser/PendingBuilds.h"
#include "scr/parser/Preprocessor.h"

namespace SCR {

namespace {

constexpr const char* beginFunctionS = "BEGIN";
constexpr const char* endFunctionS = "END";
const FND::String outOfMemoryS = "ERROR: out of memory";

// Makes the next push_back allocate nothing, so that it can not fail once an object is taken over.
template <class Element>
void makeRoom(std::vector<Element>& elements) {
    if (elements.size() == elements.capacity()) elements.reserve(2 * elements.size() + 8);
}

}  // namespace

Interpreter::Interpreter(Log* log) : log_(log), runControl_(*this) {
    isValid_ = contain(*this, [&] {
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

bool Interpreter::compile(const FND::String& text) {
    if (!compileScript(text)) return false;
    runsEnd_ = true;
    runFunction(beginFunctionS);
    return true;
}

bool Interpreter::check(const FND::String& text) {
    isChecking_ = true;
    const bool isGood = compileScript(text);
    isChecking_ = false;
    return isGood;
}

bool Interpreter::check(const FND::String& text, std::vector<Finding>& findings) {
    findings.clear();
    return contain(*this, [&] {
        FlowAnalysis analysis;
        flowAnalysis_ = &analysis;
        const bool isGood = check(text);
        flowAnalysis_ = nullptr;
        if (isGood) findings = analysis.findings();
        return isGood;
    });
}

bool Interpreter::refusesToCompile() {
    if (!runControl_.isRunning()) return false;
    logError("ERROR: can not compile while the interpreter executes");
    return true;
}

bool Interpreter::compileScript(const FND::String& text) {
    if (refusesToCompile()) return false;
    isCompiled_ = contain(*this, [&] {
        discardScript();
        if (mainExtension_ == nullptr) return false;
        const RunScope run(runControl_);
        const NodeMemory::Scope scope;
        mainFunction_ = std::make_unique<Function>();
        statementStack_.push_back(mainFunction_.get());
        ExpandedText expanded;
        if (!expand(text, expanded) || !SCR_parseScript(*this, expanded)) return false;
        mainFunction_->close();
        return true;
    });
    // What a failed compile leaves is built in part only; nothing may be bound to it.
    if (!isCompiled_) discardScript();
    scriptPlaces_ = places_.size();
    return isCompiled_;
}

void Interpreter::discardScript() {
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
    options.allowedDirectories = capabilities_.includeDirectories;
    options.maxBytes = limits().sourceBytes();
    Preprocessor preprocessor(log_, options);
    return preprocessor.expand(text, expanded);
}

bool Interpreter::compileConditions(const FND::String& text, CompareInterface& target) {
    if (refusesToCompile()) return false;
    return contain(*this, [&] {
        if (mainExtension_ == nullptr) return false;
        const RunScope run(runControl_);
        const NodeMemory::Scope scope;
        ExpandedText expanded;
        return expand(text, expanded) && SCR_parseCondition(*this, target, expanded);
    });
}

bool Interpreter::compileQuery(const FND::String& text) {
    if (refusesToCompile()) return false;
    query_.reset();
    runControl_.chargeBuffer(-std::exchange(queryBuffers_, 0));
    places_.truncate(scriptPlaces_);
    return contain(*this, [&] {
        if (mainExtension_ == nullptr) return false;
        const RunScope run(runControl_);
        const NodeMemory::Scope scope;
        return SCR_parseQuery(*this, text, query_);
    });
}

bool Interpreter::execute() {
    if (!isCompiled_) return false;
    return contain(*this, [&] {
        const RunScope scope(runControl_);
        return mainFunction_->run() == Node::goOn;
    });
}

bool Interpreter::evaluateQuery(bool& value) {
    if (!query_) return false;
    return contain(*this, [&] {
        const RunScope scope(runControl_, queryBuffers_);
        value = query_->result();
        return true;
    });
}

bool Interpreter::runFunction(const FND::String& name) {
    Function* const function = getFunction(name);
    if (function == nullptr) return false;
    return contain(*this, [&] {
        const RunScope scope(runControl_);
        function->execute();
        return true;
    });
}

bool Interpreter::finish() {
    if (!std::exchange(runsEnd_, false) || getFunction(endFunctionS) == nullptr) return true;
    return runFunction(endFunctionS);
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
        if (this->extension(extension->extensionName()) != nullptr) return false;
        extensions_.emplace_back(extension);
        return true;
    });
}

void Interpreter::logError(const FND::String& message) { log(message, FND::Status::Error); }

void Interpreter::logOutOfMemory() {
    if (log_ != nullptr) log_->log(outOfMemoryS, FND::Status::Error);
}

void Interpreter::log(const FND::String& message, FND::Status::Severity severity) {
    if (pendingBuilds_ != nullptr) {
        pendingBuilds_->hold(message, severity);
    } else if (log_ != nullptr) {
        log_->log(message, severity);
    }
}

bool Interpreter::pushStatement(Node* block) {
    makeRoom(statementStack_);
    if (!addStatement(block)) return false;
    statementStack_.push_back(block);
    return true;
}

bool Interpreter::popStatement() {
    if (statementStack_.size() < 2) return false;
    statementStack_.back()->close();
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

Function* Interpreter::getFunction(const FND::String& name) { return functions_.find(name); }

bool Interpreter::pushFunction(const FND::String& name, Function* function) {
    makeRoom(statementStack_);
    if (!functions_.insert(name, function)) return false;
    statementStack_.push_back(function);
    return true;
}

}  // namespace SCR
