// What the service's own log says of late reads: blocks that have zeros because a file was not read in time. From the
// outside they look like music that is silent itself.
#pragma once

#include <string>

#include "bench/orv-load/Common.h"

namespace OrvLoad {

struct LateReads {
    u64 reads = 0;        // times that a part of a block, or all of it, was not there in time
    u64 wholeBlocks = 0;  // of them those without any byte of a 16-bit file
};

class ServiceLog {
public:
    // The logging level at which the service writes them down.
    static constexpr i32 kLevelOfReads = 3;

    explicit ServiceLog(std::string folder) : folder_(std::move(folder)) {}
    // In all files of the log so far, those that were put aside too.
    LateReads CountLateReads() const;

private:
    const std::string folder_;
};

}  // namespace OrvLoad
