// Whether the process has what gRPC takes for itself. It does not say when something is missing: without descriptors it
// ends the process, and a thread that it cannot start is never started later, but waited for at the end, without end.
// So it begins only where there is room. Each answer is one of the moment: others may take the room right after. To be
// called from any thread; both block.
#pragma once

namespace VX {

// For one more connection or port, and gRPC's own. Opens and closes as many descriptors.
bool HasRoomForFiles();

// For all its threads at one time. Starts up to 24 threads ("vx-room") and joins them. May throw std::bad_alloc.
bool HasRoomForThreads();

}  // namespace VX
