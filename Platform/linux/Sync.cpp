#include "Platform/Sync.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>

namespace Platform {
namespace {

// The standard objects live in the storage of ours.
std::mutex& Plain(unsigned char* storage) {
    return *std::launder(reinterpret_cast<std::mutex*>(storage));
}
std::recursive_mutex& Recursive(unsigned char* storage) {
    return *std::launder(reinterpret_cast<std::recursive_mutex*>(storage));
}
std::condition_variable& Condition(unsigned char* storage) {
    return *std::launder(reinterpret_cast<std::condition_variable*>(storage));
}

template <typename T>
constexpr bool kFits = sizeof(T) <= 48 && alignof(T) <= 8;
static_assert(kFits<std::mutex> && kFits<std::recursive_mutex> && kFits<std::condition_variable>);

}  // namespace

Mutex::Mutex() noexcept {
    new (storage_) std::mutex;
}
Mutex::~Mutex() {
    std::destroy_at(&Plain(storage_));
}
void Mutex::Lock() ORV_NO_THREAD_SAFETY_ANALYSIS {
    Plain(storage_).lock();
}
bool Mutex::TryLock() ORV_NO_THREAD_SAFETY_ANALYSIS {
    return Plain(storage_).try_lock();
}
void Mutex::Unlock() ORV_NO_THREAD_SAFETY_ANALYSIS {
    Plain(storage_).unlock();
}

RecursiveMutex::RecursiveMutex() noexcept {
    new (storage_) std::recursive_mutex;
}
RecursiveMutex::~RecursiveMutex() {
    std::destroy_at(&Recursive(storage_));
}
void RecursiveMutex::Lock() ORV_NO_THREAD_SAFETY_ANALYSIS {
    Recursive(storage_).lock();
}
bool RecursiveMutex::TryLock() ORV_NO_THREAD_SAFETY_ANALYSIS {
    return Recursive(storage_).try_lock();
}
void RecursiveMutex::Unlock() ORV_NO_THREAD_SAFETY_ANALYSIS {
    Recursive(storage_).unlock();
}

CondVar::CondVar() noexcept {
    new (storage_) std::condition_variable;
}
CondVar::~CondVar() {
    std::destroy_at(&Condition(storage_));
}

void CondVar::Wait(Mutex& mutex) {
    std::unique_lock<std::mutex> lock(Plain(mutex.storage_), std::adopt_lock);
    Condition(storage_).wait(lock);
    lock.release();
}

bool CondVar::WaitFor(Mutex& mutex, u32 milliseconds) {
    std::unique_lock<std::mutex> lock(Plain(mutex.storage_), std::adopt_lock);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    const bool notified = Condition(storage_).wait_until(lock, deadline) == std::cv_status::no_timeout;
    lock.release();
    return notified;
}

void CondVar::NotifyOne() noexcept {
    Condition(storage_).notify_one();
}
void CondVar::NotifyAll() noexcept {
    Condition(storage_).notify_all();
}

}  // namespace Platform
