#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "records/RecordWorker.h"

namespace Records {

/// Where batches come from and go to. Any thread of a pool may call it, but only one at a time
/// calls `makeWorker` or `fill`, and only one at a time `deliver` or `flush`.
class BatchStream {
public:
    virtual ~BatchStream() = default;
    /// The next worker, which must outlive the pool; null ends the work before it begins.
    virtual RecordWorker* makeWorker() = 0;
    /// Gives a cleared batch its records; false when none come after these.
    virtual bool fill(Batch& batch) = 0;
    /// Takes the results of a batch, or of part of its records; false ends the work.
    virtual bool deliver(Batch& batch) = 0;
    /// Writes out what was delivered; false ends the work.
    virtual bool flush() = 0;
    /// The work ends early: a `fill` that waits must return. May be called several times.
    virtual void end() = 0;
};

/// Lets workers, each on a thread of its own, fill batches, work on them and deliver them in the
/// order in which they were filled. A batch stays with its thread, and so in the cache of its
/// processor, unless an earlier batch takes longer. Runs once.
class WorkerPool {
public:
    /// `stream` is not owned.
    explicit WorkerPool(BatchStream& stream) : stream_(stream) {}
    ~WorkerPool();

    /// Lets each thread make its worker, one after the other, so that each has memory of its own.
    /// The first is made on the calling thread. If the system allows fewer threads, there are fewer
    /// workers. False when a worker could not be made. Passes exceptions on.
    bool start(int workers);
    /// After `start`: works until everything is delivered, also on the calling thread. Passes
    /// exceptions of workers on.
    void run();

    /// For `fill`: calls `wait`, which waits for input. Meanwhile everything delivered is written
    /// out.
    void waitForInput(const std::function<void()>& wait);

private:
    void live();  // the main function of a thread
    void join();
    void work(RecordWorker& worker);
    std::unique_ptr<Batch> spare();
    void deliver(std::size_t number, std::unique_ptr<Batch> batch);
    // Delivers the finished part of an unfinished batch, when all batches before it are delivered.
    bool deliverPart(std::size_t number, Batch& batch);
    // Delivers it without holding output_.
    void handOver(Batch& batch, std::unique_lock<std::mutex>& lock);
    void end();

    BatchStream& stream_;
    std::atomic<bool> isOver_ = false;  // no further batch is filled

    std::mutex start_;  // for the following members
    std::condition_variable hasChanged_;
    std::vector<RecordWorker*> workers_;  // null: could not be made
    bool isRunning_ = false;

    std::mutex input_;
    std::size_t filled_ = 0;  // number of batches; under input_

    std::mutex output_;  // for all below
    std::condition_variable isDelivered_;
    std::deque<std::unique_ptr<Batch>>
        done_;  // from the oldest undelivered batch on; null: still being worked on
    std::size_t delivered_ = 0;
    std::size_t limit_ = 1;  // of done_
    bool isDelivering_ = false;
    bool isWaiting_ = false;
    bool hasFailed_ = false;  // nothing more is delivered
    std::vector<std::unique_ptr<Batch>> spares_;
    std::exception_ptr error_;

    std::vector<std::thread> threads_;
};

}  // namespace Records
