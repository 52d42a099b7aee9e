// Points of the clock that the kernel's waiting calls take as their end.
#pragma once

#include <ctime>

#include "Platform/Types.h"

namespace Platform {

inline timespec MonotonicTimeAfter(u32 milliseconds) noexcept {
    constexpr long kNanosecondsPerSecond = 1'000'000'000;
    timespec end{};
    ::clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_sec += milliseconds / 1000;
    end.tv_nsec += static_cast<long>(milliseconds % 1000) * 1'000'000;
    if (end.tv_nsec >= kNanosecondsPerSecond) {
        end.tv_nsec -= kNanosecondsPerSecond;
        ++end.tv_sec;
    }
    return end;
}

}  // namespace Platform
