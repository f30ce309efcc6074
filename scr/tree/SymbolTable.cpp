#include "scr/tree/SymbolTable.h"

#include "scr/HostContainers.h"
#include "scr/Node.h"
#include "scr/Statement.h"
#include "scr/run/MemoryCharge.h"
#include "scr/tree/StatementParts.h"

namespace SCR {

namespace {

// Makes the next push_back allocate nothing, so that it cannot fail after an object is taken over.
template <class Element>
void makeRoom(std::vector<Element>& elements) {
    if (elements.size() == elements.capacity()) elements.reserve(2 * elements.size() + 8);
}

// Calls visit(handle) for the objects of hosts that `variable` holds.
void handlesIn(const Variable& variable, const std::function<void(long)>& visit);

template <class T>
void visitElements(const Variable& container, const std::function<void(long)>& visit) {
    if (Node::baseType(container.dataType()) == TypeCode::Array) {
        for (const T& element : ArrayView<T>(static_cast<const Array&>(container)))
            handlesIn(element, visit);
    } else {
        HashView<T>(static_cast<const Hash&>(container))
            .forEach(
                [&](const FND::String& /*key*/, const T& element) { handlesIn(element, visit); });
    }
}

void handlesIn(const Variable& variable, const std::function<void(long)>& visit) {
    const Variable* inner = &variable;
    const Variable* element = nullptr;
    for (;;) {
        const int type = Node::baseType(inner->dataType());
        const Variable* next = nullptr;
        if (type == TypeCode::Array) next = static_cast<const Array*>(inner)->defaultValue();
        if (type == TypeCode::Hash) next = static_cast<const Hash*>(inner)->defaultValue();
        if (next == nullptr) break;
        if (element == nullptr) element = next;
        inner = next;
    }
    if (Node::baseType(inner->dataType()) != TypeCode::Adt) return;
    if (element == nullptr) {
        visit(static_cast<const AdtVariable&>(variable).value());
    } else if (element == inner) {
        visitElements<AdtVariable>(variable, visit);
    } else if (Node::baseType(element->dataType()) == TypeCode::Array) {
        visitElements<Array>(variable, visit);
    } else {
        visitElements<Hash>(variable, visit);
    }
}

}  // namespace

SymbolTable::~SymbolTable() {
    clearScript();
    globalIdentifiers_.clear();
    // In the order of insertion, since a container does not fix the order of destruction.
    for (std::unique_ptr<Extension>& extension : extensions_) extension.reset();
}

void SymbolTable::startScript() {
    mainFunction_ = std::make_unique<Function>();
    statementStack_.push_back(mainFunction_.get());
}

void SymbolTable::clearScript() {
    addition_.reset();
    growing_.clear();
    passing_.clear();
    statementStack_.clear();
    functions_.clear();
    oldFunctions_.clear();
    mainFunction_.reset();
    oldVariables_.clear();
}

void SymbolTable::startAddition() {
    const StatementList::Parts& parts = mainFunction_->parts();
    addition_ = std::make_unique<Addition>();
    addition_->statements = parts.statements.size();
    addition_->names = parts.identifiers ? parts.identifiers->size() : 0;
    addition_->functions = functions_.size();
    addition_->growing = growing_.size();
    addition_->oldVariables = oldVariables_.size();
    addition_->oldFunctions = oldFunctions_.size();
}

void SymbolTable::dropAddition() noexcept {
    StatementList::Parts& parts = mainFunction_->parts();
    statementStack_.resize(1);
    growing_.resize(addition_->growing);
    passing_.clear();
    parts.statements.resize(addition_->statements);
    for (; oldFunctions_.size() > addition_->oldFunctions; oldFunctions_.pop_back()) {
        Replaced<Function>& old = oldFunctions_.back();
        functions_.exchange(old.name, old.value.release());
    }
    functions_.truncate(addition_->functions);
    for (; oldVariables_.size() > addition_->oldVariables; oldVariables_.pop_back()) {
        Replaced<Variable>& old = oldVariables_.back();
        parts.identifiers->exchange(old.name, old.value.release());
    }
    if (parts.identifiers) parts.identifiers->truncate(addition_->names);
    addition_.reset();
}

bool SymbolTable::keepAddition() noexcept {
    mainFunction_->parts().statements.resize(addition_->statements);
    passing_.clear();
    const bool hasFunctions =
        functions_.size() > addition_->functions || oldFunctions_.size() > addition_->oldFunctions;
    addition_.reset();
    return hasFunctions;
}

bool SymbolTable::pushStatement(Node* block, Node* open) {
    makeRoom(statementStack_);
    if (!addStatement(block)) return false;
    statementStack_.push_back(open);
    return true;
}

bool SymbolTable::popStatement() {
    if (statementStack_.size() < 2) return false;
    auto* const statement = dynamic_cast<CompoundStatement*>(statementStack_.back());
    if (statement != nullptr) statement->close();
    statementStack_.pop_back();
    return true;
}

bool SymbolTable::addStatement(Node* statement) {
    Node* const block = topStatement();
    return block != nullptr && block->addStatement(statement);
}

bool SymbolTable::addIdentifier(const FND::String& name, Variable* variable) {
    // The function of a descriptor follows.
    if (variable->dataType() == TypeCode::Function) functions_.prefetch(name);
    Node* const block = topStatement();
    // A block outside of functions is executed once and ends.
    const bool isPassing = addition_ != nullptr && statementStack_.size() > 1 &&
                           dynamic_cast<const Function*>(statementStack_[1]) == nullptr;
    std::vector<const Variable*>& growing = isPassing ? passing_ : growing_;
    makeRoom(growing);
    if (block == nullptr) return false;
    if (addition_ == nullptr || statementStack_.size() > 1) {
        if (!block->addIdentifier(name, variable)) return false;
    } else if (!declareOnceMore(name, variable)) {
        return false;
    }
    const int type = Node::baseType(variable->dataType());
    if (type == TypeCode::String || type == TypeCode::Array || type == TypeCode::Hash ||
        type == TypeCode::Adt) {
        growing.push_back(variable);
    }
    return true;
}

bool SymbolTable::declareOnceMore(const FND::String& name, Variable* variable) {
    if (!addition_->declared.insert(name).second) return false;
    if (mainFunction_->addIdentifier(name, variable)) return true;
    oldVariables_.push_back({name, nullptr});
    oldVariables_.back().value = mainFunction_->parts().identifiers->exchange(name, variable);
    return true;
}

Variable* SymbolTable::getVariable(const FND::String& module, const FND::String& name) {
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

bool SymbolTable::pushFunction(const FND::String& name, Function* function) {
    makeRoom(statementStack_);
    if (!functions_.insert(name, function)) {
        if (addition_ == nullptr) return false;
        oldFunctions_.push_back({name, nullptr});
        oldFunctions_.back().value = functions_.exchange(name, function);
    }
    statementStack_.push_back(function);
    return true;
}

bool SymbolTable::addGlobalConstant(const FND::String& name, const FND::String& value) {
    auto constant = std::make_unique<StringVariable>(value, true);
    return globalIdentifiers_.try_emplace(name, std::move(constant)).second;
}

Extension* SymbolTable::extension(const FND::String& name) const {
    for (const std::unique_ptr<Extension>& extension : extensions_) {
        if (extension->extensionName() == name) return extension.get();
    }
    return nullptr;
}

void SymbolTable::visitNames(
    const std::function<void(const FND::String& name, const FND::String& extension)>& visit) const {
    for (const auto& [name, constant] : globalIdentifiers_) visit(name, {});
    for (const std::unique_ptr<Extension>& extension : extensions_) {
        const FND::String module = extension->extensionName();
        extension->visitNames([&](const FND::String& name) { visit(name, module); });
    }
}

void SymbolTable::insertExtension(Extension* extension) {
    makeRoom(extensions_);
    extensions_.emplace_back(extension);
}

std::size_t SymbolTable::heapBytes() const {
    std::size_t bytes = 0;
    for (const Variable* variable : growing_) bytes += SCR::heapBytes(*variable);
    for (const Variable* variable : passing_) bytes += SCR::heapBytes(*variable);
    return bytes;
}

void SymbolTable::visitHandles(const std::function<void(long)>& visit) const {
    for (const Variable* variable : growing_) handlesIn(*variable, visit);
    for (const Variable* variable : passing_) handlesIn(*variable, visit);
}

}  // namespace SCR
