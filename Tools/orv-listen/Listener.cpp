#include "Tools/orv-listen/Listener.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "Platform/Clock.h"
#include "Platform/Files.h"
#include "Platform/NamedPipe.h"
#include "Platform/Thread.h"
#include "Tools/orv-listen/MeterDisplay.h"
#include "Tools/orv-listen/Samples.h"
#include "Tools/orv-listen/Sinks.h"
#include "Tools/orv-listen/SoundQueue.h"
#include "Tools/orv-listen/SteadyPace.h"

namespace Orv {
namespace {

constexpr u64 QueueBytes = 32000;  // two seconds
constexpr u32 ReadTimeoutMs = 100;
constexpr u32 TickMs = 20;  // how often silence is looked for while following
constexpr u32 FirstRetryMs = 100;
constexpr u32 LastRetryMs = 2000;
constexpr u32 LossReportMs = 1000;

// What to do about a feed that cannot be connected to.
std::string Remedy(Platform::SystemError error) {
    if (error == ENOENT && !Platform::PathExists(Platform::PipeFolder())) {
        return "There is no folder " + Platform::PipeFolder() +
               ". Start the service, or name the folder of its pipes with --pipe-folder or its settings file with "
               "--config; --follow waits.";
    }
    switch (error) {
        case EACCES:
            return "Become a member of the group that owns the folder of the pipes, as root with 'adduser USER "
                   "orv-audio', and log in anew; a media server is restarted.";
        case ECONNREFUSED:
            return "What stands there is what a killed service has left. Start the service.";
        default:
            return "Is the service running, and is there a feed with that pipe name? 'orvctl feed list' shows them; "
                   "--pipe-folder names another folder, --config another service's settings file; --follow waits.";
    }
}

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
    std::atomic<SinkState> state{SinkState::Open};
    std::atomic<bool> finished{false};

    bool IsOpen() const { return state.load(std::memory_order_acquire) == SinkState::Open; }
    // Whether all took it. The first that did not decides.
    template <typename Step>
    bool Each(Step step) {
        for (const auto& sink : sinks) {
            const SinkState now = step(*sink);
            if (now == SinkState::Open) continue;
            state.store(now, std::memory_order_release);
            return false;
        }
        return true;
    }
};

void RunOutput(Output& output) {
    std::vector<u8> bytes;
    bool open = output.Each([](ISoundSink& sink) { return sink.Begin(); });
    while (open && output.queue.Take(bytes)) {
        open = output.Each([&](ISoundSink& sink) { return sink.Write(bytes.data(), bytes.size()); });
    }
    if (open) output.Each([](ISoundSink& sink) { return sink.Finish(); });
    output.finished.store(true, std::memory_order_release);
}

class Session {
public:
    Session(const ListenOptions& options, std::atomic<bool>& stop, Output& output)
        : options_(options),
          stop_(stop),
          output_(output),
          meter_(options.name),
          pace_(Platform::SteadyMilliseconds()),
          fills_(options.follow && !output.sinks.empty()) {
        if (options.seconds > 0.0) wanted_ = static_cast<u64>(std::llround(options.seconds * 8000.0)) * 2;
    }

    i32 Run() {
        u32 retry = FirstRetryMs;
        bool told = false;
        while (!Stopped() && !Complete()) {
            Platform::SystemError error = 0;
            auto pipe = Platform::ConnectPipe(options_.name, error);
            if (pipe == nullptr) {
                if (!options_.follow) return TellNoFeed(error);
                if (!told) {
                    std::fprintf(stderr, "orv-listen: waiting for the feed '%s' (%s)\n", options_.name.c_str(),
                                 Platform::SystemErrorText(error).c_str());
                    if (error == EACCES) std::fprintf(stderr, "%s\n", Remedy(error).c_str());
                }
                told = true;
                Wait(retry);
                retry = std::min(retry * 2, LastRetryMs);
                continue;
            }
            if (told) std::fprintf(stderr, "orv-listen: connected to '%s'\n", options_.name.c_str());
            told = false;
            const u64 before = heard_;
            Drain(*pipe);
            if (!options_.follow) break;
            pipe.reset();
            // One that takes clients only to drop them is away as well.
            if (heard_ == before) Wait(retry);
            retry = heard_ == before ? std::min(retry * 2, LastRetryMs) : FirstRetryMs;
        }
        meter_.End();
        return Result();
    }

private:
    bool Complete() const { return wanted_ != 0 && got_ >= wanted_; }
    bool Stopped() const { return stop_.load(std::memory_order_relaxed) || !output_.IsOpen() || ReaderGone(); }
    bool ReaderGone() const {
        return std::any_of(output_.sinks.begin(), output_.sinks.end(),
                           [](const auto& sink) { return sink->ReaderGone(); });
    }

    i32 Result() const {
        if (output_.state.load(std::memory_order_acquire) == SinkState::Failed) return ListenOutputFailed;
        if (wanted_ == 0 || Complete() || Stopped()) return ListenDone;
        std::fprintf(stderr, "orv-listen: the feed '%s' ended after %.3f s of sound\n", options_.name.c_str(),
                     static_cast<double>(got_) / kBytesPerSecond);
        return ListenCutOff;
    }

    i32 TellNoFeed(Platform::SystemError error) const {
        const std::string file = Platform::PipeFolder() + "/" + Platform::PipeFileName(options_.name);
        std::fprintf(stderr, "orv-listen: %s the feed '%s': %s (%s).\n%s\n",
                     error == EACCES ? "you may not listen to" : "nobody serves", options_.name.c_str(),
                     Platform::SystemErrorText(error).c_str(), file.c_str(), Remedy(error).c_str());
        return ListenNoFeed;
    }

    void Drain(Platform::IPipeClient& pipe) {
        u8 bytes[4096];
        aligner_.Restart();
        while (!Stopped() && !Complete()) {
            u64 taken = 0;
            Platform::SystemError error = 0;
            const auto outcome = pipe.Read(bytes, sizeof bytes, fills_ ? TickMs : ReadTimeoutMs, taken, error);
            if (outcome == Platform::IPipeClient::Outcome::Closed) break;
            if (outcome == Platform::IPipeClient::Outcome::Data) {
                const std::vector<u8>& samples = aligner_.Add(bytes, taken);
                heard_ += taken;
                pace_.Delivered(samples.size());
                Deliver(samples.data(), samples.size());
            }
            FillGap();
            ShowWhenDue();
        }
        loss_.ShowWhenDue(true);
    }

    // For the time without a feed.
    void Wait(u32 milliseconds) {
        const u64 end = Platform::SteadyMilliseconds() + milliseconds;
        while (!Stopped() && !Complete()) {
            const u64 now = Platform::SteadyMilliseconds();
            if (now >= end) return;
            Platform::SleepMilliseconds(static_cast<u32>(std::min<u64>(end - now, TickMs)));
            FillGap();
            ShowWhenDue();
        }
    }

    void FillGap() {
        if (!fills_ || Complete()) return;
        const u64 missing = pace_.TakeMissing(Platform::SteadyMilliseconds());
        if (missing == 0) return;
        const std::vector<u8> silence(missing, 0);
        Deliver(silence.data(), silence.size());
    }

    void Deliver(const u8* samples, u64 count) {
        if (wanted_ != 0) count = std::min(count, wanted_ - got_);
        got_ += count;
        if (!output_.sinks.empty()) loss_.Add(output_.queue.Push(samples, count));
        if (options_.meter) meter_.Add(samples, count);
    }

    void ShowWhenDue() {
        if (options_.meter) meter_.ShowWhenDue();
        loss_.ShowWhenDue(false);
    }

    const ListenOptions& options_;
    std::atomic<bool>& stop_;
    Output& output_;
    MeterDisplay meter_;
    LossReport loss_;
    SampleAligner aligner_;
    SteadyPace pace_;
    const bool fills_;
    u64 wanted_ = 0;  // bytes of samples; 0: no limit
    u64 got_ = 0;     // bytes of samples, silence in place of the feed included
    u64 heard_ = 0;   // bytes that came from the feed
};

i32 CannotWrite(const std::string& path, const std::string& reason) {
    std::fprintf(stderr, "orv-listen: cannot write '%s': %s. Name a file in a folder you may write to.\n", path.c_str(),
                 reason.c_str());
    return ListenOutputFailed;
}

}  // namespace

i32 Listen(const ListenOptions& options, std::atomic<bool>& stop) {
    Output output;
    std::string reason;
    std::atomic<bool> giveUp{false};  // for an output that waits
    if (options.rawToStandardOutput) {
        output.sinks.push_back(MakeStreamSink(Platform::OpenStandardOutput(), options.format, giveUp));
    }
    if (!options.fifoPath.empty()) {
        output.sinks.push_back(MakeFifoSink(options.fifoPath, options.format, giveUp, reason));
        if (output.sinks.back() == nullptr) return CannotWrite(options.fifoPath, reason);
    }
    if (!options.wavPath.empty()) {
        output.sinks.push_back(MakeWavSink(options.wavPath, reason));
        if (output.sinks.back() == nullptr) return CannotWrite(options.wavPath, reason);
    }

    Platform::Thread writer("output", [&output] { RunOutput(output); });
    Session session(options, stop, output);
    const i32 result = session.Run();
    output.queue.Close();
    // An output that takes nothing must not keep a tool that was told to stop: it gets two seconds for what is queued.
    for (u32 waited = 0; waited < 2000 && !output.finished.load(std::memory_order_acquire); waited += 10) {
        Platform::SleepMilliseconds(10);
    }
    giveUp.store(true, std::memory_order_relaxed);
    for (u32 waited = 0; waited < 500 && !output.finished.load(std::memory_order_acquire); waited += 10) {
        Platform::SleepMilliseconds(10);
    }
    if (!output.finished.load(std::memory_order_acquire)) {
        std::fprintf(stderr, "orv-listen: the output took no more; its last seconds are lost\n");
        std::_Exit(ListenOutputFailed);
    }
    writer.Join();
    const bool failed = output.state.load(std::memory_order_acquire) == SinkState::Failed;
    if (failed) std::fprintf(stderr, "orv-listen: the output took no more; its last sound is lost\n");
    return result == ListenDone && failed ? i32{ListenOutputFailed} : result;
}

}  // namespace Orv
