// A live source: the connection to its pipe, the thread that reads it, and the ring that all its readers play from.
#pragma once

#include <atomic>
#include <string>

#include "Platform/Thread.h"
#include "Projects/Common/VoIPFileEngine/ILoopBuffer.h"
#include "Projects/Common/VoIPFileEngine/IPipeTransport.h"

namespace Orv {

// Keeps connecting for as long as it lives, and reads as fast as the source sends. A loss begins the ring anew. Valid
// unless it was built without a name.
class IPipeMusicBox : public MTObjects::MTReferencedTypeBase {
public:
    // Starts the thread ("pipe:<name>"), if there is a name. Throws std::system_error when the system has none to give.
    explicit IPipeMusicBox(const std::string& name);
    // Ends the thread and waits for it: 100 ms at most while it tries to connect, a second while a connected source is
    // silent. Must not run on that thread, which therefore never holds the box.
    ~IPipeMusicBox() override;
    IPipeMusicBox(const IPipeMusicBox&) = delete;
    IPipeMusicBox& operator=(const IPipeMusicBox&) = delete;

    // The ring; never null. May outlive the box, for a frame that is still in use.
    const MTObjects::THolder<ILoopBuffer>& Buffer() const { return buffer_; }

protected:
    bool TestValid() const override { return transport_.IsValid(); }

private:
    // What the thread remembers for its messages. `firstFailure` counts by itself: the first failed attempt may come
    // after a success.
    struct History {
        bool firstFailure = true;
        bool neverConnected = true;
    };

    void Run();
    // True when there is a connection now; otherwise it has waited.
    bool ConnectOrWait(History& history);
    void ReadOnce();

    const MTObjects::THolder<ILoopBuffer> buffer_;
    const MTObjects::THolder<IPipeTransport> transport_;  // the thread's
    std::atomic<bool> stop_{false};
    Platform::Thread thread_;
};

}  // namespace Orv
