#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "author/server/Connection.h"
#include "cli/observe/Debugger.h"

namespace Cli {

/// Why a request of an editor cannot be answered.
struct Refusal {
    std::string reason;
};

/// The value of a member; `otherwise` when it is missing or null. Throws what the JSON library
/// throws when it is of another type.
template <class Type>
Type valueOf(const Author::Json& json, const char* key, Type otherwise) {
    const auto found = json.find(key);
    return found != json.end() && !found->is_null() ? found->get<Type>() : otherwise;
}

/// A debugger for editors, by the Debug Adapter Protocol. One thread reads requests; the script
/// runs on another one, which answers what is asked about a stopped script.
class DebugAdapter final : public Debugger::Front {
public:
    /// Neither descriptor is owned. `run` is the script that the command line names, or null: the
    /// request to launch names it then.
    DebugAdapter(int input, int output, ScriptRun* run);
    ~DebugAdapter() override;
    DebugAdapter(const DebugAdapter&) = delete;
    DebugAdapter& operator=(const DebugAdapter&) = delete;

    /// Until the client disconnects or closes the input.
    ExitStatus run();

    Debugger::Resume stopped(const Debugger::Stop& stop) override;
    void placed(const Debugger::Breakpoint& breakpoint) override;
    void recordDone(const std::string& text) override;
    void print(std::string_view text) override;

private:
    class Capture;
    using Json = Author::Json;
    using Method = Json (DebugAdapter::*)(const Json& arguments);
    struct Request;
    /// What a number for the client stands for, until the script goes on.
    struct Reference {
        enum class Kind { Locals, Globals, Fields, Container };
        Kind kind;
        Debugger::Path path;
    };

    static const std::map<std::string, Method>& immediate();
    static const std::map<std::string, Method>& stoppedOnly();
    void handle(const Json& message);
    void send(Json message);
    void event(const char* name, Json body = Json::object());
    void answer(const Json& request, Json body);
    void refuse(const Json& request, const std::string& reason);
    /// Lets the script's thread answer, if the script is stopped.
    void hand(const Json& request, Method method);
    /// Performs one task; `lock` is released meanwhile.
    void performTask(std::unique_lock<std::mutex>& lock);
    void startIfReady();
    void runScript();
    void resume(Debugger::Resume how);
    void finish();
    /// The client is told all that was written so far before what follows.
    void drain();

    Json initialize(const Json& arguments);
    Json launch(const Json& arguments);
    Json setBreakpoints(const Json& arguments);
    Json setFunctionBreakpoints(const Json& arguments);
    Json setExceptionBreakpoints(const Json& arguments);
    Json setDataBreakpoints(const Json& arguments);
    Json dataBreakpointInfo(const Json& arguments);
    Json configurationDone(const Json& arguments);
    Json threads(const Json& arguments);
    Json pause(const Json& arguments);
    Json terminate(const Json& arguments);
    Json goOn(const Json& arguments);
    Json next(const Json& arguments);
    Json stepIn(const Json& arguments);
    Json stepOut(const Json& arguments);
    Json stackTrace(const Json& arguments);
    Json scopes(const Json& arguments);
    Json variables(const Json& arguments);
    Json evaluate(const Json& arguments);
    Json setVariable(const Json& arguments);
    Json setExpression(const Json& arguments);
    Json source(const Json& arguments);

    static Json describe(const Debugger::Breakpoint& breakpoint);
    static void readCondition(Debugger::Breakpoint& breakpoint, const Json& given);
    /// Sets the breakpoints of the kind and path of `kind`, each as `read` reads it.
    Json replace(const Debugger::Breakpoint& kind, const Json& given,
                 const std::function<void(Debugger::Breakpoint&, const Json&)>& read);
    int referenceTo(Reference::Kind kind, Debugger::Path path);
    std::vector<Debugger::Item> itemsOf(const Reference& reference, std::size_t first,
                                        std::size_t count);

    Debugger debugger_;
    Author::Connection connection_;
    ScriptRun* given_;
    std::unique_ptr<CLI::App> app_;
    std::unique_ptr<ScriptRun> own_;
    std::mutex outputMutex_;
    int lastSent_ = 0;
    std::unique_ptr<Capture> output_;  // while it runs
    std::unique_ptr<Capture> errors_;
    bool isInitialized_ = false;
    bool isConfigured_ = false;
    bool isLaunched_ = false;
    bool isOver_ = false;  // the client left
    std::thread script_;
    std::vector<Reference> references_;  // the script's thread

    std::mutex mutex_;
    std::condition_variable changed_;
    bool isStopped_ = false;
    std::optional<Debugger::Resume> resume_;
    struct Task {
        std::function<void()> perform;
        bool isCancelled = false;
    };
    std::deque<Task> tasks_;
    bool isPerforming_ = false;  // a task
};

}  // namespace Cli
