#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "records/RecordWorker.h"

namespace Records {

/// Hands batches to workers and gives them back, done, in the order in which they came. One worker
/// works on the calling thread, several on threads of their own. Used by one thread.
class WorkerPool {
public:
    /// `workers`, at least one, are not owned and must outlive the pool.
    explicit WorkerPool(const std::vector<std::unique_ptr<RecordWorker>>& workers);
    /// Waits for what is under way.
    ~WorkerPool();

    /// A cleared batch to fill, or null when all are under way; take one back then.
    std::unique_ptr<Batch> spare();
    void submit(std::unique_ptr<Batch> batch);
    /// Whether a batch is under way or done and not taken back.
    bool isBusy() const { return !order_.empty(); }
    /// Whether `takeBack` need not wait.
    bool isReady();
    /// The oldest batch, done; only while the pool is busy.
    std::unique_ptr<Batch> takeBack();
    /// Gives a batch that was taken back for another use.
    void recycle(std::unique_ptr<Batch> batch);

private:
    struct Task {
        std::unique_ptr<Batch> batch;
        bool isDone = false;
    };
    void work(RecordWorker& worker);

    RecordWorker* const only_;  // the one worker, or null
    std::vector<std::unique_ptr<Batch>> spares_;
    std::deque<std::unique_ptr<Task>> order_;
    std::mutex mutex_;
    std::condition_variable isWaiting_;  // for the workers
    std::condition_variable isDone_;
    std::deque<Task*> waiting_;  // under mutex_, like the marks in the tasks
    bool isClosed_ = false;
    std::vector<std::thread> threads_;
};

}  // namespace Records
