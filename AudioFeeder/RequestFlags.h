// What other threads ask of the host's Run(): two flags of the process behind one lock, held for moments.
#pragma once

#include "Platform/Types.h"

namespace Orv {

// Never taken back after the start.
void RaiseStopRequest();
void RaiseConnectionLost();
void ClearRequests();

// Sleeps for the whole time or until a stop is requested, and nothing else ends it. True when one is.
bool WaitForStopRequest(u32 milliseconds);
// Sleeps until a stop is requested (true) or the connection is lost (false; the flag is cleared). A stop wins.
bool WaitForAnyRequest();

}  // namespace Orv
