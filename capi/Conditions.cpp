#include <algorithm>
#include <memory>

#include "capi/Convert.h"
#include "capi/Objects.h"

namespace CApi {

// The list is null when its interpreter is gone.
class ConditionsObject final : public Object {
public:
    static constexpr Kind kindCM = Kind::Conditions;

    explicit ConditionsObject(InterpreterObject& owner)
        : Object(kindCM),
          list(std::make_unique<SCR::ConditionList>(owner.interpreter())),
          owner_(&owner) {
        owner.conditions().push_back(this);
    }
    ~ConditionsObject() override {
        if (list != nullptr) std::erase(owner_->conditions(), this);
    }

    std::unique_ptr<SCR::ConditionList> list;
    kestrel_conditions* handle() const { return static_cast<kestrel_conditions*>(entry_.get()); }
    InterpreterObject& owner() const { return *owner_; }

private:
    InterpreterObject* const owner_;
    const Handle entry_{*this};
};

void dropLists(InterpreterObject& owner) {
    for (ConditionsObject* const conditions : owner.conditions()) conditions->list.reset();
    owner.conditions().clear();
}

namespace {

// Calls use(list) when `handle` names conditions whose interpreter exists.
template <class Use>
kestrel_status withList(kestrel_conditions* handle, const Use& use) noexcept {
    auto* const object = get<ConditionsObject>(handle);
    if (object == nullptr) return refuseHandle("conditions");
    try {
        if (object->list == nullptr) return refuse("the interpreter of the conditions is gone");
        return use(*object->list);
    } catch (...) {
        return tell(SCR::Outcome(SCR::Outcome::Kind::Failed));
    }
}

}  // namespace

}  // namespace CApi

using namespace CApi;

kestrel_conditions* kestrel_conditions_new(kestrel_interpreter* interpreter, const char* text,
                                           size_t size) {
    kestrel_conditions* made = nullptr;
    with(interpreter, [&](InterpreterObject& object) {
        if (text == nullptr) return refuse("the text is null");
        if (!object.isOwned()) return refuse("the interpreter is being prepared");
        if (object.isBusy()) return refuse("the interpreter is in use");
        auto conditions = std::make_unique<ConditionsObject>(object);
        const kestrel_status status =
            tell(conditions->list->tryCompile(FND::String(textOf(text, size))));
        if (status > KESTREL_RETURNED) return status;
        if (conditions->handle() == nullptr) return tell(SCR::Outcome(SCR::Outcome::Kind::Failed));
        made = conditions.release()->handle();
        return KESTREL_FINISHED;
    });
    return made;
}

kestrel_status kestrel_conditions_free(kestrel_conditions* conditions) {
    auto* const object = get<ConditionsObject>(conditions);
    if (object == nullptr) return refuseHandle("conditions");
    if (object->list != nullptr && object->owner().isBusy()) {
        return refuse("the interpreter is in use");
    }
    delete object;
    return KESTREL_FINISHED;
}

size_t kestrel_conditions_count(kestrel_conditions* conditions) {
    auto* const object = get<ConditionsObject>(conditions);
    if (object == nullptr || object->list == nullptr) return 0;
    return static_cast<std::size_t>(object->list->size());
}

kestrel_status kestrel_conditions_hold(kestrel_conditions* conditions, size_t index, int* holds) {
    return withList(conditions, [&](SCR::ConditionList& list) {
        if (index >= static_cast<std::size_t>(list.size())) {
            return refuse("there is no such condition");
        }
        const SCR::Result<bool> result = list.tryHolds(static_cast<std::int32_t>(index));
        if (result && holds != nullptr) *holds = *result ? 1 : 0;
        return tell(result.outcome());
    });
}

kestrel_status kestrel_conditions_first(kestrel_conditions* conditions, int32_t* index) {
    return withList(conditions, [&](SCR::ConditionList& list) {
        const SCR::Result<std::int32_t> result = list.tryFirst();
        if (result && index != nullptr) *index = *result;
        return tell(result.outcome());
    });
}
