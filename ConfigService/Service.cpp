#include "ConfigService/Service.h"

#include <cstdio>
#include <utility>

#include "ConfigService/AdminProtocol.h"
#include "ConfigService/Wire.h"
#include "Platform/Clock.h"

namespace Orv {
namespace {

using VX::ParamListHolder;

ParamListHolder NewList() {
    ParamListHolder list;
    list.NewList();
    return list;
}

// The bytes that a row takes in a reply, at most.
u64 ReplyBytes(const Table& table, const Row& row) {
    u64 bytes = 64;
    for (u32 i = 0; i < table.columns.size(); ++i) bytes += 32 + row.Text(static_cast<int>(i)).size();
    return bytes;
}

}  // namespace

ConfigService::ConfigService(Store& store, Users& users, ServiceLog& log, std::string version, std::string database)
    : store_(store),
      users_(users),
      log_(log),
      gate_(users, log),
      version_(std::move(version)),
      database_(std::move(database)),
      started_(UtcText()) {}

std::string ConfigService::UtcText() {
    const Platform::CalendarTime now = Platform::UtcTime();
    char text[40];
    std::snprintf(text, sizeof(text), "%04u-%02u-%02uT%02u:%02u:%02uZ", now.year, now.month, now.day, now.hour,
                  now.minute, now.second);
    return text;
}

void ConfigService::Attach(VX::ILinkServer* server) {
    Platform::LockGuard<Platform::Mutex> guard(writing_);
    server_ = server;
    detached_ = server == nullptr;
    attached_.NotifyAll();
}

void ConfigService::Stop() {
    gate_.Stop();
}

std::string ConfigService::PeerType() const {
    return "DBProvider";
}

bool ConfigService::Authenticate(const std::string& credentials, const std::string& remote, std::string& user) {
    return gate_.Check(credentials, remote, user);
}

void ConfigService::OnConnected(VX::SessionId session, const std::string& user, const std::string& remote) {
    log_.Info("User \"" + Harmless(user) + "\" connected from " + Harmless(remote));
    Platform::LockGuard<Platform::Mutex> guard(sessionsLock_);
    sessions_[session] = {user, remote, UtcText()};
}

void ConfigService::OnDisconnected(VX::SessionId session) {
    Session gone;
    {
        Platform::LockGuard<Platform::Mutex> guard(sessionsLock_);
        const auto found = sessions_.find(session);
        if (found == sessions_.end()) return;
        gone = std::move(found->second);
        sessions_.erase(found);
    }
    log_.Info("User \"" + Harmless(gone.user) + "\" disconnected from " + Harmless(gone.remote));
}

void ConfigService::OnFallenBehind(VX::SessionId session) {
    const Session slow = FindSession(session);
    log_.Warn("The program of user \"" + Harmless(slow.user) + "\" at " + Harmless(slow.remote) +
              " does not take its signals; too many of them waited, so it is disconnected; restart that program");
}

ConfigService::Session ConfigService::FindSession(VX::SessionId session) const {
    Platform::LockGuard<Platform::Mutex> guard(sessionsLock_);
    const auto found = sessions_.find(session);
    return found != sessions_.end() ? found->second : Session{};
}

ParamListHolder ConfigService::OnCall(VX::SessionId session, u32 number, const ParamListHolder& request) {
    switch (number) {
        case AdminProtocol::CallRow:
            return AnswerRow(request);
        case AdminProtocol::CallRows:
            return AnswerRows(request);
        case AdminProtocol::CallSearch:
            return AnswerSearch(request);
        case AdminProtocol::CallIds:
            return AnswerIds(request);
        default:
            return Administer(session, number, request);
    }
}

// --- rows ------------------------------------------------------------------------------------------------------------

ParamListHolder ConfigService::AnswerRow(const ParamListHolder& request) const {
    ParamListHolder reply = NewList();
    const Table* table = FindTable(GetText(request, "OC"));
    if (table == nullptr) return reply;
    Row row;
    const bool found = store_.GetRow(*table, VXGetInt32Value(request.Get(), "ID"), row);
    const ParamListHolder list = found ? RowToList(*table, row) : NewList();
    VXSetHandleValue(reply.Get(), "OD", list.Get());
    return reply;
}

ParamListHolder ConfigService::AnswerRows(const ParamListHolder& request) const {
    ParamListHolder reply = NewList();
    const Table* table = FindTable(GetText(request, "OC"));
    if (table == nullptr) return reply;
    std::vector<ParamListHolder> rows;
    u64 bytes = 0;
    for (const i32 id : GetIds(request, "ids")) {
        Row row;
        row.values.resize(table->columns.size());
        rows.push_back(store_.GetRow(*table, id, row) ? RowToList(*table, row) : NewList());
        bytes += ReplyBytes(*table, row);
        if (bytes > VX::MaxMessageBytes) {
            log_.Warn(std::string("A request for rows of ") + table->name + " was larger than a reply can be");
            return reply;
        }
    }
    SetLists(reply, "OD", rows);
    return reply;
}

ParamListHolder ConfigService::AnswerSearch(const ParamListHolder& request) const {
    ParamListHolder reply = NewList();
    const Table* table = FindTableLower(GetText(request, "TN"));
    std::vector<i32> ids;
    if (table != nullptr && store_.Search(*table, GetText(request, "FF"), GetText(request, "FS"), ids)) {
        SetIds(reply, "ids", ids);
    }
    return reply;
}

ParamListHolder ConfigService::AnswerIds(const ParamListHolder& request) const {
    ParamListHolder reply = NewList();
    const Table* table = FindTable(GetText(request, "OC"));
    if (table != nullptr) SetIds(reply, "ids", store_.Ids(*table));
    return reply;
}

}  // namespace Orv
