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

/// Where batches come from and go to. Called by any thread of a pool, `makeWorker` and `fill` by
/// one at a time, and `deliver` and `flush` together by one at a time.
class BatchStream {
public:
    virtual ~BatchStream() = default;
    /// The next worker, which must outlive the pool; null ends the work before it begins.
    virtual RecordWorker* makeWorker() = 0;
    /// Gives a cleared batch its records; false when none come after these.
    virtual bool fill(Batch& batch) = 0;
    /// Takes what became of a batch, or of records of it; false ends the work.
    virtual bool deliver(Batch& batch) = 0;
    /// Lets out what was delivered; false ends the work.
    virtual bool flush() = 0;
    /// The work ends before the records do: a `fill` that waits must return. Called once or more.
    virtual void end() = 0;
};

/// Lets workers, each on a thread of its own, fill batches, work on them and deliver them, in the
/// order in which they were filled. A batch stays with its thread, and so in the cache of its
/// processor, unless one that was filled before it takes longer. Runs once.
class WorkerPool {
public:
    /// `stream` is not owned.
    explicit WorkerPool(BatchStream& stream) : stream_(stream) {}
    ~WorkerPool();

    /// Lets each thread make its worker, one after the other, so that the memory of each is its
    /// own. The first is made on the calling thread. Where the system gives no more threads, there
    /// are fewer workers. False when a worker could not be made. What is thrown there is thrown on.
    bool start(int workers);
    /// Works until all is delivered, after `start`, on the calling thread as well. What a worker
    /// throws is thrown on.
    void run();

    /// For `fill`: calls `wait`, which waits for input. Meanwhile all that is delivered is let out.
    void waitForInput(const std::function<void()>& wait);

private:
    void live();  // of a thread
    void join();
    void work(RecordWorker& worker);
    std::unique_ptr<Batch> spare();
    void deliver(std::size_t number, std::unique_ptr<Batch> batch);
    // Delivers what there is of a batch that is not done, when all before it are delivered.
    bool deliverPart(std::size_t number, Batch& batch);
    // Delivers it without the lock, which is that of output_.
    void handOver(Batch& batch, std::unique_lock<std::mutex>& lock);
    void end();

    BatchStream& stream_;
    std::atomic<bool> isOver_ = false;  // no further batch is filled

    std::mutex start_;  // for what follows
    std::condition_variable hasChanged_;
    std::vector<RecordWorker*> workers_;  // null: could not be made
    bool isRunning_ = false;

    std::mutex input_;
    std::size_t filled_ = 0;  // batches; under input_

    std::mutex output_;  // for all below
    std::condition_variable isDelivered_;
    std::deque<std::unique_ptr<Batch>> done_;  // from the oldest not delivered on; null: under way
    std::size_t delivered_ = 0;
    std::size_t limit_ = 1;  // of done_
    bool isDelivering_ = false;
    bool isWaiting_ = false;
    bool hasFailed_ = false;  // nothing is delivered any more
    std::vector<std::unique_ptr<Batch>> spares_;
    std::exception_ptr error_;

    std::vector<std::thread> threads_;
};

}  // namespace Records
