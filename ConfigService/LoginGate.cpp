#include "ConfigService/LoginGate.h"

#include <sodium.h>

#include <algorithm>
#include <exception>

#include "ConfigService/Credentials.h"
#include "Platform/Clock.h"

namespace Orv {
namespace {

constexpr u32 kFreeFailures = 3;
constexpr u64 kAnswerDistance = 1000;   // milliseconds between two wrong answers to one peer
constexpr u64 kLongestWait = 30000;     // by then the other side has given up
constexpr u64 kForgivenAfter = 600000;  // milliseconds
constexpr u64 kPeersBeforeCleaning = 256;

}  // namespace

LoginGate::LoginGate(const IPasswordCheck& passwords, ServiceLog& log) : passwords_(passwords), log_(log) {
    randombytes_buf(key_.data(), key_.size());
}

bool LoginGate::Check(const std::string& credentials, const std::string& remote, std::string& user) {
    std::string password;
    std::string hash;
    const bool wellFormed = SplitCredentials(credentials, user, password) && user.size() <= MaxUserNameBytes &&
                            password.size() <= MaxPasswordBytes;
    Digest digest{};
    try {
        if (wellFormed) {
            hash = passwords_.FindHash(user);
            digest = DigestOf(user, password, hash);
        }
    } catch (const std::exception& error) {
        log_.Error(error.what());
        return false;
    }
    if (wellFormed && !hash.empty() && IsKnown(user, digest)) return true;

    const std::string peer = PeerOf(remote);
    if (!Enter(peer)) return false;
    const bool right = wellFormed && passwords_.Verify(hash, password);
    if (right) {
        Remember(user, digest);
    } else {
        log_.Warn("Wrong credentials from " + Harmless(remote) + " for user \"" + Harmless(user) + "\"");
    }
    Leave(peer, right);
    sodium_memzero(password.data(), password.size());
    return right;
}

// Whether the attempt is looked at; then it must leave.
bool LoginGate::Enter(const std::string& peer) {
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    if (stopping_) return false;
    if (peers_.size() >= kPeersBeforeCleaning) Forgive(Platform::SteadyMilliseconds());
    Peer& record = peers_[peer];
    if (record.pending >= MostOfPeer || pending_ >= MostInAll) {
        TurnAway(peer, record);
        return false;
    }
    ++record.pending;
    ++pending_;
    return true;
}

// A storm takes one line of the log a second.
void LoginGate::TurnAway(const std::string& peer, Peer& record) {
    ++record.turnedAway;
    const u64 now = Platform::SteadyMilliseconds();
    if (record.lastTold != 0 && now - record.lastTold < kAnswerDistance) return;
    log_.Warn("Too many logins at a time from " + Harmless(peer) +
              ", turned away: " + std::to_string(record.turnedAway));
    record.turnedAway = 0;
    record.lastTold = now;
}

void LoginGate::Leave(const std::string& peer, bool right) {
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    const u64 now = Platform::SteadyMilliseconds();
    // The record stays while an attempt is pending, so the reference is good across the wait; only a rehash could move
    // it, and an unordered_map's elements do not move.
    Peer& record = peers_[peer];
    if (!right) {
        if (now - record.lastFailure >= kForgivenAfter) record.failures = 0;
        record.lastFailure = now;
        const bool slowed = ++record.failures > kFreeFailures;
        const u64 turn = slowed ? std::max(now, record.nextAnswer) : now;
        const u64 answer = std::min(turn, now + kLongestWait);
        record.nextAnswer = turn + kAnswerDistance;
        for (u64 time = now; time < answer && !stopping_; time = Platform::SteadyMilliseconds()) {
            stopped_.WaitFor(mutex_, static_cast<u32>(answer - time));
        }
    }
    --record.pending;
    --pending_;
}

void LoginGate::Forgive(u64 now) {
    std::erase_if(peers_, [now](const auto& entry) {
        return entry.second.pending == 0 && now - entry.second.lastFailure >= kForgivenAfter;
    });
}

void LoginGate::Stop() {
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    stopping_ = true;
    stopped_.NotifyAll();
}

std::string LoginGate::PeerOf(const std::string& remote) {
    const auto colon = remote.rfind(':');
    return remote.substr(0, colon);
}

LoginGate::Digest LoginGate::DigestOf(const std::string& name, const std::string& password,
                                      const std::string& hash) const {
    crypto_generichash_state state;
    Digest digest{};
    crypto_generichash_init(&state, key_.data(), key_.size(), digest.size());
    for (const std::string* part : {&name, &password, &hash}) {
        // With the closing NUL, which no part holds inside.
        crypto_generichash_update(&state, reinterpret_cast<const unsigned char*>(part->c_str()), part->size() + 1);
    }
    crypto_generichash_final(&state, digest.data(), digest.size());
    return digest;
}

bool LoginGate::IsKnown(const std::string& name, const Digest& digest) {
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    const auto found = known_.find(name);
    return found != known_.end() && sodium_memcmp(found->second.data(), digest.data(), digest.size()) == 0;
}

void LoginGate::Remember(const std::string& name, const Digest& digest) {
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    known_[name] = digest;
}

}  // namespace Orv
