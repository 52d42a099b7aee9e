// The connection to a named pipe.
#pragma once

#include <memory>
#include <string>

#include "Platform/NamedPipe.h"
#include "Projects/Common/VoIPFileEngine/IPipeTransport.h"

namespace Orv {

// `name` is a path as in "\\.\pipe\radio". On any other host than "." there is nothing to be found.
class PipeTransport : public IPipeTransport {
public:
    explicit PipeTransport(std::string name);
    ~PipeTransport() override;
    PipeTransport(const PipeTransport&) = delete;
    PipeTransport& operator=(const PipeTransport&) = delete;

    bool IsOpen() override { return handle_ != nullptr; }
    bool Connect(bool forWriting) override;
    const char* GetName() override { return name_.c_str(); }
    void Close() override;
    i32 Read(const std::atomic<bool>* stop, void* buffer, u64 size, u32 timeoutMs,
             Platform::SystemError* sysError) override;
    u64 Write(const void* buffer, u64 size) override;
    bool WaitInstance(u32 timeoutMs) override;

private:
    // Behind "\\.\pipe\"; empty when the path is no local pipe's, and then it is waited for in vain.
    static std::string LocalName(const std::string& path);
    i32 Lost();

    const std::string name_;
    const std::string localName_;
    std::unique_ptr<Platform::IPipeClient> handle_;
    // The place that WaitInstance() found. To see room for one more client is to take it, so it is kept for Connect().
    std::unique_ptr<Platform::IPipeClient> place_;
    bool writable_ = false;
};

}  // namespace Orv
