#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/Extension.h"
#include "scr/ScriptMutexes.h"

namespace SCR {

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

    /// A new script mutex; see `ScriptMutexes` for this and the next three.
    long mutexCreate() { return mutexes_.create(); }
    bool mutexDestroy(long handle) { return mutexes_.destroy(handle); }
    bool mutexAcquire(long handle, const std::function<void()>& ask = {}) {
        return mutexes_.acquire(handle, ask);
    }
    bool mutexRelease(long handle) { return mutexes_.release(handle); }

    /// The number of entries of the shared table; 0 when no instance is alive.
    static std::size_t tableSize();

private:
    using Constants = std::unordered_map<FND::String, std::unique_ptr<Variable>>;

    static void fillTable();

    static Constants constantsCM;
    static int instancesCM;
    static std::mutex mutexCM;

    ScriptMutexes mutexes_;
};

}  // namespace SCR
