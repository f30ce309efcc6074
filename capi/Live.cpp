#include "scr/Program.h"

#include <atomic>
#include <memory>
#include <vector>

#include "capi/Convert.h"
#include "capi/Objects.h"

namespace CApi {

namespace {

class LiveObject final : public Object {
public:
    static constexpr Kind kindCM = Kind::Live;

    LiveObject(SCR::Program first, std::vector<FND::String> kept)
        : Object(kindCM), live(std::make_shared<SCR::Live>(std::move(first), std::move(kept))) {}

    const std::shared_ptr<SCR::Live> live;  // runners keep it
    kestrel_live* handle() const { return static_cast<kestrel_live*>(entry_.get()); }

private:
    const Handle entry_{*this};
};

class RunnerObject final : public Object {
public:
    static constexpr Kind kindCM = Kind::Runner;

    RunnerObject(std::shared_ptr<SCR::Live> live, kestrel_log log, void* data)
        : Object(kindCM), live_(std::move(live)), log_(log, data), runner_(*live_, &log_) {}

    kestrel_runner* handle() const { return static_cast<kestrel_runner*>(entry_.get()); }
    /// Also when the host executes its interpreter by itself.
    bool isBusy() const { return uses_ > 0 || (shown_ != nullptr && shown_->isBusy()); }
    // Calls use(runner), during which nobody may free this.
    template <class Use>
    kestrel_status use(const Use& use) {
        const Counted counted(uses_);
        const kestrel_status status = use(runner_);
        interpreter();  // so that no handle stays of one that is gone
        return status;
    }
    /// A handle of the interpreter of this moment; the one before is dead then.
    kestrel_interpreter* interpreter() {
        SCR::Interpreter* const now = runner_.interpreter();
        if (now == nullptr) {
            shown_.reset();
        } else if (shown_ == nullptr || shownVersion_ != runner_.version()) {
            shown_ = std::make_unique<InterpreterObject>(*now);
            shownVersion_ = runner_.version();
        }
        return shown_ != nullptr ? shown_->handle() : nullptr;
    }

private:
    struct Counted {
        explicit Counted(std::atomic<int>& count) : count_(count) { ++count_; }
        Counted(const Counted&) = delete;
        Counted& operator=(const Counted&) = delete;
        ~Counted() { --count_; }

    private:
        std::atomic<int>& count_;
    };

    std::atomic<int> uses_{0};
    const std::shared_ptr<SCR::Live> live_;
    FunctionLog log_;
    SCR::LiveRunner runner_;
    std::unique_ptr<InterpreterObject> shown_;
    std::uint64_t shownVersion_ = 0;
    const Handle entry_{*this};
};

template <class Use>
kestrel_status withRunner(kestrel_runner* handle, const Use& use) noexcept {
    auto* const object = get<RunnerObject>(handle);
    if (object == nullptr) return refuseHandle("runner");
    try {
        return object->use(use);
    } catch (...) {
        return tell(SCR::Outcome(SCR::Outcome::Kind::Failed));
    }
}

}  // namespace

}  // namespace CApi

using namespace CApi;

kestrel_live* kestrel_live_new(kestrel_program* first, const char* const* kept, size_t count) {
    if (kept == nullptr && count > 0) return refuse("the names are null"), nullptr;
    const SCR::Program* const program = programOf(first);
    if (program == nullptr && first != nullptr) return refuseHandle("program"), nullptr;
    try {
        std::vector<FND::String> names;
        for (std::size_t i = 0; i < count; ++i) {
            if (kept[i] == nullptr) return refuse("a name is null"), nullptr;
            names.emplace_back(kept[i]);
        }
        return give(std::make_unique<LiveObject>(program != nullptr ? *program : SCR::Program(),
                                                 std::move(names)));
    } catch (...) {
        tell(SCR::Outcome(SCR::Outcome::Kind::Failed));
        return nullptr;
    }
}

kestrel_status kestrel_live_free(kestrel_live* live) {
    auto* const object = get<LiveObject>(live);
    if (object == nullptr) return refuseHandle("live");
    delete object;
    return KESTREL_FINISHED;
}

kestrel_status kestrel_live_replace(kestrel_live* live, kestrel_program* next) {
    auto* const object = get<LiveObject>(live);
    if (object == nullptr) return refuseHandle("live");
    const SCR::Program* const program = programOf(next);
    if (program == nullptr) return refuseHandle("program");
    try {
        return tell(object->live->replace(*program));
    } catch (...) {
        return tell(SCR::Outcome(SCR::Outcome::Kind::Failed));
    }
}

kestrel_runner* kestrel_runner_new(kestrel_live* live, kestrel_log log, void* data) {
    auto* const object = get<LiveObject>(live);
    if (object == nullptr) return refuseHandle("live"), nullptr;
    try {
        return give(std::make_unique<RunnerObject>(object->live, log, data));
    } catch (...) {
        tell(SCR::Outcome(SCR::Outcome::Kind::Failed));
        return nullptr;
    }
}

kestrel_status kestrel_runner_free(kestrel_runner* runner) {
    auto* const object = get<RunnerObject>(runner);
    if (object == nullptr) return refuseHandle("runner");
    if (object->isBusy()) return refuse("the runner is in use");
    delete object;
    return KESTREL_FINISHED;
}

kestrel_status kestrel_runner_refresh(kestrel_runner* runner) {
    return withRunner(runner, [](SCR::LiveRunner& used) { return tell(used.refresh()); });
}

kestrel_status kestrel_runner_execute(kestrel_runner* runner) {
    // By itself first: no handle may name the former interpreter while the script runs.
    kestrel_runner_refresh(runner);
    return withRunner(runner, [](SCR::LiveRunner& used) {
        // Not by the runner, which takes a program that came meanwhile.
        SCR::Interpreter* const now = used.interpreter();
        return now != nullptr ? tell(now->tryExecute()) : refuse("there is no program to run");
    });
}

kestrel_interpreter* kestrel_runner_interpreter(kestrel_runner* runner) {
    auto* const object = get<RunnerObject>(runner);
    if (object == nullptr) return refuseHandle("runner"), nullptr;
    try {
        return object->interpreter();
    } catch (...) {
        tell(SCR::Outcome(SCR::Outcome::Kind::Failed));
        return nullptr;
    }
}
