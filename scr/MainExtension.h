#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/Extension.h"

namespace SCR {

class FctDescr;
class ScriptMutexes;
class Variable;
enum class Operator : unsigned char;

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
