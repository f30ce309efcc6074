#include "records/WorkerPool.h"

#include <system_error>
#include <thread>
#include <utility>

namespace Records {

WorkerPool::~WorkerPool() {
    {
        const std::lock_guard lock(start_);
        isOver_ = true;
    }
    hasChanged_.notify_all();
    join();
}

void WorkerPool::join() {
    for (std::thread& thread : threads_) thread.join();
    threads_.clear();
}

bool WorkerPool::start(int workers) {
    workers_.push_back(stream_.makeWorker());
    if (workers_.front() == nullptr) return false;
    try {
        for (int i = 1; i < workers; ++i) {
            threads_.emplace_back([this] { live(); });
            std::unique_lock lock(start_);
            hasChanged_.wait(lock, [&] { return workers_.size() == threads_.size() + 1; });
            if (error_) std::rethrow_exception(error_);
            if (workers_.back() == nullptr) return false;
        }
    } catch (const std::system_error&) {  // no more threads
    }
    return true;
}

void WorkerPool::run() {
    limit_ = 2 * (threads_.size() + 1);
    {
        const std::lock_guard lock(start_);
        isRunning_ = true;
    }
    hasChanged_.notify_all();
    work(*workers_.front());
    join();
    if (error_) std::rethrow_exception(error_);
}

void WorkerPool::live() {
    RecordWorker* worker = nullptr;
    try {
        worker = stream_.makeWorker();
    } catch (...) {
        error_ = std::current_exception();
    }
    std::unique_lock lock(start_);
    workers_.push_back(worker);
    hasChanged_.notify_all();
    hasChanged_.wait(lock, [&] { return isRunning_ || isOver_; });
    lock.unlock();
    if (worker != nullptr && isRunning_) work(*worker);
}

void WorkerPool::waitForInput(const std::function<void()>& wait) {
    {
        const std::lock_guard lock(output_);
        isWaiting_ = true;
        if (!isDelivering_ && !hasFailed_ && !stream_.flush()) end();
    }
    wait();
    const std::lock_guard lock(output_);
    isWaiting_ = false;
}

void WorkerPool::work(RecordWorker& worker) {
    try {
        for (;;) {
            std::unique_ptr<Batch> batch = spare();
            std::size_t number = 0;
            {
                const std::lock_guard lock(input_);
                if (isOver_) return;
                number = filled_++;
                if (!stream_.fill(*batch)) isOver_ = true;
            }
            const auto deliverFirst = [&] { return deliverPart(number, *batch); };
            while (!worker.process(*batch, deliverFirst)) {
                if (!deliverFirst()) return;
            }
            deliver(number, std::move(batch));
        }
    } catch (...) {
        const std::lock_guard lock(output_);
        if (!error_) error_ = std::current_exception();
        end();
    }
}

std::unique_ptr<Batch> WorkerPool::spare() {
    std::unique_lock lock(output_);
    // The oldest batch is being worked on, so this ends.
    isDelivered_.wait(lock, [&] { return done_.size() < limit_ || hasFailed_; });
    if (spares_.empty()) return std::make_unique<Batch>();
    std::unique_ptr<Batch> batch = std::move(spares_.back());
    spares_.pop_back();
    batch->clear();
    return batch;
}

bool WorkerPool::deliverPart(std::size_t number, Batch& batch) {
    std::unique_lock lock(output_);
    isDelivered_.wait(lock, [&] { return (number == delivered_ && !isDelivering_) || hasFailed_; });
    if (hasFailed_) return false;
    handOver(batch, lock);
    batch.clearOutput();
    return !hasFailed_;
}

void WorkerPool::handOver(Batch& batch, std::unique_lock<std::mutex>& lock) {
    isDelivering_ = true;
    lock.unlock();
    const bool goesOn = stream_.deliver(batch);
    lock.lock();
    isDelivering_ = false;
    isDelivered_.notify_all();
    if (!goesOn || (isWaiting_ && !stream_.flush())) end();
}

void WorkerPool::deliver(std::size_t number, std::unique_ptr<Batch> batch) {
    std::unique_lock lock(output_);
    const std::size_t place = number - delivered_;
    if (place >= done_.size()) done_.resize(place + 1);
    done_[place] = std::move(batch);
    while (!isDelivering_ && !hasFailed_ && !done_.empty() && done_.front()) {
        std::unique_ptr<Batch> oldest = std::move(done_.front());
        done_.pop_front();
        ++delivered_;
        handOver(*oldest, lock);
        spares_.push_back(std::move(oldest));
    }
}

void WorkerPool::end() {
    hasFailed_ = true;
    isOver_ = true;
    isDelivered_.notify_all();
    stream_.end();
}

}  // namespace Records
