// The exchange's library: connection, numbered calls, signals and slots.
//
// Any thread may call any operation. Events reach the slots in the order in which the peer raised them, one at a time,
// on one library thread ("vx-events"); a handler may call VXCall. Listeners are called on that thread too, but the
// connect listener, which VXConnect calls before it returns.
//
// Events raised after VXConnect are kept for the connection until their signal is connected and their slot registered.
// They are one ordered stream: an event that must still wait holds those behind it. So a client connects a signal that
// it does not want to slot 0, which drops it, or calls VXDropOtherSignals once it has connected those that it wants. A
// connection that has more than 64 MB of events waiting is ended.
#pragma once

#include "VX/Link.h"
#include "VX/ParamList.h"

using VXConnectCallback = i32 (*)(const char* local, const char* remote, const char* application, u64 value1,
                                  u64 value2, const char* applicationType);
using VXDisconnectCallback = i32 (*)(const char* application, u64 value1, u64 value2);
using VXFailureCallback = i32 (*)(const char* remote, u64 value1, u64 value2);

// The record a dispatcher gets: `context` is the library's, `user` what was registered with the slot.
struct VXSlotRecord {
    void* context;
    void* user;
};
// Called for each event of a slot. Handles are borrowed for the time of the call.
using VXDispatcher = i32 (*)(HVXPARAMLIST request, HVXPARAMLIST reply, VXSlotRecord* record);

inline constexpr u32 VXInvalidSlot = 0xFFFFFFFFu;

// How VXConnect reaches other programs. Set by the program before VXInitialize; must outlive VXShutdown.
void VXSetConnector(VX::ILinkConnector* connector);

// Starts the library under the program's name. 0 on success, otherwise 1: it runs already, or there is no thread to be
// had. The listeners are given the two values.
u32 VXInitialize(const char* name, u64 value1, u64 value2);
// Ends every connection, without a word to the listeners, and the library's thread; waits for a handler that is running
// (its calls end at once) and for a VXConnect under way. May be called again, and then does nothing. Not on the
// library's thread and not in the connect listener. After it VXInitialize may be called anew; listeners stay, slots do
// not.
void VXShutdown(u64 value);

// Each replaces the listener; null clears it. The disconnect listener is told a loss after the events in front of it,
// as far as their slots were there to take them; the rest is dropped. It may come as soon as VXConnect's connect
// listener has returned. The unknown-connect listener is told of a peer that has no name.
void VXSetAuthFailedListener(VXFailureCallback listener);
void VXSetConnectListener(VXConnectCallback listener);
void VXSetDisconnectListener(VXDisconnectCallback listener);
void VXSetUnknownConnectListener(VXFailureCallback listener);

// Connects to the program that listens at `host` and `port`. On success 0, and the peer's name with its NUL in
// `nameOut`, cut to `nameSize`; a name has 255 bytes at most and is no other live connection's. Otherwise 1 when nobody
// answered, 2 when the credentials were refused. Blocks.
u32 VXConnect(const char* host, u32 port, char* nameOut, u32 nameSize, const void* credentials, u32 credentialsSize);
// Closes the connection. The disconnect listener is not called. Unknown and empty names are ignored.
void VXDisconnect(const char* application);
// `dispatcher` is called for each event of `slot`. VXInvalidSlot on failure (library not initialised, slot taken,
// slot 0). A slot stays registered until VXShutdown.
u32 VXRegisterSlot(u32 slot, VXDispatcher dispatcher, void* user);
// From here on the signal's events, those that already wait among them, come to `slot`; slot 0 drops them.
void VXConnectSignal(const char* application, const char* signal, u32 slot);
// From here on the events of signals that are not connected, those that already wait among them, are dropped.
void VXDropOtherSignals(const char* application);
// Sends a request and waits for the reply, 30 seconds at most. The reply's reference is the caller's; null when the
// application is gone. A call that times out ends the connection, and the disconnect listener is told.
HVXPARAMLIST VXCall(const char* application, u32 number, HVXPARAMLIST request);
