#include "Platform/sim/FiberContext.h"

#include <sys/mman.h>
#include <unistd.h>

#include <new>
#include <utility>

#if defined(ORV_SIM_ASAN)
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#include <sanitizer/lsan_interface.h>
#endif
#if defined(ORV_SIM_TSAN)
#include <sanitizer/tsan_interface.h>
#endif

#if !defined(ORV_SIM_UCONTEXT)
// Saves what a called function must keep and changes the stack. swapcontext() would ask the kernel for the signal mask
// each time, which costs more than all the rest.
extern "C" void OrvSimChangeStack(void** save, void* load) noexcept;
#if defined(__x86_64__)
asm(R"(
.text
.globl OrvSimChangeStack
.type OrvSimChangeStack, @function
.balign 16
OrvSimChangeStack:
    pushq %rbp
    pushq %rbx
    pushq %r12
    pushq %r13
    pushq %r14
    pushq %r15
    movq %rsp, (%rdi)
    movq %rsi, %rsp
    popq %r15
    popq %r14
    popq %r13
    popq %r12
    popq %rbx
    popq %rbp
    ret
.size OrvSimChangeStack, .-OrvSimChangeStack
)");
#else
asm(R"(
.text
.globl OrvSimChangeStack
.type OrvSimChangeStack, %function
.balign 16
OrvSimChangeStack:
    sub sp, sp, #160
    stp x19, x20, [sp, #0]
    stp x21, x22, [sp, #16]
    stp x23, x24, [sp, #32]
    stp x25, x26, [sp, #48]
    stp x27, x28, [sp, #64]
    stp x29, x30, [sp, #80]
    stp d8, d9, [sp, #96]
    stp d10, d11, [sp, #112]
    stp d12, d13, [sp, #128]
    stp d14, d15, [sp, #144]
    mov x2, sp
    str x2, [x0]
    mov sp, x1
    ldp x19, x20, [sp, #0]
    ldp x21, x22, [sp, #16]
    ldp x23, x24, [sp, #32]
    ldp x25, x26, [sp, #48]
    ldp x27, x28, [sp, #64]
    ldp x29, x30, [sp, #80]
    ldp d8, d9, [sp, #96]
    ldp d10, d11, [sp, #112]
    ldp d12, d13, [sp, #128]
    ldp d14, d15, [sp, #144]
    add sp, sp, #160
    ret
.size OrvSimChangeStack, .-OrvSimChangeStack
)");
#endif
#endif

namespace Platform::Sim {

namespace {

// The context that was left by the change under way.
FiberContext* lastLeft = nullptr;

u64 PageBytes() {
    static const u64 bytes = static_cast<u64>(sysconf(_SC_PAGESIZE));
    return bytes;
}

}  // namespace

FiberStack::FiberStack(u64 bytes) {
    const u64 page = PageBytes();
    bytes_ = (bytes + page - 1) / page * page;
    void* memory =
        mmap(nullptr, bytes_ + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    mprotect(memory, page, PROT_NONE);
    bottom_ = static_cast<u8*>(memory) + page;
}

FiberStack::FiberStack(FiberStack&& other) noexcept
    : bottom_(std::exchange(other.bottom_, nullptr)), bytes_(std::exchange(other.bytes_, 0)) {}

FiberStack& FiberStack::operator=(FiberStack&& other) noexcept {
    std::swap(bottom_, other.bottom_);
    std::swap(bytes_, other.bytes_);
    return *this;
}

FiberStack::~FiberStack() {
    if (bottom_ == nullptr) return;
    Recycle();
    munmap(static_cast<u8*>(bottom_) - PageBytes(), bytes_ + PageBytes());
}

void FiberStack::Recycle() const noexcept {
#if defined(ORV_SIM_ASAN)
    __asan_unpoison_memory_region(bottom_, bytes_);
#endif
}

void FiberStack::Abandon() noexcept {
#if defined(ORV_SIM_ASAN)
    if (bottom_ != nullptr) __lsan_register_root_region(bottom_, bytes_);
#endif
    bottom_ = nullptr;
    bytes_ = 0;
}

FiberContext::~FiberContext() {
#if defined(ORV_SIM_TSAN)
    if (ownsSanitizerFiber_) __tsan_destroy_fiber(sanitizerFiber_);
#endif
}

void FiberContext::PrepareForThread() noexcept {
#if defined(ORV_SIM_TSAN)
    sanitizerFiber_ = __tsan_get_current_fiber();
#endif
}

void FiberContext::Prepare(const FiberStack& stack, Entry entry) noexcept {
    bottom_ = stack.Bottom();
    bytes_ = stack.Bytes();
#if defined(ORV_SIM_TSAN)
    sanitizerFiber_ = __tsan_create_fiber(0);
    ownsSanitizerFiber_ = true;
#endif
#if defined(ORV_SIM_UCONTEXT)
    getcontext(&context_);
    context_.uc_stack.ss_sp = stack.Bottom();
    context_.uc_stack.ss_size = stack.Bytes();
    context_.uc_link = nullptr;
    makecontext(&context_, entry, 0);
#else
    // The frame that OrvSimChangeStack() takes off: zeros in the saved registers, and `entry` to return to. Above it
    // stands a zero return address, which ends every walk over the stack.
    auto* top = reinterpret_cast<u64*>(static_cast<u8*>(stack.Bottom()) + stack.Bytes());
#if defined(__x86_64__)
    constexpr int kRegisters = 6;
    *--top = 0;
    *--top = reinterpret_cast<u64>(entry);
    for (int i = 0; i < kRegisters; ++i) *--top = 0;
#else
    constexpr int kWords = 20;
    constexpr int kLinkRegister = 11;
    top -= kWords;
    for (int i = 0; i < kWords; ++i) top[i] = 0;
    top[kLinkRegister] = reinterpret_cast<u64>(entry);
#endif
    stackPointer_ = top;
#endif
}

void FiberContext::Change(FiberContext& from, FiberContext& to, bool forEver) noexcept {
    lastLeft = &from;
#if defined(ORV_SIM_ASAN)
    __sanitizer_start_switch_fiber(forEver ? nullptr : &from.fakeStack_, to.bottom_, to.bytes_);
#else
    (void)forEver;
#endif
#if defined(ORV_SIM_TSAN)
    __tsan_switch_to_fiber(to.sanitizerFiber_, 0);
#endif
#if defined(ORV_SIM_UCONTEXT)
    swapcontext(&from.context_, &to.context_);
#else
    OrvSimChangeStack(&from.stackPointer_, to.stackPointer_);
#endif
#if defined(ORV_SIM_ASAN)
    // Back again. Whoever changed to here told nothing of the bounds that is not known already, but for the thread's.
    __sanitizer_finish_switch_fiber(from.fakeStack_, nullptr, nullptr);
#endif
}

void FiberContext::Arrived() noexcept {
#if defined(ORV_SIM_ASAN)
    size_t bytes = 0;
    __sanitizer_finish_switch_fiber(nullptr, &lastLeft->bottom_, &bytes);
    lastLeft->bytes_ = bytes;
#endif
}

}  // namespace Platform::Sim
