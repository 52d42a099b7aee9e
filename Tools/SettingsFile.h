// What the tools say about a settings file.
#pragma once

namespace Orv {

// Behind the name of one that could be opened but is not whole (CommonSettings::whole): what it lacks would be taken
// for what nobody has set.
inline constexpr char CutShortText[] = " cannot be read to its end; look at its disk, and write the file again";

}  // namespace Orv
