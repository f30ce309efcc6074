#include "cli/observe/DebugAdapter.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <filesystem>

#include "cli/script/MessageText.h"
#include "scr/Output.h"

namespace Cli {
namespace {

constexpr int threadS = 1;

Author::Json sourceOf(const std::string& path) {
    std::error_code error;
    const std::string full = std::filesystem::absolute(path, error).lexically_normal().string();
    return {{"name", path.substr(path.rfind('/') + 1)}, {"path", error ? path : full}};
}

}  // namespace

// While it lives, what is written to a descriptor goes to the client.
class DebugAdapter::Capture {
public:
    using Take = std::function<void(const char* category, std::string_view text)>;

    Capture(int descriptor, const char* category, Take take)
        : descriptor_(descriptor),
          before_(fcntl(descriptor, F_DUPFD_CLOEXEC, 3)),
          asked_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        std::array<int, 2> ends{};
        if (before_ < 0 || pipe2(ends.data(), O_CLOEXEC) != 0) return;
        dup2(ends[1], descriptor);
        close(ends[1]);
        reader_ = std::thread([this, from = ends[0], category, take = std::move(take)] {
            read(from, category, take);
            close(from);
        });
    }
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;
    ~Capture() {
        isOver_ = true;
        if (before_ >= 0) dup2(before_, descriptor_);
        if (before_ >= 0) close(before_);
        if (reader_.joinable()) reader_.join();
        if (asked_ >= 0) close(asked_);
    }

    /// Waits until what was written so far has been taken. Any thread.
    void drain() {
        std::unique_lock lock(mutex_);
        if (!reader_.joinable() || asked_ < 0) return;
        const std::int64_t wanted = ++drains_;
        const std::uint64_t one = 1;
        if (::write(asked_, &one, sizeof one) < 0) return;
        drained_.wait(lock, [&] { return done_ >= wanted; });
    }

private:
    void read(int from, const char* category, const Take& take) {
        std::array<char, 4096> block;
        for (;;) {
            // A program that the script started may keep the other end.
            constexpr int wait = 50;
            std::array<pollfd, 2> inputs{pollfd{from, POLLIN, 0}, pollfd{asked_, POLLIN, 0}};
            const int found = poll(inputs.data(), inputs.size(), wait);
            if (found == 0 && isOver_) return;
            if (found <= 0) continue;
            if (inputs[0].revents == 0) {
                tellDrained();
                continue;
            }
            const ssize_t count = ::read(from, block.data(), block.size());
            if (count < 0 && errno == EINTR) continue;
            if (count <= 0) return;
            take(category, {block.data(), static_cast<std::size_t>(count)});
        }
    }

    void tellDrained() {
        const std::lock_guard lock(mutex_);
        std::uint64_t count = 0;
        if (::read(asked_, &count, sizeof count) > 0) done_ += static_cast<std::int64_t>(count);
        drained_.notify_all();
    }

    const int descriptor_;
    const int before_;
    const int asked_;
    std::mutex mutex_;
    std::condition_variable drained_;
    std::int64_t drains_ = 0;
    std::int64_t done_ = 0;
    std::atomic<bool> isOver_{false};
    std::thread reader_;
};

DebugAdapter::DebugAdapter(int input, int output, ScriptRun* run)
    : debugger_(*this),
      connection_(input, output, Author::Connection::Protocol::Debug),
      given_(run) {}

DebugAdapter::~DebugAdapter() = default;

const std::map<std::string, DebugAdapter::Method>& DebugAdapter::immediate() {
    static const std::map<std::string, Method> methods = {
        {"initialize", &DebugAdapter::initialize},
        {"launch", &DebugAdapter::launch},
        {"setBreakpoints", &DebugAdapter::setBreakpoints},
        {"setFunctionBreakpoints", &DebugAdapter::setFunctionBreakpoints},
        {"setExceptionBreakpoints", &DebugAdapter::setExceptionBreakpoints},
        {"setDataBreakpoints", &DebugAdapter::setDataBreakpoints},
        {"configurationDone", &DebugAdapter::configurationDone},
        {"threads", &DebugAdapter::threads},
        {"pause", &DebugAdapter::pause},
        {"terminate", &DebugAdapter::terminate},
        {"source", &DebugAdapter::source},
    };
    return methods;
}

const std::map<std::string, DebugAdapter::Method>& DebugAdapter::stoppedOnly() {
    static const std::map<std::string, Method> methods = {
        {"continue", &DebugAdapter::goOn},
        {"next", &DebugAdapter::next},
        {"stepIn", &DebugAdapter::stepIn},
        {"stepOut", &DebugAdapter::stepOut},
        {"stackTrace", &DebugAdapter::stackTrace},
        {"scopes", &DebugAdapter::scopes},
        {"variables", &DebugAdapter::variables},
        {"evaluate", &DebugAdapter::evaluate},
        {"setVariable", &DebugAdapter::setVariable},
        {"setExpression", &DebugAdapter::setExpression},
        {"dataBreakpointInfo", &DebugAdapter::dataBreakpointInfo},
    };
    return methods;
}

ExitStatus DebugAdapter::run() {
    const auto take = [this](const char* category, std::string_view text) {
        event("output", {{"category", category}, {"output", text}});
    };
    output_ = std::make_unique<Capture>(STDOUT_FILENO, "stdout", take);
    errors_ = std::make_unique<Capture>(STDERR_FILENO, "stderr", take);
    while (!isOver_) {
        const auto message = connection_.next();
        if (!message) break;
        handle(*message);
    }
    finish();
    errors_.reset();
    output_.reset();
    return ExitStatus::Success;
}

void DebugAdapter::drain() {
    flushOutput(false);
    output_->drain();
    errors_->drain();
}

void DebugAdapter::finish() {
    debugger_.end();
    resume(Debugger::Resume::End);
    if (script_.joinable()) script_.join();
    flushOutput(false);
}

void DebugAdapter::send(Author::Json message) {
    const std::lock_guard lock(outputMutex_);
    message["seq"] = ++lastSent_;
    connection_.send(message);
}

void DebugAdapter::event(const char* name, Author::Json body) {
    send({{"type", "event"}, {"event", name}, {"body", std::move(body)}});
}

void DebugAdapter::answer(const Author::Json& request, Author::Json body) {
    send({{"type", "response"},
          {"request_seq", request["seq"]},
          {"command", request["command"]},
          {"success", true},
          {"body", std::move(body)}});
}

void DebugAdapter::refuse(const Author::Json& request, const std::string& reason) {
    send({{"type", "response"},
          {"request_seq", valueOf<std::int64_t>(request, "seq", 0)},
          {"command", valueOf<std::string>(request, "command", "")},
          {"success", false},
          {"message", reason},
          {"body",
           {{"error",
             {{"id", 1},
              {"format", "{_reason}"},
              {"showUser", true},
              {"variables", {{"_reason", reason}}}}}}}});
}

void DebugAdapter::handle(const Author::Json& message) {
    const bool isRequest = message.is_object() && message.contains("seq") &&
                           message["seq"].is_number_integer() && message.contains("command") &&
                           message["command"].is_string();
    if (!isRequest) {
        return event("output",
                     {{"category", "important"}, {"output", "kestrel: a message is no request\n"}});
    }
    const std::string command = message["command"];
    const Author::Json arguments = message.value("arguments", Author::Json::object());
    if (command == "disconnect") {
        isOver_ = true;
        debugger_.end();
        resume(Debugger::Resume::End);
        return answer(message, Author::Json::object());
    }
    if (!isInitialized_ && command != "initialize") return refuse(message, "not initialized yet");
    const auto now = immediate().find(command);
    const auto later = stoppedOnly().find(command);
    if (now == immediate().end() && later == stoppedOnly().end()) {
        return refuse(message, "no request `" + readable(command) + "`");
    }
    if (later != stoppedOnly().end()) return hand(message, later->second);
    try {
        answer(message, (this->*now->second)(arguments));
    } catch (const Refusal& refusal) {
        return refuse(message, refusal.reason);
    } catch (const Author::Json::exception&) {
        return refuse(message, "wrong arguments");
    } catch (const std::exception& error) {
        return refuse(message, error.what());
    }
    if (command == "initialize") event("initialized");
    if (command.find("Breakpoints") != std::string::npos) {
        // A script that runs looks for them at its next statement.
        const std::lock_guard lock(mutex_);
        if (isStopped_) tasks_.push_back({[this] { debugger_.placeNew(); }});
        changed_.notify_all();
    }
    if (command == "launch" || command == "configurationDone") startIfReady();
}

void DebugAdapter::hand(const Author::Json& request, Method method) {
    const std::lock_guard lock(mutex_);
    if (!isStopped_) return refuse(request, "the script is not stopped");
    tasks_.push_back({[this, request, method] {
        try {
            answer(request, (this->*method)(request.value("arguments", Author::Json::object())));
        } catch (const Refusal& refusal) {
            refuse(request, refusal.reason);
        } catch (const Author::Json::exception&) {
            refuse(request, "wrong arguments");
        } catch (const std::exception& error) {
            refuse(request, error.what());
        }
    }});
    changed_.notify_all();
}

void DebugAdapter::performTask(std::unique_lock<std::mutex>& lock) {
    const Task task = std::move(tasks_.front());
    tasks_.pop_front();
    isPerforming_ = true;
    debugger_.cancel(task.isCancelled);
    lock.unlock();
    task.perform();
    lock.lock();
    isPerforming_ = false;
}

Author::Json DebugAdapter::initialize(const Author::Json& /*arguments*/) {
    if (isInitialized_) throw Refusal{"it is initialized already"};
    isInitialized_ = true;
    return {{"supportsConfigurationDoneRequest", true},
            {"supportsConditionalBreakpoints", true},
            {"supportsHitConditionalBreakpoints", true},
            {"supportsFunctionBreakpoints", true},
            {"supportsDataBreakpoints", true},
            {"supportsEvaluateForHovers", true},
            {"supportsSetVariable", true},
            {"supportsSetExpression", true},
            {"supportsTerminateRequest", true},
            {"supportTerminateDebuggee", true},
            {"exceptionBreakpointFilters",
             {{{"filter", "message"}, {"label", "Messages of the script"}, {"default", true}},
              {{"filter", "reject"}, {"label", "Rejected records"}, {"default", false}}}}};
}

// {"program": FILE, "args": [...], "cwd": FOLDER, "stopOnEntry": Bool, "record": N}
Author::Json DebugAdapter::launch(const Author::Json& arguments) {
    if (isLaunched_) throw Refusal{"the script is launched already"};
    const std::string folder = valueOf<std::string>(arguments, "cwd", "");
    if (!folder.empty() && chdir(folder.c_str()) != 0) throw Refusal{folder + ": no such folder"};
    if (arguments.contains("program")) {
        std::vector<std::string> words = valueOf(arguments, "args", std::vector<std::string>());
        words.push_back(arguments["program"]);
        // It may belong to a launch that was refused.
        if (given_ == own_.get()) given_ = nullptr;
        app_ = std::make_unique<CLI::App>("", "debug");
        own_ = std::make_unique<ScriptRun>();
        own_->declare(*app_);
        std::reverse(words.begin(), words.end());
        try {
            app_->parse(words);
            own_->complete();
        } catch (const CLI::Error& error) {
            throw Refusal{error.what()};
        }
        given_ = own_.get();
    }
    if (given_ == nullptr) throw Refusal{"\"program\" is missing: the script to be debugged"};
    if (given_->records().hasDirectory()) {
        throw Refusal{"--out: a debugger writes no files of records"};
    }
    if (!given_->read()) throw Refusal{given_->name() + " cannot be read"};
    if (valueOf(arguments, "stopOnEntry", false)) debugger_.stopOnEntry();
    if (const auto record = valueOf<std::int64_t>(arguments, "record", 0); record > 0) {
        Debugger::Breakpoint breakpoint;
        breakpoint.kind = Debugger::Breakpoint::Kind::Record;
        breakpoint.number = record;
        debugger_.add(std::move(breakpoint));
    }
    isLaunched_ = true;
    return Author::Json::object();
}

Author::Json DebugAdapter::configurationDone(const Author::Json& /*arguments*/) {
    isConfigured_ = true;
    return Author::Json::object();
}

void DebugAdapter::startIfReady() {
    if (!isConfigured_ || !isLaunched_ || script_.joinable()) return;
    given_->records().keepsSignals();
    script_ = std::thread([this] { runScript(); });
}

void DebugAdapter::runScript() {
    event("thread", {{"reason", "started"}, {"threadId", threadS}});
    const ExitStatus status = debugger_.run(*given_);
    drain();
    event("exited", {{"exitCode", static_cast<int>(status)}});
    event("terminated");
}

Author::Json DebugAdapter::threads(const Author::Json& /*arguments*/) {
    return {{"threads", Author::Json::array({{{"id", threadS}, {"name", "script"}}})}};
}

// When the script is stopped, this ends the evaluations that were asked for.
Author::Json DebugAdapter::pause(const Author::Json& /*arguments*/) {
    const std::lock_guard lock(mutex_);
    if (!isStopped_ || resume_) {
        debugger_.pause();
        return Author::Json::object();
    }
    for (Task& task : tasks_) task.isCancelled = true;
    if (isPerforming_) debugger_.cancel();
    return Author::Json::object();
}

Author::Json DebugAdapter::terminate(const Author::Json& /*arguments*/) {
    debugger_.end();
    resume(Debugger::Resume::End);
    return Author::Json::object();
}

Author::Json DebugAdapter::source(const Author::Json& /*arguments*/) {
    throw Refusal{"the text is where its path says"};
}

Author::Json DebugAdapter::describe(const Debugger::Breakpoint& breakpoint) {
    Author::Json json = {{"id", breakpoint.id}, {"verified", breakpoint.isPlaced}};
    if (breakpoint.line > 0) json["line"] = breakpoint.line;
    if (!breakpoint.fault.empty()) json["message"] = breakpoint.fault;
    return json;
}

// `hitCondition` is the number of a record or, without records, of the hits.
void DebugAdapter::readCondition(Debugger::Breakpoint& breakpoint, const Author::Json& given) {
    breakpoint.condition = valueOf<std::string>(given, "condition", "");
    std::string number = valueOf<std::string>(given, "hitCondition", "");
    std::erase_if(number, [](char byte) { return byte == ' ' || byte == '='; });
    const auto read =
        std::from_chars(number.data(), number.data() + number.size(), breakpoint.number);
    const bool isNumber = read.ec == std::errc() && read.ptr == number.data() + number.size();
    if (!number.empty() && (!isNumber || breakpoint.number < 1)) {
        breakpoint.fault = "the hit condition is no number";
    }
}

// All are read before any is changed: a request that is refused changes nothing.
Author::Json DebugAdapter::replace(
    const Debugger::Breakpoint& kind, const Author::Json& given,
    const std::function<void(Debugger::Breakpoint&, const Author::Json&)>& read) {
    std::vector<Debugger::Breakpoint> wanted;
    for (const Author::Json& one : given) read(wanted.emplace_back(kind), one);
    debugger_.removeIf([&](const Debugger::Breakpoint& breakpoint) {
        return breakpoint.kind == kind.kind && breakpoint.path == kind.path;
    });
    Author::Json set = Author::Json::array();
    for (Debugger::Breakpoint& breakpoint : wanted) {
        if (breakpoint.fault.empty()) {
            breakpoint.id = debugger_.add(breakpoint);
            set.push_back(describe(breakpoint));
        } else {
            set.push_back({{"verified", false}, {"message", breakpoint.fault}});
        }
    }
    return {{"breakpoints", set}};
}

Author::Json DebugAdapter::setBreakpoints(const Author::Json& arguments) {
    Debugger::Breakpoint kind;
    kind.path = arguments.at("source").at("path");
    return replace(kind, valueOf(arguments, "breakpoints", Author::Json::array()),
                   [](Debugger::Breakpoint& breakpoint, const Author::Json& given) {
                       breakpoint.line = given.at("line");
                       readCondition(breakpoint, given);
                   });
}

Author::Json DebugAdapter::setFunctionBreakpoints(const Author::Json& arguments) {
    Debugger::Breakpoint kind;
    kind.kind = Debugger::Breakpoint::Kind::Function;
    return replace(kind, arguments.at("breakpoints"),
                   [](Debugger::Breakpoint& breakpoint, const Author::Json& given) {
                       breakpoint.name = given.at("name");
                       readCondition(breakpoint, given);
                   });
}

Author::Json DebugAdapter::setExceptionBreakpoints(const Author::Json& arguments) {
    debugger_.removeIf([](const Debugger::Breakpoint& breakpoint) {
        return breakpoint.kind == Debugger::Breakpoint::Kind::Message ||
               breakpoint.kind == Debugger::Breakpoint::Kind::Reject;
    });
    for (const Author::Json& filter : arguments.at("filters")) {
        if (filter != "message" && filter != "reject") continue;
        Debugger::Breakpoint breakpoint;
        breakpoint.kind = filter == "message" ? Debugger::Breakpoint::Kind::Message
                                              : Debugger::Breakpoint::Kind::Reject;
        debugger_.add(std::move(breakpoint));
    }
    return Author::Json::object();
}

Author::Json DebugAdapter::dataBreakpointInfo(const Author::Json& arguments) {
    const std::string name = arguments.at("name");
    bool isKnown = false;
    for (std::size_t frame = 0; frame < debugger_.frames().size() && !isKnown; ++frame) {
        const std::vector<Debugger::Item> known = debugger_.variables(frame);
        isKnown = std::any_of(known.begin(), known.end(), [&](const Debugger::Item& item) {
            return item.name == name && !item.expression.empty();
        });
    }
    if (!isKnown) return {{"dataId", nullptr}, {"description", "no variable that may change"}};
    return {{"dataId", name}, {"description", name}, {"accessTypes", {"write"}}};
}

Author::Json DebugAdapter::setDataBreakpoints(const Author::Json& arguments) {
    Debugger::Breakpoint kind;
    kind.kind = Debugger::Breakpoint::Kind::Change;
    return replace(kind, arguments.at("breakpoints"),
                   [](Debugger::Breakpoint& breakpoint, const Author::Json& given) {
                       breakpoint.name = given.at("dataId");
                   });
}

void DebugAdapter::placed(const Debugger::Breakpoint& breakpoint) {
    event("breakpoint", {{"reason", "changed"}, {"breakpoint", describe(breakpoint)}});
}

void DebugAdapter::recordDone(const std::string& text) {
    event("output", {{"category", "console"}, {"output", text + '\n'}});
}

void DebugAdapter::print(std::string_view text) {
    event("output", {{"category", "stdout"}, {"output", text}});
}

Debugger::Resume DebugAdapter::stopped(const Debugger::Stop& stop) {
    using Reason = Debugger::Reason;
    std::unique_lock lock(mutex_);
    // The client may have left meanwhile.
    if (resume_ == Debugger::Resume::End) return Debugger::Resume::End;
    resume_.reset();
    isStopped_ = true;
    references_.clear();
    const char* const reason = stop.reason == Reason::Entry     ? "entry"
                               : stop.reason == Reason::Step    ? "step"
                               : stop.reason == Reason::Pause   ? "pause"
                               : stop.reason == Reason::Change  ? "data breakpoint"
                               : stop.reason == Reason::Message ? "exception"
                               : stop.reason == Reason::Reject  ? "exception"
                                                                : "breakpoint";
    Author::Json body = {{"reason", reason}, {"threadId", threadS}, {"allThreadsStopped", true}};
    if (stop.breakpoint != 0) body["hitBreakpointIds"] = {stop.breakpoint};
    if (stop.reason == Reason::Reject) body["description"] = "Rejects the record";
    if (stop.reason == Reason::Message) body["description"] = "Message";
    if (!stop.text.empty()) body["text"] = readable(stop.text);
    drain();
    event("stopped", body);
    while (!resume_) {
        if (tasks_.empty()) {
            changed_.wait(lock);
        } else {
            performTask(lock);
        }
    }
    isStopped_ = false;
    const Debugger::Resume how = *resume_;
    if (how != Debugger::Resume::End) resume_.reset();
    // What was asked before the script goes on is answered.
    while (!tasks_.empty()) performTask(lock);
    // A task was cancelled, and not the conditions to come.
    if (how != Debugger::Resume::End) debugger_.cancel(false);
    return how;
}

void DebugAdapter::resume(Debugger::Resume how) {
    const std::lock_guard lock(mutex_);
    resume_ = how;
    if (how == Debugger::Resume::End) {
        for (Task& task : tasks_) task.isCancelled = true;
        if (isPerforming_) debugger_.cancel();
    }
    changed_.notify_all();
}

Author::Json DebugAdapter::goOn(const Author::Json& /*arguments*/) {
    resume(Debugger::Resume::Go);
    return {{"allThreadsContinued", true}};
}

Author::Json DebugAdapter::next(const Author::Json& /*arguments*/) {
    resume(Debugger::Resume::Over);
    return Author::Json::object();
}

Author::Json DebugAdapter::stepIn(const Author::Json& /*arguments*/) {
    resume(Debugger::Resume::Into);
    return Author::Json::object();
}

Author::Json DebugAdapter::stepOut(const Author::Json& /*arguments*/) {
    resume(Debugger::Resume::Out);
    return Author::Json::object();
}

Author::Json DebugAdapter::stackTrace(const Author::Json& arguments) {
    const std::vector<Debugger::Frame> frames = debugger_.frames();
    const auto first = std::min(valueOf<std::size_t>(arguments, "startFrame", 0), frames.size());
    const auto levels = valueOf<std::size_t>(arguments, "levels", 0);
    const std::size_t last =
        levels == 0 ? frames.size() : first + std::min(levels, frames.size() - first);
    Author::Json list = Author::Json::array();
    for (std::size_t i = first; i < last; ++i) {
        const Debugger::Frame& frame = frames[i];
        std::string name = frame.function.empty() ? "the script" : frame.function;
        if (i + 1 == frames.size() && debugger_.record() != 0) {
            name += ", record " + std::to_string(debugger_.record());
        }
        list.push_back({{"id", i + 1},
                        {"name", name},
                        {"source", sourceOf(frame.path)},
                        {"line", frame.line},
                        {"column", frame.column}});
    }
    return {{"stackFrames", list}, {"totalFrames", frames.size()}};
}

}  // namespace Cli
