// The threads that wait for one device, so that nobody else has to. Inside Platform/linux only.
#pragma once

#include <memory>
#include <vector>

#include "Platform/Sync.h"
#include "Platform/Types.h"

namespace Platform {

// Something that must wait for a disk. Owned by whoever wants it; a group holds it only while a thread carries it out.
class WaitingRead : public std::enable_shared_from_this<WaitingRead> {
public:
    virtual ~WaitingRead() = default;
    // On a thread of the group, with no lock held. May never return.
    virtual void CarryOut() noexcept = 0;

private:
    friend class ReaderGroup;
    // Neighbours in the group's queue, guarded by the group's mutex.
    WaitingRead* previous_ = nullptr;
    WaitingRead* next_ = nullptr;
    bool queued_ = false;
};

// A queue of reads and as many threads as it takes: a read that finds no idle thread gets a new one, so that reads
// that hang hold up nothing else on their device until all kMostThreads hang. Idle threads but one end after a while,
// the one that was busy last is used first. A group is never destroyed, since a thread of it may hang to the end of the
// process. Any thread; nothing here waits for a read.
class ReaderGroup {
public:
    static constexpr u32 kMostThreads = 64;
    static constexpr u32 kIdleMilliseconds = 10'000;

    // The group of a device, made at the first use of it.
    static ReaderGroup& ForDevice(u64 device);

    explicit ReaderGroup(u64 device);
    ReaderGroup(const ReaderGroup&) = delete;
    ReaderGroup& operator=(const ReaderGroup&) = delete;

    // Has `read` carried out soon. Its owner keeps it, or gives it up by destroying it, for which the destructor of
    // the derived class calls Withdraw().
    void Submit(WaitingRead& read);
    // Takes `read` out of the queue if it is still there.
    void Withdraw(WaitingRead& read);
    // Has a first thread started, so that the first read finds one.
    void EnsureThread();
    // For whoever waits: tries again to start a thread when the system had none to give.
    void StartMissingThread();
    // Ends the idle threads and waits for them, not for one that hangs. What is queued then stays so.
    void Stop();

    u32 ThreadCount();
    // Threads that carry out a read, be it one that hangs.
    u32 BusyCount();
    // Reads that no thread has begun.
    u32 QueueLength();

private:
    struct Worker {
        CondVar wake;
        bool woken = false;
    };

    void Work();
    // Sleeps until there is something to do. False when there was nothing for kIdleMilliseconds and others are idle
    // too.
    bool WaitForWork(Worker& self) ORV_REQUIRES(mutex_);
    // The next read that is still wanted, out of the queue; null when there is none.
    std::shared_ptr<WaitingRead> TakeFirst() ORV_REQUIRES(mutex_);
    void Unlink(WaitingRead& read) ORV_REQUIRES(mutex_);
    void StartThread() ORV_REQUIRES(mutex_);

    const u64 device_;
    Mutex mutex_;
    CondVar threadLeft_;
    WaitingRead* first_ ORV_GUARDED_BY(mutex_) = nullptr;
    WaitingRead* last_ ORV_GUARDED_BY(mutex_) = nullptr;
    u32 queueLength_ ORV_GUARDED_BY(mutex_) = 0;
    std::vector<Worker*> idle_ ORV_GUARDED_BY(mutex_);
    u32 threads_ ORV_GUARDED_BY(mutex_) = 0;
    u32 busy_ ORV_GUARDED_BY(mutex_) = 0;
    bool threadMissing_ ORV_GUARDED_BY(mutex_) = false;
    bool stopping_ ORV_GUARDED_BY(mutex_) = false;
};

}  // namespace Platform
