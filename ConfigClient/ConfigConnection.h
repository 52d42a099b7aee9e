// The live, indexed copy of the Configuration service's tables. Everything here is process-wide: there is one
// connection. No error is reported: an operation that cannot reach the service leaves things as they are and gives an
// empty holder.
#pragma once

#include <atomic>

#include "Platform/Types.h"
#include "ServiceProcess/MTReferencedTypeBase.h"
#include "VX/VX.h"

namespace ConfigConnection {

class TObjectListImpl;

// Called on the library's thread with no lock held, for every row change and every transaction mark. `kind` is
// "Inserted", "Updated" or "Deleted"; the holders are never null and may be empty. `id` is the row's id.
using ChangeListenerFunction = void (*)(const char* table, const char* kind, u32 id, VX::ParamListHolder* newRow,
                                        VX::ParamListHolder* oldRow);
// Null until the program sets it.
extern std::atomic<ChangeListenerFunction> ChangeListener;

// Connects, subscribes the tables, whose ids are fetched, and registers the slots. True when the connection stands and
// every table was read; otherwise nothing of it is left. `credentialsSize` counts the terminating NUL. Blocks on the
// network. One thread at a time, and not again while a connection stands.
bool Connect(const char* host, u32 port, const char* const* tables, u32 count, const void* credentials,
             u32 credentialsSize);
// Forgets all tables and disconnects. True. Any thread, repeatable.
bool Disconnect();
// The connected application's name, empty when not connected. The text stays good and unchanged until the next
// Connect(). Any thread.
const char* GetServerName();

// Declares an index on a table's field, text when `secondField` is null or empty. Before rows are read.
void CreateIndex(const char* table, const char* field, const char* secondField);
// The table's live copy; empty when there is none. See ObjectList.h.
MTObjects::THolder<TObjectListImpl> GetList(const char* name);

}  // namespace ConfigConnection
