// The floor: what one thread per channel costs with nothing to play. Same threads, wakes, polls and writes as pumps.
#pragma once

#include <string>

#include "Platform/Types.h"

namespace OrvLoad {

// Runs `count` such threads in this process until SIGTERM. Each serves a socket f<number> in `folder`, wakes each 100
// ms, asks with one poll for a client, takes one, and then writes a block of 2000 bytes each 125 ms, as a pump does.
// The phases of the wake-ups are spread over the 100 ms, as the pumps of a service that has run for a while are.
int RunFloor(const std::string& folder, u32 count);

}  // namespace OrvLoad
