// Any bytes as what a Configuration service sends to the audio feed service: events, and the replies to what is asked
// because of them. The input is a row of messages, each a byte for its kind, two for its length, and the bytes of a
// list. The tables hold what the change listener was told, transactions are told between their marks, and nothing of
// one table reaches another. The library under the client is replaced here, so that a reply is the input's next one.
#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "ConfigClient/ConfigConnection.h"
#include "ConfigClient/Connection.h"
#include "VX/ListCodec.h"
#include "tests/fuzz/FuzzTarget.h"

namespace {

using VX::ParamListHolder;

enum Kind : u8 { Batch, Update, Reply, Lookup, Kinds };
struct Message {
    u8 kind = 0;
    ParamListHolder list;
};

std::vector<Message> messages;
std::size_t at = 0;
constexpr int kMostCalls = 200;
int calls = 0;  // left

// The input's next reply that is a list, or the empty one.
ParamListHolder NextReply() {
    while (at < messages.size()) {
        const Message& message = messages[at++];
        if (message.kind == Reply) return message.list;
    }
    ParamListHolder empty;
    empty.NewList();
    return empty;
}

void TakeApart(const u8* data, std::size_t size) {
    messages.clear();
    at = 0;
    for (std::size_t begin = 0; begin + 3 <= size;) {
        const std::size_t length = std::min<std::size_t>(data[begin + 1] + 256u * data[begin + 2], size - begin - 3);
        Message message;
        message.kind = data[begin] % Kinds;
        const std::string bytes(Fuzz::AsText(data + begin + 3, length));
        if (VX::DecodeParamList(bytes, message.list)) messages.push_back(std::move(message));
        begin += 3 + length;
    }
}

// What the listener was told last of each row, since the last search: the row, or none after a deletion.
std::map<std::pair<std::string, i32>, HVXPARAMLIST> told;
enum class Mark { None, Begin, Rows } mark = Mark::None;
bool inBatch = false;

void Tell(const char* table, const char* kind, u32 id, ParamListHolder* newRow, ParamListHolder* oldRow) {
    Fuzz::Require(newRow != nullptr && oldRow != nullptr, "the listener gets both holders");
    if (std::string(table) == "TRANSACTION") {
        const Mark wanted = *kind == 'I' ? Mark::None : *kind == 'U' ? Mark::Begin : Mark::Rows;
        Fuzz::Require(inBatch && mark == wanted, "the marks of a transaction come in order");
        mark = *kind == 'I' ? Mark::Begin : *kind == 'U' ? Mark::Rows : Mark::None;
        return;
    }
    Fuzz::Require(!inBatch || mark == Mark::Rows, "a transaction's rows come between its marks");
    const auto known = told.find({table, static_cast<i32>(id)});
    const HVXPARAMLIST before = known != told.end() ? known->second : nullptr;
    if (*kind == 'D') {
        Fuzz::Require(!*newRow, "a deleted row has no new one");
        told[{table, static_cast<i32>(id)}] = nullptr;
    } else {
        Fuzz::Require(VXGetParamCount(newRow->Get()) != 0 && id != 0, "a row that is told has something in it");
        told[{table, static_cast<i32>(id)}] = newRow->Get();
    }
    Fuzz::Require(known == told.end() || before == oldRow->Get(), "the old row is the one that was told before");
}

void LookUp(const ParamListHolder& request) {
    const char* name = VXGetStringValue(request.Get(), "OC");
    const auto list = ConfigConnection::GetList(name);
    const char* text = VXGetStringValue(request.Get(), "FS");
    if (!list || text == nullptr) return;
    for (const char* field : {"pipename", "thename", "name"}) {
        const ParamListHolder row = list->FindRow(field, text, 0);
        static_cast<void>(VXGetParamCount(row.Get()));
    }
    told.clear();  // a row that was fetched is here without having been told
}

void Handle(const Message& message) {
    ParamListHolder reply;
    if (message.kind == Batch) {
        inBatch = true;
        ConfigConnection::BatchListener().OnEvent(message.list, reply);
        Fuzz::Require(mark == Mark::None, "a transaction ends");
        inBatch = false;
    } else if (message.kind == Update) {
        VXDBServer::WUpdateEventOut out(reply);
        const i32 result = ConfigConnection::UpdateListener().OnEvent(VXDBServer::WUpdateEvent(message.list), out);
        Fuzz::Require(result == 0, "an event with a list is taken");
    } else if (message.kind == Lookup) {
        LookUp(message.list);
    }
}

void CheckTables() {
    for (const auto& [place, row] : told) {
        const auto list = ConfigConnection::GetList(place.first.c_str());
        Fuzz::Require(list.IsValid(), "only rows of tables that are here are told");
        std::vector<i32> ids;
        list->GetIds(ids);
        const bool there = std::find(ids.begin(), ids.end(), place.second) != ids.end();
        Fuzz::Require(there == (row != nullptr), "the table has the rows that were told");
        if (row != nullptr) Fuzz::Require(list->GetRow(place.second).Get() == row, "and each as it was told");
    }
}

}  // namespace

// --- the library under the client
u32 VXConnect(const char*, u32, char* nameOut, u32 nameSize, const void*, u32) {
    std::snprintf(nameOut, nameSize, "Server");
    return 0;
}
HVXPARAMLIST VXCall(const char*, u32, HVXPARAMLIST request) {
    Fuzz::Require(VXGetParamCount(request) != 0, "a call asks for something");
    if (--calls < 0) return VXCreateParamList();
    return VXReferenceHandle(NextReply().Get());
}
u32 VXRegisterSlot(u32 slot, VXDispatcher, void*) {
    return slot;
}
void VXConnectSignal(const char*, const char*, u32) {}
void VXDropOtherSignals(const char*) {}
void VXDisconnect(const char*) {}
void VXShutdown(u64) {}
void VXSetAuthFailedListener(VXFailureCallback) {}
void VXSetConnectListener(VXConnectCallback) {}
void VXSetDisconnectListener(VXDisconnectCallback) {}
void VXSetUnknownConnectListener(VXFailureCallback) {}

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
    TakeApart(data, size);
    calls = kMostCalls;
    told.clear();
    mark = Mark::None;
    inBatch = false;
    const char* const tables[] = {"AUDIOFEED", "ANNOUNCEMENT", "PARAMETER"};
    ConfigConnection::ChangeListener = Tell;
    Fuzz::Require(ConfigConnection::Connect("h", 1, tables, 3, "u:p", 4), "a service that answers is connected to");
    ConfigConnection::CreateIndex("AUDIOFEED", "pipename", nullptr);
    ConfigConnection::CreateIndex("PARAMETER", "name", nullptr);
    while (at < messages.size()) {
        const Message message = messages[at++];
        Handle(message);
    }
    CheckTables();
    ConfigConnection::Disconnect();
    ConfigConnection::Connection::Instance().SetApplication(nullptr);
    messages.clear();
    return 0;
}
