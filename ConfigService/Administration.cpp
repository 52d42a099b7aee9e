// The administrator's calls of the Configuration service, and the signals that follow a change.
#include <array>

#include "ConfigService/AdminProtocol.h"
#include "ConfigService/Service.h"
#include "ConfigService/Wire.h"

namespace Orv {
namespace {

using VX::ParamListHolder;

// Changes told one by one in the log; of larger transactions only the count is told.
constexpr u32 kLoggedChanges = 20;

// What stands for a table in a refusal that is about a user.
constexpr char kUserTable[] = "user";

// The order of the tables in a batch: parameters first, as at the start of a client, so that what is built from the
// rows behind them finds them in force.
constexpr std::array<u32, TableCount> kBatchOrder = {Parameter, AudioFeed, AudioFeedContent, Announcement};

ParamListHolder Reply(const char* result) {
    ParamListHolder reply;
    reply.NewList();
    VXSetStringValue(reply.Get(), "result", result);
    return reply;
}

ParamListHolder Refusal(const char* result, const char* table, const std::string& key, const std::string& field,
                        const std::string& text) {
    ParamListHolder reply = Reply(result);
    ParamListHolder error;
    error.NewList();
    VXSetInt32Value(error.Get(), "change", -1);
    VXSetStringValue(error.Get(), "table", table);
    VXSetStringValue(error.Get(), "key", key.c_str());
    VXSetStringValue(error.Get(), "field", field.c_str());
    VXSetStringValue(error.Get(), "text", text.c_str());
    SetLists(reply, "errors", {error});
    return reply;
}

const char* ResultWord(UserOutcome outcome) {
    switch (outcome) {
        case UserOutcome::Done:
            return AdminProtocol::ResultOk;
        case UserOutcome::Refused:
            return AdminProtocol::ResultRefused;
        case UserOutcome::NotFound:
            return AdminProtocol::ResultNotFound;
        case UserOutcome::Failed:
            break;
    }
    return AdminProtocol::ResultFailed;
}

}  // namespace

ParamListHolder ConfigService::Administer(VX::SessionId session, u32 number, const ParamListHolder& request) {
    if (number < AdminProtocol::CallApply || number > AdminProtocol::CallRemoveUser) {
        ParamListHolder reply;
        reply.NewList();
        return reply;
    }
    const std::string user = FindSession(session).user;
    try {
        // Asked anew at each call, so that a user who was removed or set back loses the right at once.
        const std::optional<Role> role = users_.FindRole(user);
        const bool reads = number == AdminProtocol::CallListRows || number == AdminProtocol::CallStatus;
        if (!role.has_value() || (!reads && *role != Role::Admin)) {
            log_.Warn("Call " + std::to_string(number) + " of user \"" + Harmless(user) + "\" was not allowed");
            return Refusal(AdminProtocol::ResultForbidden, kUserTable, user, "",
                           "may only read; a user of role admin can do this");
        }
        switch (number) {
            case AdminProtocol::CallApply:
                return AnswerApply(user, request);
            case AdminProtocol::CallListRows:
                return AnswerListRows(request);
            case AdminProtocol::CallStatus:
                return AnswerStatus(session);
            case AdminProtocol::CallListUsers:
                return AnswerListUsers();
            default:
                return AnswerUserCall(user, number, request);
        }
    } catch (const DatabaseError& error) {
        log_.Error(error.what());
        return Refusal(AdminProtocol::ResultFailed, "", "", "", error.what());
    }
}

// --- changes ---------------------------------------------------------------------------------------------------------

ParamListHolder ConfigService::AnswerApply(const std::string& user, const ParamListHolder& request) {
    std::vector<Finding> errors;
    const std::vector<Change> changes = ChangesFromList(request, errors);
    ApplyResult result;
    if (!errors.empty()) {
        result.outcome = Outcome::Refused;
        result.errors = std::move(errors);
        return ResultToList(result);
    }
    {
        Platform::LockGuard<Platform::Mutex> guard(writing_);
        while (server_ == nullptr && !detached_) attached_.Wait(writing_);
        if (detached_)
            return Refusal(AdminProtocol::ResultFailed, "", "", "", "The service is stopping; try again later");
        result = store_.Apply(changes);
        if (result.transaction != 0) RaiseChange(result);
    }
    LogChange(user, result);
    return ResultToList(result);
}

void ConfigService::RaiseChange(const ApplyResult& result) {
    ParamListHolder event;
    event.NewList();
    if (result.changed.size() == 1 && result.changed.front().kind[0] != 'R') {
        const RowChange& change = result.changed.front();
        const std::string table = Tables()[change.table].name;
        VXSetStringValue(event.Get(), "OC", table.c_str());
        VXSetStringValue(event.Get(), "TO", change.kind);
        VXSetInt32Array(event.Get(), "IDA", &change.id, 1);
        server_->Raise("UPDOf" + table, event);
        return;
    }
    std::array<std::vector<i32>, TableCount> deleted;
    std::array<std::vector<i32>, TableCount> updated;
    for (const RowChange& change : result.changed) {
        // A row that is deleted and comes back is what ends a feed and builds it anew, as no change of a row does.
        if (change.kind[0] == 'D' || change.kind[0] == 'R') deleted[change.table].push_back(change.id);
        if (change.kind[0] != 'D') updated[change.table].push_back(change.id);
    }
    VXSetInt64Value(event.Get(), "__TRN", result.transaction);
    for (const u32 table : kBatchOrder) {
        if (deleted[table].empty() && updated[table].empty()) continue;
        ParamListHolder rows;
        rows.NewList();
        if (!deleted[table].empty()) SetIds(rows, "DELETED", deleted[table]);
        if (!updated[table].empty()) SetIds(rows, "UPDATED", updated[table]);
        VXSetHandleValue(event.Get(), Tables()[table].name, rows.Get());
    }
    server_->Raise("BATCHUPDATE", event);
}

void ConfigService::LogChange(const std::string& user, const ApplyResult& result) {
    const std::string by = " by user \"" + Harmless(user) + "\"";
    if (result.outcome == Outcome::Failed) {
        log_.Error("A transaction" + by + " failed: " + result.errors.front().text);
    } else if (result.outcome == Outcome::Refused) {
        const Finding& first = result.errors.front();
        log_.Info("A transaction" + by + " was refused: " + first.table + " \"" + Harmless(first.key) + "\" " +
                  Harmless(first.field) + " " + first.text);
    } else if (result.transaction != 0) {
        log_.Info("Transaction " + std::to_string(result.transaction) + by +
                  ", rows changed: " + std::to_string(result.changed.size()));
        for (u32 i = 0; i < result.changed.size() && i < kLoggedChanges; ++i) {
            const RowChange& change = result.changed[i];
            log_.Info(std::string("  ") + change.kind + " " + Tables()[change.table].name + " " +
                      std::to_string(change.id) + " \"" + Harmless(change.key) + "\"");
        }
    }
}

// --- looking ---------------------------------------------------------------------------------------------------------

ParamListHolder ConfigService::AnswerListRows(const ParamListHolder& request) const {
    const std::string name = GetText(request, "table");
    const Table* table = FindTable(name);
    if (table == nullptr) {
        return Refusal(AdminProtocol::ResultRefused, "", name, "", "is no table of this service");
    }
    std::vector<ParamListHolder> lists;
    if (VXParamInfo(request.Get(), "key") != nullptr) {
        const std::string key = GetText(request, "key");
        Row row;
        if (!store_.FindRow(*table, key, row)) {
            return Refusal(AdminProtocol::ResultNotFound, table->name, key, "", "does not exist");
        }
        lists.push_back(RowToList(*table, row));
    } else {
        for (const Row& row : store_.Rows(*table)) lists.push_back(RowToList(*table, row));
    }
    ParamListHolder reply = Reply(AdminProtocol::ResultOk);
    SetLists(reply, "rows", lists);
    return reply;
}

ParamListHolder ConfigService::AnswerStatus(VX::SessionId asking) const {
    ParamListHolder reply = Reply(AdminProtocol::ResultOk);
    VXSetStringValue(reply.Get(), "version", version_.c_str());
    VXSetStringValue(reply.Get(), "database", database_.c_str());
    VXSetStringValue(reply.Get(), "started", started_.c_str());
    VXSetInt64Value(reply.Get(), "transaction", store_.LastTransaction());
    ParamListHolder tables;
    tables.NewList();
    for (const Table& table : Tables()) {
        VXSetInt32Value(tables.Get(), table.name, static_cast<i32>(store_.Count(table)));
    }
    VXSetHandleValue(reply.Get(), "tables", tables.Get());
    std::vector<ParamListHolder> peers;
    Platform::LockGuard<Platform::Mutex> guard(sessionsLock_);
    for (const auto& [id, session] : sessions_) {
        ParamListHolder peer;
        peer.NewList();
        VXSetInt64Value(peer.Get(), "session", static_cast<i64>(id));
        VXSetStringValue(peer.Get(), "user", session.user.c_str());
        VXSetStringValue(peer.Get(), "remote", session.remote.c_str());
        VXSetStringValue(peer.Get(), "since", session.since.c_str());
        VXSetInt32Value(peer.Get(), "own", id == asking ? 1 : 0);
        peers.push_back(std::move(peer));
    }
    SetLists(reply, "peers", peers);
    return reply;
}

// --- users -----------------------------------------------------------------------------------------------------------

ParamListHolder ConfigService::AnswerListUsers() const {
    std::vector<ParamListHolder> lists;
    for (const User& user : users_.List()) {
        ParamListHolder list;
        list.NewList();
        VXSetStringValue(list.Get(), "name", user.name.c_str());
        VXSetStringValue(list.Get(), "role", RoleName(user.role));
        lists.push_back(std::move(list));
    }
    ParamListHolder reply = Reply(AdminProtocol::ResultOk);
    SetLists(reply, "users", lists);
    return reply;
}

ParamListHolder ConfigService::AnswerUserCall(const std::string& user, u32 number, const ParamListHolder& request) {
    const std::string name = GetText(request, "name");
    const std::string password = GetText(request, "password");
    const bool hasPassword = VXParamInfo(request.Get(), "password") != nullptr;
    const bool hasRole = VXParamInfo(request.Get(), "role") != nullptr;
    Role role = Role::Reader;
    if (hasRole && !ParseRole(GetText(request, "role"), role)) {
        return Refusal(AdminProtocol::ResultRefused, kUserTable, name, "role",
                       "is neither admin nor reader; give one of the two");
    }
    UserResult result;
    const char* what = "removed";
    if (number == AdminProtocol::CallAddUser) {
        what = "added";
        result = users_.Add(name, role, password);
    } else if (number == AdminProtocol::CallSetUser) {
        what = "changed";
        if (!hasRole && !hasPassword) {
            return Refusal(AdminProtocol::ResultRefused, kUserTable, name, "",
                           "is to be changed, but nothing is named; give a "
                           "role or a password");
        }
        // What the password can be refused for is looked at first, so that all of it happens or nothing.
        if (const std::string reason = WhyPasswordRefused(password); hasPassword && !reason.empty()) {
            return Refusal(AdminProtocol::ResultRefused, kUserTable, name, "password", reason);
        }
        if (hasRole) result = users_.SetRole(name, role);
        if (hasPassword && result.outcome == UserOutcome::Done) result = users_.SetPassword(name, password);
    } else {
        result = users_.Remove(name);
    }
    if (result.outcome != UserOutcome::Done) {
        return Refusal(ResultWord(result.outcome), kUserTable, name, result.field, result.text);
    }
    log_.Info("User \"" + Harmless(name) + "\" " + what + " by user \"" + Harmless(user) + "\"");
    return Reply(AdminProtocol::ResultOk);
}

}  // namespace Orv
