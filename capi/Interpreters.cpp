#include <new>
#include <vector>

#include "capi/Convert.h"
#include "capi/Objects.h"
#include "scr/run/Link.h"
#include "scr/run/RunControl.h"

namespace CApi {

void FunctionLog::diagnose(const SCR::Diagnostic& message) {
    if (function_ == nullptr) return;
    kestrel_diagnostic shown;
    show(message, shown);
    function_(data_, &shown);
}

bool FunctionOutput::write(std::string_view text) {
    return function_(data_, text.data(), text.size()) != 0;
}

namespace {

// Leads from an interpreter to the object that owns it. Its name is none that a script can write.
class OwnerExtension final : public SCR::Extension {
public:
    explicit OwnerExtension(const InterpreterObject& object) : owner(object) {}
    FND::String extensionName() const override { return nameCM; }

    static constexpr const char* nameCM = "kestrel.h";
    const InterpreterObject& owner;
};

}  // namespace

InterpreterObject::InterpreterObject(kestrel_log log, void* data)
    : Object(kindCM),
      log_(log, data),
      owned_(std::make_unique<SCR::Interpreter>(&log_)),
      interpreter_(owned_.get()) {
    auto owner = std::make_unique<OwnerExtension>(*this);
    if (interpreter_->insertExtension(owner.get())) owner.release();
}

kestrel_interpreter* InterpreterObject::handleOf(SCR::Interpreter& interpreter) {
    const SCR::Extension* const found = interpreter.extension(OwnerExtension::nameCM);
    return found != nullptr ? static_cast<const OwnerExtension*>(found)->owner.handle() : nullptr;
}

InterpreterObject::InterpreterObject(SCR::Interpreter& borrowed)
    : Object(kindCM), log_(nullptr, nullptr), interpreter_(&borrowed) {}

InterpreterObject::~InterpreterObject() {
    if (owned_ == nullptr) return;
    dropLists(*this);
    // Functions of the host that "END" calls still find the interpreter.
    owned_->finish();
}

SCR::HostExtension* InterpreterObject::host() const {
    SCR::Extension* const found = interpreter_->extension("host");
    if (found != nullptr) return static_cast<SCR::HostExtension*>(found);
    return SCR::HostExtension::insert(*interpreter_, "host");
}

bool InterpreterObject::isBusy() const {
    const SCR::Use use(interpreter_->link());
    return !use || interpreter_->runControl().isRunning();
}

void InterpreterObject::output(kestrel_output function, void* data) {
    auto made = function != nullptr ? std::make_unique<FunctionOutput>(function, data) : nullptr;
    interpreter_->output(made.get());
    output_ = std::move(made);
}

namespace {

// Calls action(text) with a copy of the text of the host.
template <class Action>
kestrel_status withText(kestrel_interpreter* handle, const char* text, size_t size,
                        const Action& action) noexcept {
    if (text == nullptr) return refuse("the text is null");
    return with(handle, [&](InterpreterObject& object) {
        return tell(action(object.interpreter(), FND::String(textOf(text, size))));
    });
}

bool readTexts(const char* const* texts, size_t count, std::vector<FND::String>& read) {
    if (texts == nullptr && count > 0) return false;
    for (std::size_t i = 0; i < count; ++i) {
        if (texts[i] == nullptr) return false;
        read.emplace_back(texts[i]);
    }
    return true;
}

// Calls use(interpreter, texts) with copies of the host's texts.
template <class Use>
kestrel_status withTexts(kestrel_interpreter* handle, const char* const* texts, size_t count,
                         const Use& use) noexcept {
    return with(handle, [&](InterpreterObject& object) {
        std::vector<FND::String> read;
        if (!readTexts(texts, count, read)) return refuse("a text is null");
        return use(object.interpreter(), read);
    });
}

}  // namespace

}  // namespace CApi

using namespace CApi;

kestrel_interpreter* kestrel_interpreter_new(kestrel_log log, void* data) {
    try {
        auto object = std::make_unique<InterpreterObject>(log, data);
        if (!object->interpreter().isValid() || object->handle() == nullptr) throw std::bad_alloc();
        return object.release()->handle();
    } catch (...) {
        tell(SCR::Outcome(SCR::Outcome::Kind::Failed));
        return nullptr;
    }
}

kestrel_status kestrel_interpreter_free(kestrel_interpreter* interpreter) {
    return with(interpreter, [&](InterpreterObject& object) {
        if (!object.isOwned()) return refuse("the interpreter belongs to whoever prepares it");
        if (object.isBusy()) return refuse("the interpreter is in use");
        delete &object;
        return KESTREL_FINISHED;
    });
}

kestrel_status kestrel_limit(kestrel_interpreter* interpreter, const char* name, int64_t limit) {
    if (name == nullptr) return refuse("the name is null");
    return with(interpreter, [&](InterpreterObject& object) {
        std::int64_t SCR::Limits::*const member = SCR::limitOfName(name);
        if (member == nullptr) return refuse(FND::String("there is no limit `") + name + "'");
        SCR::Limits limits = object.interpreter().limits();
        limits.*member = limit < 0 ? SCR::Limits::none : limit;
        object.interpreter().limits(limits);
        return KESTREL_FINISHED;
    });
}

kestrel_status kestrel_capabilities(kestrel_interpreter* interpreter, const char* const* names,
                                    size_t count) {
    return withTexts(interpreter, names, count, [](SCR::Interpreter& own, const auto& texts) {
        SCR::Capabilities capabilities = SCR::Capabilities::none();
        for (const FND::String& text : texts) {
            if (!capabilities.allow(text)) {
                return refuse("there is no capability `" + text + "'");
            }
        }
        return own.capabilities(capabilities) ? KESTREL_FINISHED
                                              : refuse("a directory cannot be opened");
    });
}

kestrel_status kestrel_time_zone(kestrel_interpreter* interpreter, const char* name) {
    return withText(interpreter, name, KESTREL_NUL, [](SCR::Interpreter& own, const auto& zone) {
        return own.timeZone(zone) ? SCR::Outcome()
                                  : SCR::Outcome::refused("unknown time zone `" + zone + "'");
    });
}

kestrel_status kestrel_include_path(kestrel_interpreter* interpreter,
                                    const char* const* directories, size_t count) {
    return withTexts(interpreter, directories, count, [](SCR::Interpreter& own, const auto& texts) {
        own.includePath(texts);
        return KESTREL_FINISHED;
    });
}

kestrel_status kestrel_module_path(kestrel_interpreter* interpreter, const char* const* directories,
                                   size_t count) {
    return withTexts(interpreter, directories, count, [](SCR::Interpreter& own, const auto& texts) {
        own.modulePath(texts);
        return KESTREL_FINISHED;
    });
}

kestrel_status kestrel_output_to(kestrel_interpreter* interpreter, kestrel_output output,
                                 void* data) {
    return with(interpreter, [&](InterpreterObject& object) {
        if (!object.isOwned() || object.isBusy()) return refuse("the interpreter is in use");
        object.output(output, data);
        return KESTREL_FINISHED;
    });
}

kestrel_status kestrel_compile(kestrel_interpreter* interpreter, const char* text, size_t size) {
    return withText(interpreter, text, size, [](SCR::Interpreter& own, const FND::String& script) {
        return own.tryCompile(script);
    });
}

kestrel_status kestrel_check(kestrel_interpreter* interpreter, const char* text, size_t size) {
    return withText(interpreter, text, size, [](SCR::Interpreter& own, const FND::String& script) {
        return own.tryCheck(script);
    });
}

kestrel_status kestrel_compile_query(kestrel_interpreter* interpreter, const char* text,
                                     size_t size) {
    return withText(interpreter, text, size, [](SCR::Interpreter& own, const FND::String& query) {
        return own.tryCompileQuery(query);
    });
}

kestrel_status kestrel_execute(kestrel_interpreter* interpreter) {
    return with(interpreter,
                [](InterpreterObject& object) { return tell(object.interpreter().tryExecute()); });
}

kestrel_status kestrel_finish(kestrel_interpreter* interpreter) {
    return with(interpreter,
                [](InterpreterObject& object) { return tell(object.interpreter().tryFinish()); });
}

kestrel_status kestrel_query(kestrel_interpreter* interpreter, int* holds) {
    return with(interpreter, [&](InterpreterObject& object) {
        const SCR::Result<bool> result = object.interpreter().tryQuery();
        if (result && holds != nullptr) *holds = *result ? 1 : 0;
        return tell(result.outcome());
    });
}

int kestrel_interrupt(kestrel_interpreter* interpreter) {
    auto* const object = get<InterpreterObject>(interpreter);
    return object != nullptr && object->interpreter().interrupt() ? 1 : 0;
}

size_t kestrel_diagnostic_count(kestrel_interpreter* interpreter) {
    auto* const object = get<InterpreterObject>(interpreter);
    return object != nullptr ? object->interpreter().diagnostics().size() : 0;
}

kestrel_status kestrel_diagnostic_get(kestrel_interpreter* interpreter, size_t index,
                                      kestrel_diagnostic* message) {
    return with(interpreter, [&](InterpreterObject& object) {
        const auto& all = object.interpreter().diagnostics();
        if (message == nullptr || index >= all.size()) return refuse("there is no such message");
        show(all[index], *message);
        return KESTREL_FINISHED;
    });
}
