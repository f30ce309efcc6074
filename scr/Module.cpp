#include "scr/Module.h"

#include <algorithm>
#include <memory>

#include "scr/os/ModuleFiles.h"

namespace SCR {

namespace {

// Removes the text before the first of `separators`, and the separator, and returns that text.
std::string_view cut(std::string_view& text, std::string_view separators) {
    const std::size_t end = std::min(text.find_first_of(separators), text.size());
    const std::string_view head = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return head;
}

// What the function does to the containers among its arguments, as its signature says.
void declareUses(FctDescr& function, std::string_view parameters) {
    for (int index = 0; !parameters.empty() && parameters != ")"; ++index) {
        std::string_view parameter = cut(parameters, ",)");
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
        cut(text, " ");
        const FND::String name(cut(text, "("));
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
