// What a process costs, as the kernel counts it.
#pragma once

#include <sys/types.h>

#include "bench/orv-load/Common.h"

namespace OrvLoad {

// Cheap: one system call, however many threads.
i64 ProcessorNanoseconds(pid_t process);

// Counters that only rise. One file is read per thread, so this takes some milliseconds with thousands of them.
struct Counters {
    u64 switches = 0;    // times a thread was given a processor
    u64 readCalls = 0;   // system calls that read
    u64 readBytes = 0;   // what they gave, from the page cache or not
    u64 diskBytes = 0;   // that had to be fetched from a disk for it
    i64 userTime = 0;    // processor time outside the kernel, nanoseconds in steps of 10 ms
    i64 systemTime = 0;  // and inside
};
Counters ReadCounters(pid_t process);

struct Holding {
    u64 pssBytes = 0;  // proportional set size
    u64 threads = 0;
    u64 descriptors = 0;
};
Holding ReadHolding(pid_t process);

// The whole machine.
struct Machine {
    i64 busyTime = 0;          // processor time that was not idle, nanoseconds in steps of 10 ms
    u64 kernelBytes = 0;       // slab, kernel stacks and page tables
    u64 kernelStackBytes = 0;  // the stacks alone
};
Machine ReadMachine();

}  // namespace OrvLoad
