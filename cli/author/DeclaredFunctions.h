#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "author/Functions.h"
#include "scr/Extension.h"
#include "scr/FctDescr.h"

namespace Cli {

/// Functions of a host of which only the signatures are known: scripts that call them can be
/// checked, but not run.
class DeclaredFunctions final : public SCR::Extension {
public:
    /// Takes those of `functions` that belong to `module`.
    DeclaredFunctions(std::string module, const std::vector<Author::FunctionEntry>& functions);

    FND::String extensionName() const override;
    SCR::Variable* variable(const FND::String& name) override;
    /// The names of the types of objects that occur in them.
    const std::set<std::string>& types() const { return types_; }

    void visitNames(const std::function<void(const FND::String& name)>& visit) const override;

private:
    std::string module_;
    std::set<std::string> types_;
    std::map<std::string, std::unique_ptr<SCR::FctDescr>> functions_;
};

}  // namespace Cli
