#pragma once

#include <span>
#include <string_view>
#include <type_traits>
#include <vector>

#include "fnd/Export.h"
#include "scr/Capabilities.h"
#include "scr/HostExtension.h"
#include "scr/Version.h"

namespace SCR {

/// One function of a module: how it is called, what it does, and its manual. The table of a module
/// is all that loading it, the command and the manual know of it.
struct ModuleFunction {
    /// Adds the function to the module's extension under this name.
    using Add = FctDescr* (*)(HostExtension& module, const FND::String& name);

    /// "Type name(Type name, out Type name, Type[] name, change Type[] name, [Type name])": `out`
    /// marks a variable that is set, or a container that is filled anew; `change` a container that
    /// is changed in part; `[]` an array and `{}` a hash; "T" stands for several types, which the
    /// manual names; brackets hold what may be left out.
    std::string_view signature;
    Add add = nullptr;
    Effect effects = Effect::None;
    /// Sentences in Markdown.
    std::string_view manual;
    /// A condition that holds, or statements, with the names as after `use`; the tests run it.
    std::string_view example;
};

/// A module: an extension library with a table.
struct ModuleTable {
    std::string_view name;
    std::string_view manual;
    std::span<const ModuleFunction> functions;
};

/// Makes the extension of a module, which the caller owns. The functions give the null value of
/// their type after an exception, which is logged as an error.
KESTREL_API Extension* makeModule(const ModuleTable& table);

/// The tables of the modules in the folder `kestrel` next to the library, in the order of their
/// names. Loads those modules. They live as long as the process. Any thread.
KESTREL_API std::vector<const ModuleTable*> shippedModules();

/// For the rows of a table: adds a function, or the functor `F` for several types of elements.
template <auto function>
FctDescr* addFunction(HostExtension& module, const FND::String& name) {
    return module.function(name, function);
}
template <class F, class... Elements>
FctDescr* addFunctionOver(HostExtension& module, const FND::String& name) {
    return module.functionOver<Elements...>(name, F());
}

}  // namespace SCR

/// What the library of the module `name` exports, once, in its source; `table` is its table.
#define KESTREL_MODULE(name, table)                                                            \
    KESTREL_EXTENSION_VERSION(name);                                                           \
    extern "C" [[gnu::visibility("default")]] const SCR::ModuleTable* name##_KestrelModule() { \
        return &(table);                                                                       \
    }                                                                                          \
    extern "C" [[gnu::visibility("default")]] SCR::Extension* name##_KestrelExtension() {      \
        return SCR::makeModule(table);                                                         \
    }                                                                                          \
    static_assert(true)
