#include "Projects/Common/VoIPFileEngine/PipeMusicBox.h"

#include "Projects/Common/VoIPFileEngine/PipeTransport.h"
#include "ServiceProcess/LogAdapters.h"

namespace Orv {
namespace {

constexpr char kLogSource[] = "VoIPFileEngine/PipeStream";

constexpr u32 kReadBytes = 2000;
constexpr u32 kReadTimeoutMilliseconds = 1000;
constexpr u32 kRetryMilliseconds = 100;

}  // namespace

IPipeMusicBox::IPipeMusicBox(const std::string& name)
    : buffer_(new ILoopBuffer), transport_(name.empty() ? nullptr : new PipeTransport(name)) {
    if (!transport_) return;
    const std::string threadName = "pipe:" + name.substr(name.rfind('\\') + 1);
    thread_ = Platform::Thread(threadName.c_str(), [this] { Run(); });
}

IPipeMusicBox::~IPipeMusicBox() {
    stop_.store(true, std::memory_order_release);
    if (thread_.Joinable()) thread_.Join();
}

void IPipeMusicBox::Run() {
    ORV_ENGINE_LOG(LogInfoSink, "Start thread for pipe '" << transport_->GetName() << '\'');
    ORV_ENGINE_LOG(LogInfoSink, "Connecting media source '" << transport_->GetName() << "'...");
    History history;
    while (!stop_.load(std::memory_order_acquire)) {
        if (transport_->IsOpen() || ConnectOrWait(history)) ReadOnce();
    }
}

bool IPipeMusicBox::ConnectOrWait(History& history) {
    const char* name = transport_->GetName();
    if (transport_->Connect(false)) {
        if (history.neverConnected) {
            history.neverConnected = false;
            ORV_ENGINE_LOG(LogInfoSink, '\'' << name << "'. Media connected");
        } else {
            ORV_ENGINE_LOG(LogInfoSink, '\'' << name << "'. Media connection restored");
        }
        return true;
    }
    if (history.firstFailure) {
        history.firstFailure = false;
        ORV_ENGINE_LOG(LogErrorSink, '\'' << name << "'. Initial connection failed. Continue Waiting...");
    }
    if (transport_->WaitInstance(kRetryMilliseconds)) {
        ORV_ENGINE_LOG(LogTraceSink, '\'' << name << "'. pipe instance available.");
    }
    return false;
}

void IPipeMusicBox::ReadOnce() {
    u8 block[kReadBytes];
    Platform::SystemError sysError = 0;
    const i32 bytes = transport_->Read(&stop_, block, sizeof block, kReadTimeoutMilliseconds, &sysError);
    if (bytes > 0) {
        buffer_->Append(block, static_cast<u64>(bytes));
        return;
    }
    if (bytes == 0) return;
    buffer_->Reset();
    const char* name = transport_->GetName();
    if (sysError == 0) {
        ORV_ENGINE_LOG(LogErrorSink, '\'' << name << "'. Connection lost. Waiting for media...");
    } else {
        ORV_ENGINE_LOG(LogErrorSink,
                       '\'' << name << "'. Connection lost. syserror=" << sysError << ". Waiting for media...");
    }
}

}  // namespace Orv
