// A listening TCP port. Whoever serves it gets the connections one by one. The port keeps off what strangers could do
// before anybody knows who they are: who comes while the process runs short of descriptors is turned away at once, so
// that no number of connections can use them up, and who sends more or stays longer than a stranger may is cut off,
// whatever his bytes make of the protocol behind the port.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Platform/SystemError.h"
#include "Platform/Types.h"

namespace Platform {

// What a connection may do until Admit() names it.
struct StrangerLimits {
    u64 bytes = 256u << 10;     // that it sends; looked at as they come, by when whoever serves it may have read some
    u32 milliseconds = 60'000;  // that it stays
};

class PortListener {
public:
    // A process with a listening port opens that many descriptors, if the system does not allow it fewer; a connection
    // that would not leave `SpareDescriptors` of them free, or a quarter where there are few, is closed. A stranger
    // takes two.
    static constexpr u32 MostDescriptors = 1024;
    static constexpr u32 SpareDescriptors = 32;

    // Listens on every address of `host`, a name or a number, with one port; port 0 is one that is free on all of them.
    // An address for which a name stands twice counts once. From here on who connects waits for Start(). Null with the
    // system's error when none of the addresses can be had or one is in use. Waits for the look-up of a name.
    static std::unique_ptr<PortListener> Open(const std::string& host, u32 port, SystemError& error);
    // The same for all addresses of several hosts.
    static std::unique_ptr<PortListener> Open(const std::vector<std::string>& hosts, u32 port, SystemError& error);
    ~PortListener();  // closes
    PortListener(const PortListener&) = delete;
    PortListener& operator=(const PortListener&) = delete;

    // The port, never 0.
    u32 Port() const;
    // A connection's descriptor, non-blocking, which belongs to the callee from then on. Must return soon.
    using Connected = std::function<void(int descriptor)>;
    // Takes connections on a thread of that name. Once. Throws std::system_error when there is no thread to be had.
    void Start(const char* threadName, StrangerLimits limits, Connected connected);
    // The connection of that peer, "127.0.0.1:4711" or "[::1]:4711", is no stranger's from here on. Any thread.
    void Admit(const std::string& peer);
    // Takes no more and watches nobody any longer; the thread has ended when it returns. Repeatable, one thread at a
    // time.
    void Close();

private:
    struct Impl;
    explicit PortListener(std::unique_ptr<Impl> impl);

    std::unique_ptr<Impl> impl_;
};

}  // namespace Platform
