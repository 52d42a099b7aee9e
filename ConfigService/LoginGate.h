// Decides who may connect, and slows down who guesses. Any thread; Check() blocks.
//
// A peer is an address without its port. Its first three wrong answers come at once; from then on it gets at most one
// a second. A right password is answered as soon as it has been looked at, and one that was right before, unchanged
// since, is known without hashing, so that no storm of wrong ones keeps a right one waiting. Only sixteen attempts of a
// peer, and 48 in all, are under way at a time; what comes on top is turned away at once and tells nothing, for it is
// not looked at. Ten minutes without a wrong attempt forgive a peer.
#pragma once

#include <array>
#include <string>
#include <unordered_map>

#include "ConfigService/PasswordCheck.h"
#include "ConfigService/ServiceLog.h"
#include "Platform/Sync.h"

namespace Orv {

class LoginGate {
public:
    // Both must outlive the gate.
    LoginGate(const IPasswordCheck& passwords, ServiceLog& log);

    static constexpr u32 MostOfPeer = 16;
    static constexpr u32 MostInAll = 48;  // a link needs more threads for logins than that

    // Whether "user:password" is right; `user` is the name in it. Wrong ones are logged and answered late.
    bool Check(const std::string& credentials, const std::string& remote, std::string& user);
    // Answers those who wait at once, with no.
    void Stop();

    // The address in `remote`: "ipv4:127.0.0.1:4711" gives "ipv4:127.0.0.1".
    static std::string PeerOf(const std::string& remote);

private:
    struct Peer {
        u32 failures = 0;
        u32 pending = 0;     // attempts not answered yet
        u64 nextAnswer = 0;  // steady milliseconds
        u64 lastFailure = 0;
        u32 turnedAway = 0;  // since the log was last told
        u64 lastTold = 0;
    };
    using Digest = std::array<unsigned char, 32>;

    bool Enter(const std::string& peer);
    void TurnAway(const std::string& peer, Peer& record) ORV_REQUIRES(mutex_);
    void Leave(const std::string& peer, bool right);
    void Forgive(u64 now) ORV_REQUIRES(mutex_);
    Digest DigestOf(const std::string& name, const std::string& password, const std::string& hash) const;
    bool IsKnown(const std::string& name, const Digest& digest);
    void Remember(const std::string& name, const Digest& digest);

    const IPasswordCheck& passwords_;
    ServiceLog& log_;
    Digest key_;  // of this process, so that what is remembered is worth nothing elsewhere
    Platform::Mutex mutex_;
    Platform::CondVar stopped_;
    bool stopping_ ORV_GUARDED_BY(mutex_) = false;
    u32 pending_ ORV_GUARDED_BY(mutex_) = 0;
    std::unordered_map<std::string, Peer> peers_ ORV_GUARDED_BY(mutex_);
    std::unordered_map<std::string, Digest> known_ ORV_GUARDED_BY(mutex_);  // by user name
};

}  // namespace Orv
