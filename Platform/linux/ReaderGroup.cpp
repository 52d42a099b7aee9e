#include "Platform/linux/ReaderGroup.h"

#include <sys/sysmacros.h>

#include <algorithm>
#include <exception>
#include <map>
#include <string>

#include "Platform/Clock.h"
#include "Platform/linux/DetachedThread.h"

namespace Platform {
namespace {

// How long the end of the process waits for threads that have nothing to do.
constexpr u64 kStopMilliseconds = 1000;

struct Registry {
    Mutex mutex;
    std::map<u64, ReaderGroup*> groups ORV_GUARDED_BY(mutex);

    void StopAll() {
        LockGuard<Mutex> guard(mutex);
        for (const auto& [device, group] : groups) group->Stop();
    }
};

// Outlives every thread; only its idle threads are sent home when the process ends.
Registry& TheRegistry() {
    static Registry& registry = *new Registry;
    static const struct AtExit {
        ~AtExit() { registry.StopAll(); }
    } atExit;
    return registry;
}

}  // namespace

ReaderGroup& ReaderGroup::ForDevice(u64 device) {
    Registry& registry = TheRegistry();
    LockGuard<Mutex> guard(registry.mutex);
    ReaderGroup*& group = registry.groups[device];
    if (group == nullptr) group = new ReaderGroup(device);
    return *group;
}

ReaderGroup::ReaderGroup(u64 device) : device_(device) {
    idle_.reserve(kMostThreads);
}

void ReaderGroup::Submit(WaitingRead& read) {
    LockGuard<Mutex> guard(mutex_);
    read.previous_ = last_;
    read.next_ = nullptr;
    read.queued_ = true;
    (last_ == nullptr ? first_ : last_->next_) = &read;
    last_ = &read;
    ++queueLength_;
    if (idle_.empty()) {
        StartThread();
        return;
    }
    Worker& worker = *idle_.back();
    idle_.pop_back();
    worker.woken = true;
    worker.wake.NotifyOne();
}

void ReaderGroup::Withdraw(WaitingRead& read) {
    LockGuard<Mutex> guard(mutex_);
    if (read.queued_) Unlink(read);
}

void ReaderGroup::EnsureThread() {
    LockGuard<Mutex> guard(mutex_);
    if (threads_ == 0) StartThread();
}

void ReaderGroup::StartMissingThread() {
    LockGuard<Mutex> guard(mutex_);
    if (threadMissing_ && queueLength_ > 0) StartThread();
}

void ReaderGroup::StartThread() {
    if (stopping_ || threads_ >= kMostThreads) return;
    const std::string name = "read " + std::to_string(::gnu_dev_major(device_)) + ":" +  //
                             std::to_string(::gnu_dev_minor(device_));
    try {
        StartDetachedThread(name.c_str(), [this] { Work(); });
        ++threads_;
        threadMissing_ = false;
    } catch (const std::exception&) {
        // The read waits for a thread that becomes free, or for the next try.
        threadMissing_ = true;
    }
}

void ReaderGroup::Work() {
    Worker self;
    mutex_.Lock();
    while (!stopping_) {
        std::shared_ptr<WaitingRead> read = TakeFirst();
        if (!read) {
            if (!WaitForWork(self)) break;
            continue;
        }
        ++busy_;
        mutex_.Unlock();
        read->CarryOut();
        read.reset();  // closes the file when nobody else has it, so not under the lock
        mutex_.Lock();
        --busy_;
    }
    --threads_;
    threadLeft_.NotifyAll();
    mutex_.Unlock();
}

bool ReaderGroup::WaitForWork(Worker& self) {
    const u64 end = SteadyMilliseconds() + kIdleMilliseconds;
    self.woken = false;
    idle_.push_back(&self);
    while (!self.woken && !stopping_) {
        const u64 now = SteadyMilliseconds();
        if (now < end) {
            self.wake.WaitFor(mutex_, static_cast<u32>(end - now));
        } else if (idle_.size() > 1) {
            break;
        } else {
            self.wake.Wait(mutex_);  // the last idle one stays, so that a read in the middle of a file starts no thread
        }
    }
    if (self.woken) return true;
    idle_.erase(std::find(idle_.begin(), idle_.end(), &self));
    return false;
}

std::shared_ptr<WaitingRead> ReaderGroup::TakeFirst() {
    while (first_ != nullptr) {
        WaitingRead& read = *first_;
        Unlink(read);
        // Null when its owner is giving it up at this moment.
        if (std::shared_ptr<WaitingRead> owned = read.weak_from_this().lock()) return owned;
    }
    return nullptr;
}

void ReaderGroup::Unlink(WaitingRead& read) {
    (read.previous_ == nullptr ? first_ : read.previous_->next_) = read.next_;
    (read.next_ == nullptr ? last_ : read.next_->previous_) = read.previous_;
    read.queued_ = false;
    --queueLength_;
}

void ReaderGroup::Stop() {
    const u64 end = SteadyMilliseconds() + kStopMilliseconds;
    LockGuard<Mutex> guard(mutex_);
    stopping_ = true;
    for (Worker* worker : idle_) worker->wake.NotifyOne();
    while (threads_ > busy_) {
        const u64 now = SteadyMilliseconds();
        if (now >= end) break;
        threadLeft_.WaitFor(mutex_, static_cast<u32>(end - now));
    }
}

u32 ReaderGroup::ThreadCount() {
    LockGuard<Mutex> guard(mutex_);
    return threads_;
}

u32 ReaderGroup::BusyCount() {
    LockGuard<Mutex> guard(mutex_);
    return busy_;
}

u32 ReaderGroup::QueueLength() {
    LockGuard<Mutex> guard(mutex_);
    return queueLength_;
}

}  // namespace Platform
