// What orv-convert writes to its standard output for orvctl, a JSON object a line:
//
//     {"progress": 0.25}
//     {"refused": "is empty"}
//     {"done": {"format": "FLAC", "rate": 44100, "channels": 2, "seconds": 12.5, "lufs": -14.2, "factor": 0.36,
//               "notes": []}}
//
// "lufs" is the loudness before the change, or null. The last line is "refused" or "done"; without either the process
// was ended by a limit or a fault.
#pragma once

namespace Orv::ConvertProtocol {

inline constexpr char Progress[] = "progress";
inline constexpr char Refused[] = "refused";
inline constexpr char Done[] = "done";

}  // namespace Orv::ConvertProtocol
