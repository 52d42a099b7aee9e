// The administrator's calls, beside the numbered calls by which rows are read. README.md tells them in full.
#pragma once

#include "Platform/Types.h"

namespace Orv::AdminProtocol {

// Rows, for every client.
inline constexpr u32 CallRow = 6;
inline constexpr u32 CallRows = 7;
inline constexpr u32 CallSearch = 8;
inline constexpr u32 CallIds = 9;

// Administration.
inline constexpr u32 CallApply = 100;
inline constexpr u32 CallListRows = 101;
inline constexpr u32 CallStatus = 102;
inline constexpr u32 CallListUsers = 103;
inline constexpr u32 CallAddUser = 104;
inline constexpr u32 CallSetUser = 105;
inline constexpr u32 CallRemoveUser = 106;

// The text under "result" of every administration reply. A reply without it comes from a service that does not know
// the call.
inline constexpr char ResultOk[] = "ok";
inline constexpr char ResultRefused[] = "refused";      // "errors" tells why
inline constexpr char ResultNotFound[] = "notfound";    // refused, and only because rows or users are not there
inline constexpr char ResultForbidden[] = "forbidden";  // the user's role does not allow it
inline constexpr char ResultFailed[] = "failed";        // the disk; nothing was changed

}  // namespace Orv::AdminProtocol
