#include "author/server/Checker.h"

#include "scr/Interpreter.h"

namespace Author {

Checker::Checker(Check check, Done done, Where where)
    : check_(std::move(check)), done_(std::move(done)) {
    if (where == Where::OwnThread) thread_ = std::thread([this] { work(); });
}

Checker::~Checker() {
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
        waiting_.clear();
        stop(running_);
        changed_.notify_all();
    }
    if (thread_.joinable()) thread_.join();
}

void Checker::stop(const std::string& uri) {
    if (running_ != uri) return;
    isStopped_ = true;
    if (interpreter_ != nullptr) interpreter_->interrupt();
}

void Checker::check(Task task) {
    std::unique_lock lock(mutex_);
    if (!thread_.joinable()) {
        run(task, lock);
        return;
    }
    stop(task.uri);
    waiting_[task.uri] = std::move(task);
    changed_.notify_all();
}

void Checker::drop(const std::string& uri) {
    const std::lock_guard lock(mutex_);
    waiting_.erase(uri);
    stop(uri);
}

void Checker::work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [&] { return isEnding_ || !waiting_.empty(); });
        if (isEnding_) return;
        const Task task = std::move(waiting_.begin()->second);
        waiting_.erase(waiting_.begin());
        run(task, lock);
    }
}

void Checker::run(const Task& task, std::unique_lock<std::mutex>& lock) {
    running_ = task.uri;
    isStopped_ = false;
    lock.unlock();
    const auto messages = check_(task.text, task.path, [&](SCR::Interpreter* interpreter) {
        const std::lock_guard inner(mutex_);
        interpreter_ = interpreter;
    });
    lock.lock();
    running_.clear();
    if (isStopped_) return;
    lock.unlock();
    done_(task, messages);
    lock.lock();
}

}  // namespace Author
