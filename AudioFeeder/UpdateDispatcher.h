// The one road from a change in the configuration tables to the feeder.
#pragma once

#include "AudioFeeder/FeedRow.h"
#include "Platform/Types.h"

namespace Orv {

// No table of the Configuration service: the name under which the host itself speaks to the dispatcher.
inline constexpr char ConfigServerTable[] = "CFGSERVER";

// Fills the table of known names and forgets what changes were made before: one process plays many simulated services.
// Before the first call of OnConfigUpdate().
void FillTableIds();

// Turns one change into one call on the pipe manager or on the log. Called on the library's thread for every row change
// and every transaction mark, and by the host for ConfigServerTable when the whole configuration has come or
// the service stops; the two take turns (EventTurn.h). `kind` beginning with "D" is a deletion, anything else an
// insertion or update. What is none of the feeder's tables is passed over. A standard exception ends in the log.
void OnConfigUpdate(const char* table, const char* kind, u32 id, VX::ParamListHolder* newRow,
                    VX::ParamListHolder* oldRow);

// Sets the log's verbosity by the first character of the row's `value`: "0" to "5"; anything else counts as 1.
void ApplyLoggingLevel(const FeedRow& row);

}  // namespace Orv
