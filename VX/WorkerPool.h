// A few threads of ours that work off a queue.
#pragma once

#include <deque>
#include <functional>
#include <vector>

#include "Platform/Sync.h"
#include "Platform/Thread.h"

namespace VX {

// Any thread. Tasks start in the order in which they were posted. They must not throw.
class WorkerPool {
public:
    // TryPost() lets at most `maxWaiting` tasks wait. Throws std::system_error when there is no thread to be had.
    WorkerPool(const char* name, u32 threads, u64 maxWaiting);
    ~WorkerPool();  // stops

    // False when too many wait or the pool has been stopped.
    bool TryPost(std::function<void()> task);
    // However many wait. Nothing happens when the pool has been stopped.
    void Post(std::function<void()> task);
    // Waits until all tasks have been done; none is taken any more. Not on a thread of the pool.
    void Stop();

private:
    // Each sleeps on a condition of its own: the C library of Debian 12 now and then loses the wake-up of one thread
    // where many wait on the same (its bug 25847), and the task would wait for the next one to be posted.
    struct Worker {
        Platform::CondVar wake;
        bool called = false;  // guarded by the pool's mutex
        Platform::Thread thread;
    };

    void Run(Worker& worker);
    void Append(std::function<void()> task) ORV_REQUIRES(mutex_);

    const u64 maxWaiting_;
    Platform::Mutex mutex_;
    std::deque<std::function<void()>> tasks_ ORV_GUARDED_BY(mutex_);
    std::vector<Worker*> idle_ ORV_GUARDED_BY(mutex_);  // the one that has rested least is called first
    bool stopping_ ORV_GUARDED_BY(mutex_) = false;
    std::deque<Worker> workers_;  // of the owner
};

}  // namespace VX
