#include "VX/WorkerPool.h"

namespace VX {

WorkerPool::WorkerPool(const char* name, u32 threads, u64 maxWaiting) : maxWaiting_(maxWaiting) {
    try {
        for (u32 i = 0; i < threads; i++) threads_.emplace_back(name, [this] { Run(); });
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
    changed_.NotifyOne();
}

void WorkerPool::Stop() {
    {
        Platform::LockGuard guard(mutex_);
        stopping_ = true;
        changed_.NotifyAll();
    }
    for (Platform::Thread& thread : threads_) {
        if (thread.Joinable()) thread.Join();
    }
}

void WorkerPool::Run() {
    while (true) {
        std::function<void()> task;
        {
            Platform::LockGuard guard(mutex_);
            while (tasks_.empty() && !stopping_) changed_.Wait(mutex_);
            if (tasks_.empty()) return;
            task = std::move(tasks_.front());
            tasks_.pop_front();
        }
        task();
    }
}

}  // namespace VX
