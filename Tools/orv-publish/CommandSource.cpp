#include "Tools/orv-publish/CommandSource.h"

#include <algorithm>
#include <utility>

#include "Platform/Clock.h"

namespace Orv {

CommandSource::CommandSource(StartFunction start, bool restart, TellFunction tell)
    : start_(std::move(start)), restart_(restart), tell_(std::move(tell)) {}

ISource::Outcome CommandSource::Read(u8* destination, u64 size, u64& taken) {
    taken = 0;
    if (run_ == nullptr) return Start();
    if (run_->endBy) return AwaitEnd();
    Platform::SystemError error = 0;
    const Outcome outcome = run_->reader.Read(destination, size, taken, error);
    run_->bytes += taken;
    if (outcome != Outcome::End) return outcome;
    run_->endBy = Platform::SteadyMilliseconds() + EndWaitMs;
    return Outcome::Data;
}

ISource::Outcome CommandSource::Start() {
    if (Platform::SteadyMilliseconds() < startAt_) return Outcome::Nothing;
    Platform::SystemError error = 0;
    auto command = start_(error);
    if (command == nullptr) {
        return OnRunOver("the command cannot be started: " + Platform::SystemErrorText(error), PublishSourceFailed);
    }
    run_ = std::make_unique<Run>(std::move(command));
    return Outcome::Data;
}

ISource::Outcome CommandSource::AwaitEnd() {
    Platform::CommandEnd end{};
    const bool ended = run_->command->Ended(end);
    if (!ended && Platform::SteadyMilliseconds() < *run_->endBy) return Outcome::Nothing;
    const std::string after = " after " + SoundLength(run_->bytes);
    if (run_->bytes >= GoodRunBytes) waitMs_ = FirstWaitMs;
    run_.reset();
    if (!ended) return OnRunOver("the command has closed its output" + after + ", and was ended", PublishDone);
    if (end.signal != 0) {
        return OnRunOver("the command was ended by signal " + std::to_string(end.signal) + after, PublishCommandFailed);
    }
    std::string how = "the command ended with exit code " + std::to_string(end.exitCode) + after;
    if (end.exitCode == 127) how += " (the shell has not found it)";
    return OnRunOver(how, end.exitCode == 0 ? PublishDone : PublishCommandFailed);
}

ISource::Outcome CommandSource::OnRunOver(const std::string& how, i32 result) {
    if (!restart_) {
        tell_(how + ".");
        result_ = result;
        return Outcome::End;
    }
    tell_(how + "; it is started again in " + std::to_string(waitMs_ / 1000) + " s.");
    startAt_ = Platform::SteadyMilliseconds() + waitMs_;
    waitMs_ = std::min(waitMs_ * 2, LongestWaitMs);
    return Outcome::Nothing;
}

}  // namespace Orv
