#pragma once

#include <functional>

#include "fnd/Export.h"
#include "fnd/String.h"

namespace SCR {

class Variable;

/// A library of functions and variables that interpreters consult when they resolve a name. Hosts
/// and extension libraries derive from it. An interpreter owns the extensions inserted into it;
/// each interpreter has its own, so an extension is used by one thread at a time.
class KESTREL_API Extension {
public:
    Extension() = default;
    Extension(const Extension&) = delete;
    Extension& operator=(const Extension&) = delete;
    virtual ~Extension();

    /// The module name. Scripts qualify the extension's names with it, and an interpreter accepts
    /// each module name only once.
    virtual FND::String extensionName() const = 0;

    /// What the extension supplies under `name`, a variable or a function's descriptor, or null. It
    /// stays the extension's and must live as long as the extension does. The base class gives
    /// null.
    virtual Variable* variable(const FND::String& name);

    /// Calls `visit` with the names that `variable` knows, in any order, so that messages can name
    /// the one that was meant. The base class names none.
    virtual void visitNames(const std::function<void(const FND::String& name)>& visit) const;
};

}  // namespace SCR
