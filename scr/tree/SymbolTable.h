#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "fnd/String.h"
#include "scr/Extension.h"
#include "scr/Function.h"
#include "scr/Variable.h"
#include "scr/tree/NameTable.h"

namespace SCR {

/// The meanings of names while an interpreter compiles, and the blocks that are open then: the main
/// function, the functions of the script, the constants of the host and the extensions.
/// `Interpreter` passes calls on to it and documents them.
class SymbolTable {
public:
    SymbolTable() = default;
    SymbolTable(const SymbolTable&) = delete;
    SymbolTable& operator=(const SymbolTable&) = delete;
    /// Destroys the script, the constants and the extensions, in this order.
    ~SymbolTable();

    /// Begins a script with an empty main function as its only open block.
    void startScript();
    /// What follows is added to the script. A name of the script may be declared once more in it,
    /// outside of functions and blocks: the script goes on with what it meant before.
    void startAddition();
    /// Destroys what was added, and the names mean what they meant before.
    void dropAddition() noexcept;
    /// Keeps what was declared, and destroys the statements. Gives whether functions are among it.
    bool keepAddition() noexcept;
    /// The number of the first statement that was added to the main function.
    std::size_t addedFrom() const { return addition_->statements; }
    /// Destroys the script.
    void clearScript();
    /// Null when there is no script.
    Function* mainFunction() const { return mainFunction_.get(); }

    bool pushStatement(Node* block, Node* open);
    bool popStatement();
    Node* topStatement() const {
        return statementStack_.empty() ? nullptr : statementStack_.back();
    }
    int statementDepth() const { return static_cast<int>(statementStack_.size()); }
    /// The open blocks, from the outermost inwards.
    std::vector<Node*>& openBlocks() { return statementStack_; }
    bool addStatement(Node* statement);
    bool addIdentifier(const FND::String& name, Variable* variable);
    Variable* getVariable(const FND::String& module, const FND::String& name);
    Function* getFunction(const FND::String& name) { return functions_.find(name); }
    bool pushFunction(const FND::String& name, Function* function);

    bool addGlobalConstant(const FND::String& name, const FND::String& value);
    bool isGlobalConstant(const FND::String& name) const {
        return globalIdentifiers_.contains(name);
    }
    Extension* extension(const FND::String& name) const;
    /// Takes ownership of the extension; when it throws, the caller still owns it.
    void insertExtension(Extension* extension);

    /// Calls visit(name, extension's name) for the names of the host's constants, whose extension
    /// is "", of the built-in library and of host extensions.
    void visitNames(const std::function<void(const FND::String& name,
                                             const FND::String& extension)>& visit) const;

    /// The memory of the script's variables outside the variables themselves, in bytes.
    std::size_t heapBytes() const;

    /// Calls visit(handle) for the objects of hosts that the script's variables hold.
    void visitHandles(const std::function<void(long)>& visit) const;

private:
    template <class Value>
    struct Replaced {
        FND::String name;
        std::unique_ptr<Value> value;
    };
    // What the script had before the addition, and what was declared in it.
    struct Addition {
        std::size_t statements;
        std::size_t names;
        std::size_t functions;
        std::size_t growing;
        std::size_t oldVariables;
        std::size_t oldFunctions;
        std::set<FND::String> declared;
    };
    bool declareOnceMore(const FND::String& name, Variable* variable);

    std::vector<Node*> statementStack_;
    std::map<FND::String, std::unique_ptr<Variable>> globalIdentifiers_;
    std::unique_ptr<Function> mainFunction_;
    NameTable<Function> functions_;
    std::vector<std::unique_ptr<Extension>> extensions_;
    // The script's variables that may take memory or hold handles.
    std::vector<const Variable*> growing_;
    std::unique_ptr<Addition> addition_;
    std::vector<const Variable*> passing_;  // the same for those that end with the addition
    // What names meant before they were declared once more. The script uses it.
    std::vector<Replaced<Variable>> oldVariables_;
    std::vector<Replaced<Function>> oldFunctions_;
};

}  // namespace SCR
