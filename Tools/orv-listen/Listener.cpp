#include "Tools/orv-listen/Listener.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "Platform/Clock.h"
#include "Platform/NamedPipe.h"
#include "Platform/Terminal.h"
#include "Platform/Thread.h"
#include "Tools/orv-listen/Level.h"
#include "Tools/orv-listen/Sinks.h"
#include "Tools/orv-listen/SoundQueue.h"

namespace Orv {
namespace {

constexpr u64 QueueBytes = 32000;  // two seconds
constexpr u32 ReadTimeoutMs = 100;
constexpr u32 MeterPeriodMs = 125;
constexpr u32 PlainMeterPeriodMs = 1000;
constexpr u32 FirstRetryMs = 100;
constexpr u32 LastRetryMs = 2000;
constexpr u32 LossReportMs = 1000;

// Shows the level on standard error: a live bar on a terminal, a plain line a second elsewhere.
class MeterDisplay {
public:
    explicit MeterDisplay(std::string name)
        : name_(std::move(name)), live_(Platform::IsTerminal(Platform::StandardStream::Error)) {}

    void Add(const u8* bytes, u64 count) {
        for (u64 i = 0; i < count; ++i) {
            if (!haveLow_) {
                low_ = bytes[i];
                haveLow_ = true;
                continue;
            }
            haveLow_ = false;
            meter_.Add(static_cast<i16>(static_cast<u16>(low_ | (bytes[i] << 8))));
        }
    }

    // A connection that ends in the middle of a sample starts anew with a whole one.
    void Restart() { haveLow_ = false; }

    void ShowWhenDue() {
        const u64 now = Platform::SteadyMilliseconds();
        if (now - last_ < (live_ ? MeterPeriodMs : PlainMeterPeriodMs)) return;
        last_ = now;
        if (live_) {
            std::fprintf(stderr, "\r\033[K%-16s [%s] %6.1f dB  peak %6.1f dB", name_.c_str(),
                         LevelBar(meter_.RmsDb(), meter_.PeakDb(), 40).c_str(), meter_.RmsDb(), meter_.PeakDb());
        } else {
            std::fprintf(stderr, "%s: level %.1f dB, peak %.1f dB, %.3f s of sound\n", name_.c_str(), meter_.RmsDb(),
                         meter_.PeakDb(), static_cast<double>(meter_.Count()) / 8000.0);
        }
        meter_.Clear();
    }

    void End() {
        if (live_) std::fputc('\n', stderr);
    }

private:
    const std::string name_;
    const bool live_;
    LevelMeter meter_;
    u64 last_ = Platform::SteadyMilliseconds();
    u8 low_ = 0;
    bool haveLow_ = false;
};

// Tells on standard error, at most once a second, how much sound the output has cost.
class LossReport {
public:
    void Add(u64 bytes) { lost_ += bytes; }
    void ShowWhenDue(bool always) {
        const u64 now = Platform::SteadyMilliseconds();
        if (lost_ == 0 || (!always && now - last_ < LossReportMs)) return;
        last_ = now;
        std::fprintf(stderr, "orv-listen: the output is too slow; dropped %.3f s of the oldest sound\n",
                     static_cast<double>(lost_) / 16000.0);
        lost_ = 0;
    }

private:
    u64 lost_ = 0;
    u64 last_ = 0;
};

struct Output {
    std::vector<std::unique_ptr<ISoundSink>> sinks;
    SoundQueue queue{QueueBytes};
    std::atomic<bool> failed{false};
    std::atomic<bool> finished{false};
};

void RunOutput(Output& output) {
    std::vector<u8> bytes;
    while (output.queue.Take(bytes)) {
        for (const auto& sink : output.sinks) {
            if (sink->Write(bytes.data(), bytes.size())) continue;
            output.failed.store(true, std::memory_order_release);
            output.finished.store(true, std::memory_order_release);
            return;
        }
    }
    for (const auto& sink : output.sinks) {
        if (!sink->Finish()) output.failed.store(true, std::memory_order_release);
    }
    output.finished.store(true, std::memory_order_release);
}

class Session {
public:
    Session(const ListenOptions& options, std::atomic<bool>& stop, Output& output)
        : options_(options), stop_(stop), output_(output), meter_(options.name) {
        if (options.seconds > 0.0) wanted_ = static_cast<u64>(std::llround(options.seconds * 8000.0)) * 2;
    }

    i32 Run() {
        u32 retry = FirstRetryMs;
        bool told = false;
        while (!Stopped()) {
            Platform::SystemError error = 0;
            auto pipe = Platform::ConnectPipe(options_.name, error);
            if (pipe == nullptr) {
                if (!options_.follow) return TellNoFeed(error);
                if (!told) {
                    std::fprintf(stderr, "orv-listen: waiting for the feed '%s' (%s)\n", options_.name.c_str(),
                                 Platform::SystemErrorText(error).c_str());
                }
                told = true;
                Platform::SleepMilliseconds(retry);
                retry = std::min(retry * 2, LastRetryMs);
                continue;
            }
            if (told) std::fprintf(stderr, "orv-listen: connected to '%s'\n", options_.name.c_str());
            told = false;
            retry = FirstRetryMs;
            Drain(*pipe);
            if (Complete()) break;
            if (!options_.follow) break;
        }
        meter_.End();
        if (output_.failed.load(std::memory_order_acquire)) return ListenOutputFailed;
        if (wanted_ != 0 && !Complete() && !stop_.load(std::memory_order_relaxed)) {
            std::fprintf(stderr, "orv-listen: the feed '%s' ended after %.3f s of sound\n", options_.name.c_str(),
                         static_cast<double>(got_) / 16000.0);
            return ListenCutOff;
        }
        return ListenDone;
    }

private:
    bool Complete() const { return wanted_ != 0 && got_ >= wanted_; }
    bool Stopped() const {
        return stop_.load(std::memory_order_relaxed) || output_.failed.load(std::memory_order_acquire);
    }

    i32 TellNoFeed(Platform::SystemError error) const {
        const std::string file = Platform::PipeFolder() + "/" + Platform::PipeFileName(options_.name);
        std::fprintf(stderr,
                     "orv-listen: nobody serves the feed '%s': %s (%s).\n"
                     "Is the service running, and is there a feed with that pipe name? "
                     "'orvctl feed list' shows them; --pipe-folder names another folder, -c another service's settings "
                     "file; --follow waits.\n",
                     options_.name.c_str(), Platform::SystemErrorText(error).c_str(), file.c_str());
        return ListenNoFeed;
    }

    void Drain(Platform::IPipeClient& pipe) {
        u8 bytes[4096];
        meter_.Restart();
        while (!Stopped() && !Complete()) {
            u64 size = sizeof bytes;
            if (wanted_ != 0) size = std::min<u64>(size, wanted_ - got_);
            u64 taken = 0;
            Platform::SystemError error = 0;
            const auto outcome = pipe.Read(bytes, size, ReadTimeoutMs, taken, error);
            if (outcome == Platform::IPipeClient::Outcome::Closed) return;
            if (outcome == Platform::IPipeClient::Outcome::Data) {
                got_ += taken;
                if (!output_.sinks.empty()) loss_.Add(output_.queue.Push(bytes, taken));
                if (options_.meter) meter_.Add(bytes, taken);
            }
            if (options_.meter) meter_.ShowWhenDue();
            loss_.ShowWhenDue(false);
        }
        loss_.ShowWhenDue(true);
    }

    const ListenOptions& options_;
    std::atomic<bool>& stop_;
    Output& output_;
    MeterDisplay meter_;
    LossReport loss_;
    u64 wanted_ = 0;  // bytes; 0: no limit
    u64 got_ = 0;
};

}  // namespace

i32 Listen(const ListenOptions& options, std::atomic<bool>& stop) {
    Output output;
    if (options.rawToStandardOutput) output.sinks.push_back(MakeStandardOutputSink());
    if (!options.wavPath.empty()) {
        std::string reason;
        auto wav = MakeWavSink(options.wavPath, reason);
        if (wav == nullptr) {
            std::fprintf(stderr, "orv-listen: cannot write '%s': %s. Name a file in a folder you may write to.\n",
                         options.wavPath.c_str(), reason.c_str());
            return ListenOutputFailed;
        }
        output.sinks.push_back(std::move(wav));
    }

    Platform::Thread writer("output", [&output] { RunOutput(output); });
    Session session(options, stop, output);
    const i32 result = session.Run();
    output.queue.Close();
    // An output that takes nothing must not keep a tool that was told to stop: it gets two seconds for what is queued.
    for (u32 waited = 0; waited < 2000 && !output.finished.load(std::memory_order_acquire); waited += 10) {
        Platform::SleepMilliseconds(10);
    }
    if (!output.finished.load(std::memory_order_acquire)) {
        std::fprintf(stderr, "orv-listen: the output took no more; its last seconds are lost\n");
        std::_Exit(ListenOutputFailed);
    }
    writer.Join();
    return result == ListenDone && output.failed.load(std::memory_order_acquire) ? i32{ListenOutputFailed} : result;
}

}  // namespace Orv
