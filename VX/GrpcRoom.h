// Whether the process has what gRPC takes for itself. It does not say when something is missing: without descriptors it
// ends the process, and a thread that it cannot start is never started later, but waited for at the end, without end.
// So it begins only where there is room.
#pragma once

namespace VX {

// For one more connection or port, and gRPC's own.
bool HasRoomForFiles();

// For all its threads at one time. Starts up to 24 threads ("vx-room") and joins them.
bool HasRoomForThreads();

}  // namespace VX
