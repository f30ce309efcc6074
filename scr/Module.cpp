#include "scr/Module.h"

#include <algorithm>
#include <memory>

#include "scr/call/Signature.h"
#include "scr/os/ModuleFiles.h"

namespace SCR {

namespace {

// What the function does to the containers among its arguments, as its signature says.
void declareUses(FctDescr& function, std::string_view parameters) {
    for (int index = 0; !parameters.empty() && parameters != ")"; ++index) {
        std::string_view parameter = cutSignature(parameters, ",)");
        if (parameter.starts_with(' ')) parameter.remove_prefix(1);
        if (parameter.starts_with("out ") && function.elementType(index) != 0) {
            function.container(index, function.elementType(index), FctDescr::Use::Replaces);
        }
    }
}

}  // namespace

Extension* makeModule(const ModuleTable& table) {
    auto module = std::make_unique<HostExtension>(FND::String(table.name));
    for (const ModuleFunction& row : table.functions) {
        std::string_view text = row.signature;
        cutSignature(text, " ");
        const FND::String name(cutSignature(text, "("));
        FctDescr* const function = row.add(*module, name);
        if (function == nullptr) continue;
        function->effects(row.effects);
        function->nullOnFailure(true);
        function->mayRunScript(false);
        declareUses(*function, text);
    }
    return module.release();
}

std::vector<const ModuleTable*> shippedModules() { return ModuleFiles::shipped(); }

}  // namespace SCR
