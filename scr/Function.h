#pragma once

#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/Statement.h"

namespace SCR {

/// A user-defined function, and the unnamed one that holds a script's top-level statements: a block
/// that also knows its return variable and the names of its parameters. There is one set of
/// parameters and locals a function, not one a call.
class KESTREL_API Function final : public StatementList {
public:
    /// The name of the variable to which a return statement assigns.
    static const FND::String retValNameCM;

    Function() = default;

    /// Declares as a block does; while parameters are declared it also records their names.
    bool addIdentifier(const FND::String& name, Variable* variable) override;

    void close() override;

    /// Ends or skips phases of the declaration: a function that returns nothing has no return
    /// variable, and what is declared once the parameters are closed is a plain local.
    void startParameters() { phase_ = Phase::Parameters; }
    void closeParameters() { phase_ = Phase::Locals; }

    /// The variable that a return statement sets; null in a function that returns nothing. Owned by
    /// this block.
    Variable* returnVariable() const { return returnVariable_; }
    /// When all that the function does is to return a value: that statement. Otherwise null.
    const ReturnStatement* onlyReturn() const { return onlyReturn_; }
    using Names = std::vector<FND::String, NodeAllocator<FND::String>>;
    /// In the order of declaration.
    const Names& parameterNames() const { return parameterNames_; }

private:
    enum class Phase { ReturnVariable, Parameters, Locals };

    Variable* returnVariable_ = nullptr;
    Names parameterNames_;
    Phase phase_ = Phase::ReturnVariable;
    const ReturnStatement* onlyReturn_ = nullptr;
};

}  // namespace SCR
