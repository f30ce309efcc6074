#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/Extension.h"
#include "scr/call/Operator.h"
#include "scr/run/ScriptMutexes.h"

namespace SCR {

class FctDescr;
class Variable;

/// The built-in library that every interpreter carries: functions, the descriptors through which
/// the parser finds operators, and the predefined constants. Their table is shared by all instances
/// of the process; it exists from the construction of the first to the destruction of the last.
/// Interpreters with their instances may be made and destroyed on any threads.
class KESTREL_API MainExtension final : public Extension {
public:
    MainExtension();
    ~MainExtension() override;

    FND::String extensionName() const override;
    /// The descriptor or constant `name`, or null; not to be used after the last instance is gone.
    Variable* variable(const FND::String& name) override;

    /// The descriptor of an operator for operands of the base type `code`, or null; as `variable`
    /// gives for its name.
    const FctDescr* operatorFor(int code, Operator sign) const {
        return code >= 0 && code < numCodesCM ? operatorsCM[code][static_cast<std::size_t>(sign)]
                                              : nullptr;
    }

    /// A new script mutex; see `ScriptMutexes` for this and the next three.
    long mutexCreate() { return mutexes_.create(); }
    bool mutexDestroy(long handle) { return mutexes_.destroy(handle); }
    bool mutexAcquire(long handle, const std::function<void()>& ask = {}) {
        return mutexes_.acquire(handle, ask);
    }
    bool mutexRelease(long handle) { return mutexes_.release(handle); }
    /// Bytes that the script mutexes take.
    std::size_t heapBytes() const { return mutexes_.heapBytes(); }

    /// The number of entries of the shared table; 0 when no instance is alive.
    static std::size_t tableSize();

private:
    using Constants = std::unordered_map<FND::String, std::unique_ptr<Variable>>;

    static void fillTable();

    static constexpr int numCodesCM = 32;
    using Operators = std::array<std::array<const FctDescr*, operatorSignsS.size()>, numCodesCM>;

    static Constants constantsCM;
    static Operators operatorsCM;
    static int instancesCM;
    static std::mutex mutexCM;
    static const bool isForkGuardedCM;

    ScriptMutexes mutexes_;
};

}  // namespace SCR
