#include <new>

#include "capi/Convert.h"
#include "capi/Objects.h"

namespace CApi {

namespace {

class ProgramObject final : public Object {
public:
    static constexpr Kind kindCM = Kind::Program;

    explicit ProgramObject(SCR::Program made) : Object(kindCM), program(std::move(made)) {}

    const SCR::Program program;
    kestrel_program* handle() const { return static_cast<kestrel_program*>(entry_.get()); }

private:
    const Handle entry_{*this};
};

class PatternsObject final : public Object {
public:
    static constexpr Kind kindCM = Kind::Patterns;

    PatternsObject() : Object(kindCM) {}

    FSM::EngineGroup engine;
    kestrel_patterns* handle() const { return static_cast<kestrel_patterns*>(entry_.get()); }

private:
    const Handle entry_{*this};
};

}  // namespace

const SCR::Program* programOf(const kestrel_program* handle) {
    const auto* const object = get<ProgramObject>(handle);
    return object != nullptr ? &object->program : nullptr;
}

}  // namespace CApi

using namespace CApi;

kestrel_program* kestrel_program_new(const char* text, size_t size, kestrel_setup setup,
                                     void* data) {
    if (text == nullptr) return refuse("the text is null"), nullptr;
    try {
        SCR::Program::Setup prepare;
        if (setup != nullptr) {
            prepare = [setup, data](SCR::Interpreter& interpreter) {
                const InterpreterObject borrowed(interpreter);
                setup(borrowed.handle(), data);
            };
        }
        return give(std::make_unique<ProgramObject>(
            SCR::Program(FND::String(textOf(text, size)), std::move(prepare))));
    } catch (...) {
        tell(SCR::Outcome(SCR::Outcome::Kind::Failed));
        return nullptr;
    }
}

kestrel_status kestrel_program_free(kestrel_program* program) {
    auto* const object = get<ProgramObject>(program);
    if (object == nullptr) return refuseHandle("program");
    delete object;
    return KESTREL_FINISHED;
}

kestrel_status kestrel_program_status(kestrel_program* program) {
    auto* const object = get<ProgramObject>(program);
    return object != nullptr ? tell(object->program.outcome()) : refuseHandle("program");
}

size_t kestrel_program_diagnostic_count(kestrel_program* program) {
    auto* const object = get<ProgramObject>(program);
    return object != nullptr ? object->program.diagnostics().size() : 0;
}

kestrel_status kestrel_program_diagnostic_get(kestrel_program* program, size_t index,
                                              kestrel_diagnostic* message) {
    auto* const object = get<ProgramObject>(program);
    if (object == nullptr) return refuseHandle("program");
    const auto& all = object->program.diagnostics();
    if (message == nullptr || index >= all.size()) return refuse("there is no such message");
    show(all[index], *message);
    return KESTREL_FINISHED;
}

kestrel_interpreter* kestrel_interpreter_from(kestrel_program* program, kestrel_log log,
                                              void* data) {
    auto* const object = get<ProgramObject>(program);
    if (object == nullptr) return refuseHandle("program"), nullptr;
    try {
        auto made = std::make_unique<InterpreterObject>(log, data);
        if (object->program.setup()) object->program.setup()(made->interpreter());
        if (tell(made->interpreter().tryCompile(object->program)) > KESTREL_RETURNED) {
            return nullptr;
        }
        return give(std::move(made));
    } catch (...) {
        tell(SCR::Outcome(SCR::Outcome::Kind::Failed));
        return nullptr;
    }
}

kestrel_patterns* kestrel_patterns_new(const char* const* patterns, size_t count) {
    if (patterns == nullptr && count > 0) return refuse("the patterns are null"), nullptr;
    try {
        auto made = std::make_unique<PatternsObject>();
        for (std::size_t i = 0; i < count; ++i) {
            if (patterns[i] == nullptr) return refuse("a pattern is null"), nullptr;
            if (!made->engine.insertPattern(patterns[i])) {
                return refuse("pattern " + std::to_string(i) + ": " + made->engine.error()),
                       nullptr;
            }
        }
        if (!made->engine.finalSetup()) return refuse(made->engine.error()), nullptr;
        return give(std::move(made));
    } catch (...) {
        tell(SCR::Outcome(SCR::Outcome::Kind::Failed));
        return nullptr;
    }
}

kestrel_status kestrel_patterns_free(kestrel_patterns* patterns) {
    auto* const object = get<PatternsObject>(patterns);
    if (object == nullptr) return refuseHandle("patterns");
    delete object;
    return KESTREL_FINISHED;
}

int32_t kestrel_patterns_match(kestrel_patterns* patterns, const char* text, size_t size) {
    const auto* const object = get<PatternsObject>(patterns);
    return object != nullptr ? object->engine.firstPath(textOf(text, size)) : -1;
}
