// The Configuration service behind a listening link: answers calls, raises signals for changes. Any thread.
//
// A transaction is committed and its signal raised under one lock, so signals go out in the order of the commits, and a
// client that hears of a row reads it as it is from then on.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "ConfigService/LoginGate.h"
#include "ConfigService/ServiceLog.h"
#include "ConfigService/Store.h"
#include "ConfigService/Users.h"
#include "Platform/Sync.h"
#include "VX/Link.h"

namespace Orv {

class ConfigService : public VX::ILinkService {
public:
    // All three must outlive the service. `version` and `database` are for status replies.
    ConfigService(Store& store, Users& users, ServiceLog& log, std::string version, std::string database);

    // The server that raises signals. Changes wait until there is one, so that none goes unheard while the program
    // starts. Null takes it away; changes are then refused.
    void Attach(VX::ILinkServer* server);
    // Answers logins that wait, so that the server can stop.
    void Stop();

    // ILinkService
    std::string PeerType() const override;
    bool Authenticate(const std::string& credentials, const std::string& remote, std::string& user) override;
    void OnConnected(VX::SessionId session, const std::string& user, const std::string& remote) override;
    void OnDisconnected(VX::SessionId session) override;
    void OnFallenBehind(VX::SessionId session) override;
    VX::ParamListHolder OnCall(VX::SessionId session, u32 number, const VX::ParamListHolder& request) override;

private:
    struct Session {
        std::string user;
        std::string remote;
        std::string since;  // see UtcText()
    };

    VX::ParamListHolder AnswerRow(const VX::ParamListHolder& request) const;
    VX::ParamListHolder AnswerRows(const VX::ParamListHolder& request) const;
    VX::ParamListHolder AnswerSearch(const VX::ParamListHolder& request) const;
    VX::ParamListHolder AnswerIds(const VX::ParamListHolder& request) const;

    VX::ParamListHolder Administer(VX::SessionId session, u32 number, const VX::ParamListHolder& request);
    VX::ParamListHolder AnswerApply(const std::string& user, const VX::ParamListHolder& request);
    VX::ParamListHolder AnswerListRows(const VX::ParamListHolder& request) const;
    VX::ParamListHolder AnswerStatus(VX::SessionId session) const;
    VX::ParamListHolder AnswerListUsers() const;
    VX::ParamListHolder AnswerUserCall(const std::string& user, u32 number, const VX::ParamListHolder& request);

    void RaiseChange(const ApplyResult& result) ORV_REQUIRES(writing_);
    void LogChange(const std::string& user, const ApplyResult& result);
    Session FindSession(VX::SessionId session) const;
    // The time now: "2024-05-31T18:04:59Z".
    static std::string UtcText();

    Store& store_;
    Users& users_;
    ServiceLog& log_;
    LoginGate gate_;
    const std::string version_;
    const std::string database_;
    const std::string started_;

    Platform::Mutex writing_;  // one transaction with its signal at a time
    Platform::CondVar attached_;
    VX::ILinkServer* server_ ORV_GUARDED_BY(writing_) = nullptr;
    bool detached_ ORV_GUARDED_BY(writing_) = false;

    mutable Platform::Mutex sessionsLock_;  // innermost
    std::map<VX::SessionId, Session> sessions_ ORV_GUARDED_BY(sessionsLock_);
};

}  // namespace Orv
