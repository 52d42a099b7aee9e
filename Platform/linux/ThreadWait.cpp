#include "Platform/ThreadWait.h"

namespace Platform {
namespace {

constinit thread_local std::atomic<ThreadWait> wait{ThreadWait::None};

}  // namespace

std::atomic<ThreadWait>& ThisThreadWait() noexcept {
    return wait;
}

}  // namespace Platform
