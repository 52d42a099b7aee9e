// One stream of sound to all clients of a pipe.
#pragma once

#include <array>
#include <memory>
#include <optional>
#include <vector>

#include "Platform/NamedPipe.h"
#include "Tools/orv-publish/Messages.h"

namespace Orv {

// Keeps the last seconds of the stream in a ring, from which each client is sent what it has not had yet; nobody waits
// for anybody. A new client begins a quarter of a second back, so that it has something in hand, but never before the
// last gap: old sound is not played again. A client that has not taken a whole second loses what it has not had and
// goes on like a new one, in whole samples; it is never cut off. One thread; nothing here waits.
class Broadcast {
public:
    static constexpr u64 HeadStartBytes = 4000;
    static constexpr u64 MostLagBytes = 16000;
    static constexpr u64 MostPushBytes = 8000;

    // The endpoint must be serving: `waiting` is its first instance.
    Broadcast(std::unique_ptr<Platform::IPipeEndpoint> endpoint, std::unique_ptr<Platform::IPipeInstance> waiting,
              TellFunction tell);
    // The name goes before the clients do, so that none of them finds it again.
    ~Broadcast() { endpoint_.reset(); }
    Broadcast(const Broadcast&) = delete;
    Broadcast& operator=(const Broadcast&) = delete;

    // Takes in the clients that have come.
    void Accept();
    // Appends whole samples, MostPushBytes at most, to the stream.
    void Push(const u8* bytes, u64 count);
    // The stream has stood still: what comes next is new sound.
    void MarkGap() { freshFrom_ = head_; }
    // Sends everybody what he can take now, and lets go of those who have left.
    void Send();
    // The same when the stream has ended: gives up the name, and lets go of those who have had everything, so that they
    // see the end. True when nobody is left. Only this may follow it.
    bool Finish();
    // Says, at most once a second unless `always`, how much sound clients have lost.
    void TellLosses(bool always);
    u64 Clients() const { return clients_.size(); }

private:
    struct Client {
        std::unique_ptr<Platform::IPipeInstance> pipe;
        u64 position;            // in bytes of the stream
        std::optional<u8> half;  // the rest of a sample, sent before anything else
    };

    u64 StartOfNew() const;
    void DropLag(Client& client);
    // False when the client has left.
    bool SendTo(Client& client);
    void TellOnce(const std::string& text);

    std::unique_ptr<Platform::IPipeEndpoint> endpoint_;
    const TellFunction tell_;
    std::unique_ptr<Platform::IPipeInstance> waiting_;
    std::vector<Client> clients_;
    std::array<u8, 32768> ring_{};  // byte n of the stream lies at n modulo its size
    u64 head_ = 0;
    u64 freshFrom_ = 0;
    u64 lost_ = 0;
    u64 lossTold_ = 0;  // steady milliseconds
    bool failureTold_ = false;
};

}  // namespace Orv
