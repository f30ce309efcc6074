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
    mainFunction_.reset();
    functions_.clear();
    globalIdentifiers_.clear();
    // In the order of insertion, since a container does not fix the order of destruction.
    for (std::unique_ptr<Extension>& extension : extensions_) extension.reset();
}

void SymbolTable::startScript() {
    mainFunction_ = std::make_unique<Function>();
    statementStack_.push_back(mainFunction_.get());
}

void SymbolTable::clearScript() {
    growing_.clear();
    statementStack_.clear();
    functions_.clear();
    mainFunction_.reset();
}

SymbolTable::Mark SymbolTable::mark() const {
    const StatementList::Parts& parts = mainFunction_->parts();
    return {parts.statements.size(), parts.identifiers ? parts.identifiers->size() : 0,
            functions_.size(), growing_.size()};
}

void SymbolTable::rollBack(const Mark& mark) noexcept {
    StatementList::Parts& parts = mainFunction_->parts();
    statementStack_.resize(1);
    growing_.resize(mark.growing);
    parts.statements.resize(mark.statements);
    functions_.truncate(mark.functions);
    if (parts.identifiers) parts.identifiers->truncate(mark.names);
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
    makeRoom(growing_);
    if (block == nullptr || !block->addIdentifier(name, variable)) return false;
    const int type = Node::baseType(variable->dataType());
    if (type == TypeCode::String || type == TypeCode::Array || type == TypeCode::Hash ||
        type == TypeCode::Adt) {
        growing_.push_back(variable);
    }
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
    if (!functions_.insert(name, function)) return false;
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
    return bytes;
}

void SymbolTable::visitHandles(const std::function<void(long)>& visit) const {
    for (const Variable* variable : growing_) handlesIn(*variable, visit);
}

}  // namespace SCR
