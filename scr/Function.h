#pragma once

#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/Statement.h"

namespace SCR {

/// A user-defined function, and the unnamed one that holds a script's top-level statements: a block
/// that also knows its return variable and the names of its parameters. A function has one set of
/// parameters and locals, not one per call.
class KESTREL_API Function final : public StatementList {
public:
    /// The name of the variable that a return statement assigns to.
    static const FND::String retValNameCM;

    Function() = default;

    /// Declares like a block; while parameters are declared it also records their names.
    bool addIdentifier(const FND::String& name, Variable* variable) override;

    std::int32_t execute() override;

    /// End or skip phases of the declaration: a function that returns nothing has no return
    /// variable, and what is declared after the parameters are closed is a plain local.
    void startParameters() { phase_ = Phase::Parameters; }
    void closeParameters() { phase_ = Phase::Locals; }

    /// The variable that a return statement sets; null in a function that returns nothing. Owned by
    /// this block.
    Variable* returnVariable() const { return returnVariable_; }
    using Names = std::vector<FND::String>;
    /// In the order of declaration.
    const Names& parameterNames() const { return parameterNames_; }

private:
    enum class Phase { ReturnVariable, Parameters, Locals };

    Variable* returnVariable_ = nullptr;
    Names parameterNames_;
    Phase phase_ = Phase::ReturnVariable;
};

}  // namespace SCR
