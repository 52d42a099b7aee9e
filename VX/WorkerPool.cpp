#include "VX/WorkerPool.h"

namespace VX {

WorkerPool::WorkerPool(const char* name, u32 threads, u64 maxWaiting) : maxWaiting_(maxWaiting) {
    idle_.reserve(threads);  // a worker that rests allocates nothing
    try {
        for (u32 i = 0; i < threads; i++) {
            Worker& worker = workers_.emplace_back();
            worker.thread = Platform::Thread(name, [this, &worker] { Run(worker); });
        }
    } catch (...) {
        Stop();
        throw;
    }
}

WorkerPool::~WorkerPool() {
    Stop();
}

bool WorkerPool::TryPost(std::function<void()> task) {
    Platform::LockGuard guard(mutex_);
    if (stopping_ || tasks_.size() >= maxWaiting_) return false;
    Append(std::move(task));
    return true;
}

void WorkerPool::Post(std::function<void()> task) {
    Platform::LockGuard guard(mutex_);
    if (!stopping_) Append(std::move(task));
}

void WorkerPool::Append(std::function<void()> task) {
    tasks_.push_back(std::move(task));
    if (idle_.empty()) return;  // one that works takes it when it has done
    Worker& worker = *idle_.back();
    idle_.pop_back();
    worker.called = true;
    worker.wake.NotifyOne();
}

void WorkerPool::Stop() {
    {
        Platform::LockGuard guard(mutex_);
        stopping_ = true;
        for (Worker& worker : workers_) worker.wake.NotifyOne();
    }
    for (Worker& worker : workers_) {
        if (worker.thread.Joinable()) worker.thread.Join();
    }
}

void WorkerPool::Run(Worker& worker) {
    while (true) {
        std::function<void()> task;
        {
            Platform::LockGuard guard(mutex_);
            while (tasks_.empty() && !stopping_) {
                worker.called = false;
                idle_.push_back(&worker);
                while (!worker.called && !stopping_) worker.wake.Wait(mutex_);
            }
            if (tasks_.empty()) return;
            task = std::move(tasks_.front());
            tasks_.pop_front();
        }
        task();
    }
}

}  // namespace VX
