#include <memory>
#include <vector>

#include "capi/Convert.h"
#include "capi/Objects.h"
#include "scr/Array.h"
#include "scr/Hash.h"
#include "scr/HostContainers.h"
#include "scr/ScriptHandle.h"
#include "scr/value/TypeVisitor.h"

namespace CApi {

namespace {

// A handle of a variable of any type, or of a function of any signature.
class AnyHandle : public SCR::ScriptHandle {};

class VariableObject final : public Object {
public:
    static constexpr Kind kindCM = Kind::Variable;

    VariableObject() : Object(kindCM) {}

    AnyHandle variable;
    kestrel_variable* handle() const { return static_cast<kestrel_variable*>(entry_.get()); }

private:
    const Handle entry_{*this};
};

// Where the value of a scalar lies; null for any other variable.
void* storageOf(SCR::Variable& variable) {
    return SCR::withType(SCR::HostTypes(), variable.dataType(), [&]<class Type>(Type) -> void* {
        return &static_cast<typename Type::Variable&>(variable).value();
    });
}

// Calls use(handleUse, variable) when `handle` names a variable that is alive.
template <class Use>
kestrel_status withVariable(kestrel_variable* handle, const Use& use) noexcept {
    auto* const object = get<VariableObject>(handle);
    if (object == nullptr) return refuseHandle("variable");
    try {
        const SCR::HandleUse opened(object->variable);
        if (!opened) return tell(opened.refusal());
        return use(opened, *static_cast<SCR::Variable*>(opened.target()));
    } catch (...) {
        return tell(SCR::Outcome(SCR::Outcome::Kind::Failed));
    }
}

kestrel_status refuse(const SCR::HandleUse& use, const char* problem) {
    return tell(use.refusal(problem));
}

constexpr const char* otherTypeS = "the value has another type";
constexpr const char* noElementS = "there is no such element";
constexpr const char* noRoomS = "there is no room for the element";

// Calls use(T's type code) with the C++ type of the container's elements, when they are scalars.
template <class Container, class Use>
kestrel_status withElements(const SCR::HandleUse& opened, SCR::Variable& variable, int type,
                            const Use& use) {
    if (SCR::Node::baseType(variable.dataType()) != type) return refuse(opened, otherTypeS);
    auto& container = static_cast<Container&>(variable);
    const int element = SCR::Node::baseType(container.containerType());
    if (typeCodeOf(typeOf(element)) == 0) return refuse(opened, "its elements are containers");
    return SCR::withType(SCR::HostTypes(), element, [&]<class Type>(Type) {
        return use.template operator()<typename Type::Value>(container, element);
    });
}

}  // namespace

}  // namespace CApi

using namespace CApi;

kestrel_status kestrel_declare(kestrel_interpreter* interpreter, const char* name,
                               const kestrel_value* value) {
    return with(interpreter, [&](InterpreterObject& object) {
        SCR::HostExtension* const host = object.host();
        if (host == nullptr || name == nullptr || value == nullptr) return refuse("a null pointer");
        const int type = typeCodeOf(value->type);
        if (type == 0) return refuse("the value has no type of a variable");
        return SCR::withType(SCR::HostTypes(), type, [&]<class Type>(Type) {
            typename Type::Value initial{};
            store(type, &initial, *value);
            return host->declare(name, type, &initial).isDeclared
                       ? KESTREL_FINISHED
                       : refuse(FND::String("the name `") + name + "' is refused");
        });
    });
}

kestrel_status kestrel_constant(kestrel_interpreter* interpreter, const char* name,
                                const kestrel_value* value) {
    return with(interpreter, [&](InterpreterObject& object) {
        SCR::HostExtension* const host = object.host();
        if (host == nullptr || name == nullptr || value == nullptr) return refuse("a null pointer");
        const int type = typeCodeOf(value->type);
        if (type == 0) return refuse("the value has no type of a constant");
        return SCR::withType(SCR::HostTypes(), type, [&]<class Type>(Type) {
            typename Type::Value constant{};
            store(type, &constant, *value);
            return host->declareConstant(name, type, &constant)
                       ? KESTREL_FINISHED
                       : refuse(FND::String("the name `") + name + "' is refused");
        });
    });
}

kestrel_variable* kestrel_variable_new(kestrel_interpreter* interpreter, const char* name) {
    kestrel_variable* made = nullptr;
    with(interpreter, [&](InterpreterObject& object) {
        if (name == nullptr) return refuse("the name is null");
        auto variable = std::make_unique<VariableObject>();
        object.interpreter().bindVariable(variable->variable, name, {});
        if (SCR::Outcome outcome = variable->variable.outcome(); !outcome) {
            return tell(std::move(outcome));
        }
        if (variable->handle() == nullptr) return tell(SCR::Outcome(SCR::Outcome::Kind::Failed));
        made = variable.release()->handle();
        return KESTREL_FINISHED;
    });
    return made;
}

kestrel_status kestrel_variable_free(kestrel_variable* variable) {
    auto* const object = get<VariableObject>(variable);
    if (object == nullptr) return refuseHandle("variable");
    delete object;
    return KESTREL_FINISHED;
}

kestrel_type kestrel_variable_type(kestrel_variable* variable) {
    kestrel_type type = KESTREL_VOID;
    withVariable(variable, [&](const SCR::HandleUse& /*opened*/, SCR::Variable& found) {
        type = typeOf(found.dataType());
        return KESTREL_FINISHED;
    });
    return type;
}

kestrel_status kestrel_get(kestrel_variable* variable, kestrel_value* value) {
    return withVariable(variable, [&](const SCR::HandleUse& opened, SCR::Variable& found) {
        void* const stored = storageOf(found);
        if (value == nullptr || stored == nullptr) return refuse(opened, "it is no single value");
        show(found.dataType(), stored, *value);
        return KESTREL_FINISHED;
    });
}

kestrel_status kestrel_set(kestrel_variable* variable, const kestrel_value* value) {
    return withVariable(variable, [&](const SCR::HandleUse& opened, SCR::Variable& found) {
        void* const stored = storageOf(found);
        if (value == nullptr || stored == nullptr) return refuse(opened, "it is no single value");
        if (!SCR::Node::isLeft(found.dataType())) return refuse(opened, "it is a constant");
        return store(found.dataType(), stored, *value) ? KESTREL_FINISHED
                                                       : refuse(opened, otherTypeS);
    });
}

size_t kestrel_size(kestrel_variable* variable) {
    std::size_t size = 0;
    withVariable(variable, [&](const SCR::HandleUse& /*opened*/, SCR::Variable& found) {
        const int type = SCR::Node::baseType(found.dataType());
        if (type == SCR::TypeCode::Array) size = static_cast<SCR::Array&>(found).size();
        if (type == SCR::TypeCode::Hash) size = static_cast<SCR::Hash&>(found).size();
        return KESTREL_FINISHED;
    });
    return size;
}

kestrel_status kestrel_array_get(kestrel_variable* variable, size_t index, kestrel_value* value) {
    return withVariable(variable, [&](const SCR::HandleUse& opened, SCR::Variable& found) {
        return withElements<SCR::Array>(opened, found, SCR::TypeCode::Array,
                                        [&]<class T>(SCR::Array& array, int type) {
                                            if (value == nullptr || index >= array.size())
                                                return refuse(opened, noElementS);
                                            show(type, &SCR::ArrayView<T>(array)[index], *value);
                                            return KESTREL_FINISHED;
                                        });
    });
}

kestrel_status kestrel_array_set(kestrel_variable* variable, size_t index,
                                 const kestrel_value* value) {
    return withVariable(variable, [&](const SCR::HandleUse& opened, SCR::Variable& found) {
        return withElements<SCR::Array>(
            opened, found, SCR::TypeCode::Array, [&]<class T>(SCR::Array& array, int type) {
                T stored{};
                if (value == nullptr || !store(type, &stored, *value)) {
                    return refuse(opened, otherTypeS);
                }
                const SCR::ArrayRef<T> elements(array, &opened.interpreter());
                return elements.set(index, stored) ? KESTREL_FINISHED : refuse(opened, noRoomS);
            });
    });
}

kestrel_status kestrel_hash_get(kestrel_variable* variable, const char* key, size_t size,
                                kestrel_value* value) {
    return withVariable(variable, [&](const SCR::HandleUse& opened, SCR::Variable& found) {
        return withElements<SCR::Hash>(
            opened, found, SCR::TypeCode::Hash, [&]<class T>(SCR::Hash& hash, int type) {
                const T* const element =
                    SCR::HashView<T>(hash).find(FND::String(textOf(key, size)));
                if (value == nullptr || element == nullptr) return refuse(opened, noElementS);
                show(type, element, *value);
                return KESTREL_FINISHED;
            });
    });
}

kestrel_status kestrel_hash_set(kestrel_variable* variable, const char* key, size_t size,
                                const kestrel_value* value) {
    return withVariable(variable, [&](const SCR::HandleUse& opened, SCR::Variable& found) {
        return withElements<SCR::Hash>(
            opened, found, SCR::TypeCode::Hash, [&]<class T>(SCR::Hash& hash, int type) {
                T stored{};
                if (value == nullptr || !store(type, &stored, *value)) {
                    return refuse(opened, otherTypeS);
                }
                const SCR::HashRef<T> elements(hash, &opened.interpreter());
                return elements.set(FND::String(textOf(key, size)), stored)
                           ? KESTREL_FINISHED
                           : refuse(opened, noRoomS);
            });
    });
}

kestrel_status kestrel_hash_visit(kestrel_variable* variable, kestrel_visit visit, void* data) {
    return withVariable(variable, [&](const SCR::HandleUse& opened, SCR::Variable& found) {
        return withElements<SCR::Hash>(
            opened, found, SCR::TypeCode::Hash, [&]<class T>(SCR::Hash& hash, int type) {
                bool isDone = visit == nullptr;
                SCR::HashView<T>(hash).forEach([&](const FND::String& key, const T& element) {
                    if (isDone) return;
                    kestrel_value value;
                    show(type, &element, value);
                    isDone = visit(data, {key.data(), key.size()}, &value) != 0;
                });
                return KESTREL_FINISHED;
            });
    });
}

kestrel_status kestrel_clear(kestrel_variable* variable) {
    return withVariable(variable, [&](const SCR::HandleUse& opened, SCR::Variable& found) {
        const int type = SCR::Node::baseType(found.dataType());
        if (type == SCR::TypeCode::Array) {
            static_cast<SCR::Array&>(found).clear();
        } else if (type == SCR::TypeCode::Hash) {
            static_cast<SCR::Hash&>(found).clear();
        } else {
            return refuse(opened, "it is no array and no hash");
        }
        return KESTREL_FINISHED;
    });
}

kestrel_status kestrel_call_script(kestrel_interpreter* interpreter, const char* name,
                                   const kestrel_value* arguments, size_t count,
                                   kestrel_value* result) {
    return with(interpreter, [&](InterpreterObject& object) {
        if (name == nullptr || (arguments == nullptr && count > 0)) return refuse("a null pointer");
        AnyHandle function;
        object.interpreter().bindFunction(function, name, {});
        const SCR::FunctionUse opened(function);
        if (!opened) return tell(opened.refusal());
        if (opened.parameterCount() != count) return refuse(opened, "another number of arguments");
        for (std::size_t i = 0; i < count; ++i) {
            SCR::Variable& parameter = opened.parameter(i);
            void* const stored = storageOf(parameter);
            if (stored == nullptr || !store(parameter.dataType(), stored, arguments[i])) {
                return refuse(opened, "an argument has another type");
            }
        }
        bool hasResult = false;
        if (SCR::Outcome outcome = opened.run(hasResult); !outcome) return tell(std::move(outcome));
        if (result == nullptr) return KESTREL_FINISHED;
        *result = {};
        SCR::Variable* const returned = opened.resultVariable();
        if (returned != nullptr && hasResult) {
            if (void* const stored = storageOf(*returned)) {
                show(returned->dataType(), stored, *result);
            }
        } else if (returned != nullptr) {
            result->type = typeOf(returned->dataType());
            SCR::withType(SCR::HostTypes(), returned->dataType(), [&]<class Type>(Type) {
                static const typename Type::Value null = Type::null();
                return show(returned->dataType(), &null, *result);
            });
        }
        return KESTREL_FINISHED;
    });
}
