#include "records/WorkerPool.h"

namespace Records {

WorkerPool::WorkerPool(const std::vector<std::unique_ptr<RecordWorker>>& workers)
    : only_(workers.size() == 1 ? workers.front().get() : nullptr) {
    // Enough that no worker waits while the oldest batch is written.
    const std::size_t batches = only_ != nullptr ? 1 : 3 * workers.size() + 1;
    for (std::size_t i = 0; i < batches; ++i) spares_.push_back(std::make_unique<Batch>());
    if (only_ != nullptr) return;
    for (const auto& worker : workers) {
        threads_.emplace_back([this, &worker] { work(*worker); });
    }
}

WorkerPool::~WorkerPool() {
    {
        const std::lock_guard lock(mutex_);
        isClosed_ = true;
        waiting_.clear();
    }
    isWaiting_.notify_all();
    for (std::thread& thread : threads_) thread.join();
}

std::unique_ptr<Batch> WorkerPool::spare() {
    if (spares_.empty()) return nullptr;
    std::unique_ptr<Batch> batch = std::move(spares_.back());
    spares_.pop_back();
    batch->clear();
    return batch;
}

void WorkerPool::submit(std::unique_ptr<Batch> batch) {
    order_.push_back(std::make_unique<Task>());
    Task& task = *order_.back();
    task.batch = std::move(batch);
    if (only_ != nullptr) {
        only_->process(*task.batch);
        task.isDone = true;
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        waiting_.push_back(&task);
    }
    isWaiting_.notify_one();
}

bool WorkerPool::isReady() {
    const std::lock_guard lock(mutex_);
    return !order_.empty() && order_.front()->isDone;
}

std::unique_ptr<Batch> WorkerPool::takeBack() {
    Task& oldest = *order_.front();
    {
        std::unique_lock lock(mutex_);
        isDone_.wait(lock, [&] { return oldest.isDone; });
    }
    std::unique_ptr<Batch> batch = std::move(oldest.batch);
    order_.pop_front();
    return batch;
}

void WorkerPool::recycle(std::unique_ptr<Batch> batch) { spares_.push_back(std::move(batch)); }

void WorkerPool::work(RecordWorker& worker) {
    std::unique_lock lock(mutex_);
    for (;;) {
        isWaiting_.wait(lock, [&] { return isClosed_ || !waiting_.empty(); });
        if (waiting_.empty()) return;
        Task& task = *waiting_.front();
        waiting_.pop_front();
        lock.unlock();
        worker.process(*task.batch);
        lock.lock();
        task.isDone = true;
        isDone_.notify_one();
    }
}

}  // namespace Records
