#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "scr/Log.h"

namespace SCR {
class Interpreter;
}

namespace Author {

/// Checks texts, the newest version of each, on a thread of its own; a check whose text has changed
/// is stopped then. Or checks each at once.
class Checker {
public:
    struct Task {
        std::string uri;
        std::string path;
        std::string text;
        std::int64_t version = 0;
    };
    /// Makes the interpreter run that checks a text, and calls `tell` with the interpreter before
    /// it begins and with null after it has ended; gives the messages.
    using Tell = std::function<void(SCR::Interpreter*)>;
    using Check = std::function<std::vector<SCR::Diagnostic>(const std::string& text,
                                                             const std::string& path, Tell tell)>;
    /// Gets the messages of a check that was not stopped, on the thread that checked.
    using Done =
        std::function<void(const Task& task, const std::vector<SCR::Diagnostic>& messages)>;

    enum class Where { OwnThread, Here };
    Checker(Check check, Done done, Where where = Where::OwnThread);
    Checker(const Checker&) = delete;
    Checker& operator=(const Checker&) = delete;
    /// Stops what is going on.
    ~Checker();

    void check(Task task);
    /// Nobody asks for the messages of this text any more.
    void drop(const std::string& uri);

private:
    void run(const Task& task, std::unique_lock<std::mutex>& lock);
    void work();
    void stop(const std::string& uri);

    const Check check_;
    const Done done_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<std::string, Task> waiting_;
    std::string running_;  // the URI
    SCR::Interpreter* interpreter_ = nullptr;
    bool isStopped_ = false;  // the check that is running
    bool isEnding_ = false;
    std::thread thread_;
};

}  // namespace Author
