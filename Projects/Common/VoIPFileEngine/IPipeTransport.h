// The connection to a pipe that another process serves.
#pragma once

#include <atomic>

#include "Platform/SystemError.h"
#include "ServiceProcess/MTReferencedTypeBase.h"

namespace Orv {

// Belongs to one thread at a time.
class IPipeTransport : public MTObjects::MTReferencedTypeBase {
public:
    // Whether there is a connection. A loss is found out by Read() only.
    virtual bool IsOpen() = 0;
    // Connects if there is no connection yet; never waits. IsOpen() after it.
    virtual bool Connect(bool forWriting) = 0;
    // The pipe's path. Lives as long as the transport.
    virtual const char* GetName() = 0;
    // Ends the connection, if there is one.
    virtual void Close() = 0;
    // Waits for bytes, however long that takes: `timeoutMs` is how often `stop` is looked at meanwhile, and a set one
    // ends the wait with -1. With `timeoutMs` 0 it takes what is there, in whole samples.
    // The number of bytes read, up to `size`; 0 for nothing; -1 for a lost connection, which is then closed.
    // `*sysError`: with -1 the system error of a read that failed while it waited, 0 for every other end.
    virtual i32 Read(const std::atomic<bool>* stop, void* buffer, u64 size, u32 timeoutMs,
                     Platform::SystemError* sysError) = 0;
    // Blocks until the server has taken all or takes nothing any more. The number of bytes taken.
    virtual u64 Write(const void* buffer, u64 size) = 0;
    // True when the next Connect() will find room. Waits for that while all of the server's instances are busy, and
    // answers false after `timeoutMs`; in all other cases too false takes that long.
    virtual bool WaitInstance(u32 timeoutMs) = 0;

protected:
    bool TestValid() const override { return true; }
};

}  // namespace Orv
