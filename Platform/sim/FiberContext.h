// The change from one stack to another, and the stacks.
#pragma once

#include "Platform/Types.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ORV_SIM_ASAN 1
#endif
#if __has_feature(thread_sanitizer)
#define ORV_SIM_TSAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define ORV_SIM_ASAN 1
#endif
#if defined(__SANITIZE_THREAD__)
#define ORV_SIM_TSAN 1
#endif

// ORV_SIM_UCONTEXT makes the fallback for other processors the one in use.
#if !defined(ORV_SIM_UCONTEXT) && !defined(__x86_64__) && !defined(__aarch64__)
#define ORV_SIM_UCONTEXT 1
#endif
#if defined(ORV_SIM_UCONTEXT)
#include <ucontext.h>
#endif

namespace Platform::Sim {

// Memory for the stack of one fiber, with an inaccessible page below it.
class FiberStack {
public:
    FiberStack() noexcept = default;
    // Throws std::bad_alloc.
    explicit FiberStack(u64 bytes);
    FiberStack(FiberStack&& other) noexcept;
    FiberStack& operator=(FiberStack&& other) noexcept;
    ~FiberStack();

    void* Bottom() const noexcept { return bottom_; }
    u64 Bytes() const noexcept { return bytes_; }
    // Forgets what the sanitizer knows of the frames of the last user.
    void Recycle() const noexcept;
    // Keeps the memory for ever and counts what it points to as reachable.
    void Abandon() noexcept;

private:
    void* bottom_ = nullptr;
    u64 bytes_ = 0;
};

// Where a fiber that does not run stands. The thread that calls Simulation::Run() has one too, without a stack.
class FiberContext {
public:
    using Entry = void (*)();

    FiberContext() noexcept = default;
    FiberContext(const FiberContext&) = delete;
    FiberContext& operator=(const FiberContext&) = delete;
    ~FiberContext();

    // The first change to this context calls `entry`, which must not return and must call Arrived() first.
    void Prepare(const FiberStack& stack, Entry entry) noexcept;
    // For the context of the thread itself, before it changes to a fiber.
    void PrepareForThread() noexcept;
    // Saves the running code in `from` and goes on in `to`; returns when somebody changes back. `forEver` says that
    // nobody will.
    static void Change(FiberContext& from, FiberContext& to, bool forEver) noexcept;
    // The end of the change, on a new fiber.
    static void Arrived() noexcept;

private:
#if defined(ORV_SIM_UCONTEXT)
    ucontext_t context_ = {};
#else
    void* stackPointer_ = nullptr;
#endif
    // For the sanitizers: the bounds of the stack, and their own record of it.
    const void* bottom_ = nullptr;
    u64 bytes_ = 0;
    void* fakeStack_ = nullptr;
    void* sanitizerFiber_ = nullptr;
    bool ownsSanitizerFiber_ = false;
};

}  // namespace Platform::Sim
