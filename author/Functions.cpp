#include "author/Functions.h"

#include <algorithm>

#include "scr/Module.h"
#include "scr/builtin/base/BuiltIn.h"
#include "scr/value/Words.h"

namespace Author {

std::vector<std::string> FunctionEntry::parameters() const {
    std::vector<std::string> parameters;
    const std::size_t open = signature.find('(');
    const std::size_t close = signature.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close < open) return parameters;
    std::string parameter;
    int depth = 0;
    for (const char byte : signature.substr(open + 1, close - open - 1) + ",") {
        // Braces and brackets without anything in them belong to a type.
        if (byte == ',' && depth <= 0) {
            const std::size_t first = parameter.find_first_not_of(' ');
            if (first != std::string::npos) parameters.push_back(parameter.substr(first));
            parameter.clear();
        } else {
            parameter += byte;
        }
    }
    return parameters;
}

std::vector<FunctionEntry> entriesOf(const SCR::ModuleTable& table, const std::string& module) {
    std::vector<FunctionEntry> entries;
    for (const SCR::ModuleFunction& row : table.functions) {
        const std::string signature(row.signature);
        const std::size_t space = signature.find(' ');
        entries.push_back({module, signature.substr(space + 1, signature.find('(') - space - 1),
                           signature, std::string(row.manual), std::string(row.example)});
    }
    return entries;
}

Functions Functions::shipped() {
    Functions functions;
    for (const SCR::BuiltIn* row : SCR::builtIns()) {
        const std::string signature(row->signature);
        const std::size_t space = signature.find(' ');
        const std::string name = signature.substr(space + 1, signature.find('(') - space - 1);
        // Operators have a sign in their names.
        if (!SCR::isName(name) || name.starts_with("Bool") || name.ends_with("Negation")) continue;
        functions.add({"", name, signature, std::string(row->manual), std::string(row->example)});
    }
    for (const SCR::ModuleTable* module : SCR::shippedModules()) {
        functions.modules_.emplace(module->name, module->manual);
        for (FunctionEntry& entry : entriesOf(*module, std::string(module->name))) {
            functions.add(std::move(entry));
        }
    }
    return functions;
}

void Functions::add(FunctionEntry entry) {
    if (!entry.module.empty()) modules_.emplace(entry.module, "");
    byName_.emplace(entry.name, all_.size());
    all_.push_back(std::move(entry));
}

const FunctionEntry* Functions::find(std::string_view name,
                                     const std::vector<std::string>& used) const {
    const std::size_t colons = name.find("::");
    const std::string_view module =
        colons == std::string_view::npos ? std::string_view() : name.substr(0, colons);
    if (!module.empty()) name.remove_prefix(colons + 2);
    const FunctionEntry* found = nullptr;
    const auto [first, end] = byName_.equal_range(name);
    for (auto entry = first; entry != end; ++entry) {
        const FunctionEntry& function = all_[entry->second];
        if (!module.empty()) {
            if (function.module == module) return &function;
        } else if (function.module.empty()) {
            return &function;
        } else if (found == nullptr &&
                   std::find(used.begin(), used.end(), function.module) != used.end()) {
            found = &function;
        }
    }
    return found;
}

}  // namespace Author
