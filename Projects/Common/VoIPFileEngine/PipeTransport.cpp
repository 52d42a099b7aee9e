#include "Projects/Common/VoIPFileEngine/PipeTransport.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "Platform/Path.h"
#include "Platform/Thread.h"
#include "Projects/Common/VoIPFileEngine/ContentName.h"
#include "ServiceProcess/LogAdapters.h"

namespace Orv {
namespace {

constexpr char kLogSource[] = "VoIPFileEngine/PipeStream";

using Outcome = Platform::IPipeClient::Outcome;

// The log tells a connection as a pointer.
const void* AsPointer(Platform::PipeId id) {
    return reinterpret_cast<const void*>(static_cast<std::uintptr_t>(id));
}

}  // namespace

PipeTransport::PipeTransport(std::string name) : name_(std::move(name)), localName_(LocalName(name_)) {}

PipeTransport::~PipeTransport() {
    PipeTransport::Close();
}

std::string PipeTransport::LocalName(const std::string& path) {
    const bool local = Platform::LowerAscii(path.substr(0, LocalPipes.size())) == LocalPipes;
    return local ? path.substr(LocalPipes.size()) : std::string();
}

bool PipeTransport::Connect(bool forWriting) {
    if (IsOpen()) return true;
    Platform::SystemError error = 0;
    handle_ = place_ != nullptr ? std::move(place_) : Platform::ConnectPipe(localName_, error);
    writable_ = forWriting;
    return IsOpen();
}

void PipeTransport::Close() {
    if (!IsOpen()) return;
    ORV_ENGINE_LOG(LogInfoSink, "closing '" << name_ << '\'');
    handle_ = nullptr;
}

i32 PipeTransport::Lost() {
    Close();
    return -1;
}

i32 PipeTransport::Read(const std::atomic<bool>* stop, void* buffer, u64 size, u32 timeoutMs,
                        Platform::SystemError* sysError) {
    *sysError = 0;
    if (!IsOpen()) return -1;
    u64 bytes = 0;
    if (timeoutMs == 0) {
        if (!handle_->Available(bytes)) return 0;
        size = std::min(size, bytes & ~u64{1});
        if (size == 0) return 0;  // nothing, or half a sample
    }
    Platform::SystemError error = 0;
    Outcome outcome = handle_->Read(buffer, size, 0, bytes, error);
    if (outcome == Outcome::Closed) return Lost();  // broken before the read began: that has no error to tell
    while (outcome == Outcome::TimedOut) {
        outcome = handle_->Read(buffer, size, timeoutMs, bytes, error);
        if (outcome == Outcome::TimedOut && stop->load(std::memory_order_acquire)) {
            ORV_ENGINE_LOG(LogErrorSink, "wait timeout:" << name_ << " - " << AsPointer(handle_->Id()));
            return Lost();
        }
    }
    if (outcome == Outcome::Data) return static_cast<i32>(bytes);
    *sysError = error != 0 ? error : Platform::PipeBrokenError();
    ORV_ENGINE_LOG(LogErrorSink, "read failed:" << name_ << " - " << AsPointer(handle_->Id()) << ":ready=" << bytes
                                                << ", error=" << *sysError);
    return Lost();
}

u64 PipeTransport::Write(const void* buffer, u64 size) {
    return IsOpen() && writable_ ? handle_->Write(buffer, size) : 0;
}

bool PipeTransport::WaitInstance(u32 timeoutMs) {
    Platform::SystemError error = 0;
    if (place_ == nullptr) place_ = Platform::ConnectPipeWithin(localName_, timeoutMs, error);
    if (place_ != nullptr) return true;
    // Only the wait for a busy server has taken its time.
    if (error != Platform::PipeBusyError()) Platform::SleepMilliseconds(timeoutMs);
    return false;
}

}  // namespace Orv
