// Why a content cannot be played, in words for people. Looks for itself and says nothing to the log; the readers do not
// use it.
#pragma once

#include <string>

namespace Orv {

// What keeps a file on disk from being played as it stands, such as "its rate is 44100 Hz; only 8000 Hz is played".
// Empty when nothing does. The path is found whatever its case. Any thread; may wait for the disk.
std::string WhyFileNotPlayable(const std::string& path);

// The same for a content name as CreateStreamReader takes it. Pipes, gaps and boxes are always in order here; a file
// that is held in memory plays from there, whatever has become of it on disk.
std::string WhyNotPlayable(const std::string& name);

}  // namespace Orv
