#pragma once

#include <memory>
#include <vector>

#include "capi/Convert.h"
#include "capi/Handles.h"
#include "capi/kestrel.h"
#include "fsm/EngineGroup.h"
#include "scr/ConditionList.h"
#include "scr/HostExtension.h"
#include "scr/Interpreter.h"
#include "scr/Program.h"

namespace CApi {

/// Passes messages to the host's function.
class FunctionLog final : public SCR::Log {
public:
    FunctionLog(kestrel_log function, void* data) : function_(function), data_(data) {}
    void diagnose(const SCR::Diagnostic& message) override;

private:
    const kestrel_log function_;
    void* const data_;
};

/// Passes prints to the host's function.
class FunctionOutput final : public SCR::Output {
public:
    FunctionOutput(kestrel_output function, void* data) : function_(function), data_(data) {}
    bool write(std::string_view text) override;

private:
    const kestrel_output function_;
    void* const data_;
};

class ConditionsObject;

/// A type of objects of the host. Its address stands for it.
struct ObjectType {
    FND::String name;
    kestrel_release release;  ///< null when objects are lent
};

/// An interpreter with the extension "host", which gets the host's functions and variables. Those
/// that a setup prepares belong to somebody else.
class InterpreterObject final : public Object {
public:
    static constexpr Kind kindCM = Kind::Interpreter;

    InterpreterObject(kestrel_log log, void* data);
    explicit InterpreterObject(SCR::Interpreter& borrowed);
    ~InterpreterObject() override;

    SCR::Interpreter& interpreter() const { return *interpreter_; }
    /// The extension, which is made at its first use; null after an error.
    SCR::HostExtension* host() const;
    bool isOwned() const { return owned_ != nullptr; }
    /// Whether it compiles or executes, or another thread uses it.
    bool isBusy() const;
    void output(kestrel_output function, void* data);

    /// The texts that the last batch gave the host.
    std::vector<std::vector<FND::String>>& batchTexts() { return batchTexts_; }

    /// The JSON that the host got last.
    FND::String& functions() { return functions_; }

    /// The types declared through it.
    std::vector<std::shared_ptr<const ObjectType>>& types() { return types_; }

    /// The conditions that use it.
    std::vector<ConditionsObject*>& conditions() { return conditions_; }

    /// The handle of the object that owns `interpreter`; null when none does.
    static kestrel_interpreter* handleOf(SCR::Interpreter& interpreter);
    kestrel_interpreter* handle() const { return static_cast<kestrel_interpreter*>(entry_.get()); }

private:
    FunctionLog log_;
    std::unique_ptr<FunctionOutput> output_;
    std::vector<std::vector<FND::String>> batchTexts_;
    FND::String functions_;
    std::vector<std::shared_ptr<const ObjectType>> types_;
    std::vector<ConditionsObject*> conditions_;
    std::unique_ptr<SCR::Interpreter> owned_;
    SCR::Interpreter* const interpreter_;
    // The first to go: nobody finds it any more while it is destroyed.
    const Handle entry_{*this};
};

/// Destroys the lists of the conditions that use `owner`; their objects stay.
void dropLists(InterpreterObject& owner);

/// The object that `handle` names, or null.
template <class T>
T* get(const void* handle) {
    return static_cast<T*>(Handles::find(handle, T::kindCM));
}

/// The handle of an object, which the host owns now.
template <class Made>
auto* give(std::unique_ptr<Made> object) {
    if (object->handle() == nullptr) throw std::bad_alloc();
    return object.release()->handle();
}

/// The program that `handle` names, or null.
const SCR::Program* programOf(const kestrel_program* handle);

/// Calls use(interpreter) when `handle` names one, and turns what it throws into a status.
template <class Use>
kestrel_status with(kestrel_interpreter* handle, const Use& use) noexcept {
    auto* const object = get<InterpreterObject>(handle);
    if (object == nullptr) return refuseHandle("interpreter");
    try {
        return use(*object);
    } catch (...) {
        return tell(SCR::Outcome(SCR::Outcome::Kind::Failed));
    }
}

}  // namespace CApi
