#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string_view>

#include "fnd/Export.h"
#include "fnd/String.h"

namespace SCR {

class FctDescr;
class ScriptMutexes;
class Variable;
enum class Operator : unsigned char;

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

/// The built-in library that every interpreter carries: functions, the descriptors through which
/// the parser finds operators, and the predefined constants. Their table is shared by all instances
/// of the process; it exists from the construction of the first to the destruction of the last.
/// Interpreters with their instances may be made and destroyed on any threads.
class KESTREL_API MainExtension final : public Extension {
public:
    MainExtension();
    ~MainExtension() override;

    FND::String extensionName() const override;
    /// The descriptor or constant `name`, or null; do not use it after the last instance is gone.
    Variable* variable(const FND::String& name) override;

    void visitNames(const std::function<void(const FND::String& name)>& visit) const override;

    /// The signature of the built-in function `name` with the names of its parameters; empty when
    /// there is none.
    KESTREL_HIDDEN static std::string_view signatureOf(std::string_view name);
    /// The descriptor of an operator for operands of the base type `code`, or null; the same one
    /// that `variable` gives for its name.
    KESTREL_HIDDEN static const FctDescr* operatorFor(int code, Operator sign);
    /// The mutexes of the interpreter's scripts.
    KESTREL_HIDDEN ScriptMutexes& mutexes() { return *mutexes_; }
    /// The number of entries of the shared table; 0 when no instance is alive.
    static std::size_t tableSize();

private:
    const std::unique_ptr<ScriptMutexes> mutexes_;
};

}  // namespace SCR
