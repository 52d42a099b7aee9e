// What the operations of VX.h stand on: connections, their streams of events, and the thread that serves them.
#pragma once

#include <deque>
#include <list>
#include <map>
#include <memory>
#include <string>

#include "Platform/Sync.h"
#include "Platform/Thread.h"
#include "VX/VX.h"

namespace VX {

// A connection that has more events waiting than this is ended.
inline constexpr u64 MaxWaitingBytes = 64u << 20;

// The process's one library. Any thread. Its mutex is never held while a link, a listener or a handler is called.
//
// The events in front of a loss are delivered first, as far as they can be: the loss is told when the stream is empty
// or its first event waits for something. Calls fail from the loss itself on.
class Runtime {
public:
    // Never destroyed, since static objects of the program may still call the library while it ends.
    static Runtime& Instance();

    void SetConnector(ILinkConnector* connector);
    u32 Initialize(u64 value1, u64 value2);
    void Shutdown();

    void SetAuthFailedListener(VXFailureCallback listener);
    void SetConnectListener(VXConnectCallback listener);
    void SetDisconnectListener(VXDisconnectCallback listener);
    void SetUnknownConnectListener(VXFailureCallback listener);

    u32 Connect(const std::string& host, u32 port, const std::string& credentials, std::string& name);
    void Disconnect(const std::string& application);
    u32 RegisterSlot(u32 slot, VXDispatcher dispatcher, void* user);
    void ConnectSignal(const std::string& application, const std::string& signal, u32 slot);
    void DropOtherSignals(const std::string& application);
    ParamListHolder Call(const std::string& application, u32 number, const ParamListHolder& request);

private:
    enum class State : u8 { Stopped, Running, Stopping };

    // One connection's end of its link. The link is made before any other thread can find it.
    class Connection : public ILinkEvents {
    public:
        explicit Connection(Runtime& runtime) : runtime_(runtime) {}
        void OnSignal(const std::string& name, ParamListHolder event) override;
        void OnClosed() override;

        std::unique_ptr<ILink> link;

    private:
        Runtime& runtime_;
    };

    struct Event {
        std::string signal;
        ParamListHolder list;
        u64 bytes;
    };

    // What the runtime knows of one connection.
    struct Peer {
        std::shared_ptr<Connection> connection;
        std::string name;        // empty while the connection is being made
        bool announced = false;  // the connect listener has returned, events and loss may be told
        bool lost = false;       // no more events come, calls fail
        std::deque<Event> events;
        u64 waitingBytes = 0;
        std::map<std::string, u32> signals;
        bool dropsOthers = false;  // events of any other signal are dropped instead of kept
    };
    using Peers = std::list<Peer>;

    struct Slot {
        VXDispatcher dispatcher = nullptr;
        void* user = nullptr;
    };

    // One thing for the library's thread to do.
    struct Work {
        enum class Kind : u8 { Stop, Event, Loss, AuthFailed, UnknownConnect };
        Kind kind = Kind::Stop;
        ParamListHolder event;
        Slot slot;
        Peers lost;
        std::string remote;
    };

    class Inside;

    Runtime() = default;
    bool Enter();
    void Leave();

    void Enqueue(const Connection& connection, const std::string& signal, ParamListHolder event);
    void MarkLost(const Connection& connection);
    u32 Introduce(Peers::iterator peer, PeerInfo& info, std::unique_ptr<ILink> link, const std::string& remote,
                  std::string& name);
    void Announce(const std::shared_ptr<Connection>& connection, const PeerInfo& info, const std::string& name);
    Peers::iterator FindByName(const std::string& name) ORV_REQUIRES(mutex_);
    Peers::iterator FindByConnection(const Connection& connection) ORV_REQUIRES(mutex_);
    std::string UniqueName(const std::string& wanted) ORV_REQUIRES(mutex_);

    void RunEvents();
    Work TakeWork();
    bool FindWork(Work& work) ORV_REQUIRES(mutex_);
    bool TakeEvent(Peer& peer, Work& work) ORV_REQUIRES(mutex_);
    void Deliver(const Work& work);
    void TellLoss(Work& work);
    void TellFailure(const Work& work);

    Platform::Mutex mutex_;
    Platform::CondVar changed_;
    State state_ ORV_GUARDED_BY(mutex_) = State::Stopped;
    u32 inside_ ORV_GUARDED_BY(mutex_) = 0;  // threads between Enter() and Leave()
    ILinkConnector* connector_ ORV_GUARDED_BY(mutex_) = nullptr;
    u64 value1_ ORV_GUARDED_BY(mutex_) = 0;
    u64 value2_ ORV_GUARDED_BY(mutex_) = 0;
    VXFailureCallback authFailed_ ORV_GUARDED_BY(mutex_) = nullptr;
    VXConnectCallback connected_ ORV_GUARDED_BY(mutex_) = nullptr;
    VXDisconnectCallback disconnected_ ORV_GUARDED_BY(mutex_) = nullptr;
    VXFailureCallback unknownConnect_ ORV_GUARDED_BY(mutex_) = nullptr;
    Peers peers_ ORV_GUARDED_BY(mutex_);  // the one served last stands last
    std::map<u32, Slot> slots_ ORV_GUARDED_BY(mutex_);
    std::deque<Work> failures_ ORV_GUARDED_BY(mutex_);
    Platform::Thread thread_;  // of the thread that initializes and shuts down
};

}  // namespace VX
