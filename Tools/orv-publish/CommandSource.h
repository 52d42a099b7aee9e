// Sound from a command's standard output.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Command.h"
#include "Tools/orv-publish/StreamSource.h"

namespace Orv {

// Runs the command from the first Read() on and says how it ended. With `restart` it is started again each time, after
// 1 s at first and then after twice the last wait, 30 s at most; a run that gave ten seconds of sound begins anew at 1
// s. The end of its output is the end of a run; a command that does not end with it is given two seconds.
class CommandSource final : public ISource {
public:
    static constexpr u64 FirstWaitMs = 1000;
    static constexpr u64 LongestWaitMs = 30000;
    static constexpr u64 GoodRunBytes = 160000;
    static constexpr u64 EndWaitMs = 2000;

    using StartFunction = std::function<std::unique_ptr<Platform::IRunningCommand>(Platform::SystemError& error)>;

    CommandSource(StartFunction start, bool restart, TellFunction tell);
    Outcome Read(u8* destination, u64 size, u64& taken) override;
    i32 Result() const override { return result_; }

private:
    // One run of the command.
    struct Run {
        explicit Run(std::unique_ptr<Platform::IRunningCommand> started)
            : command(std::move(started)), reader(command->Output()) {}
        std::unique_ptr<Platform::IRunningCommand> command;
        SampleReader reader;
        u64 bytes = 0;
        std::optional<u64> endBy;  // set once the output has ended
    };

    Outcome Start();
    Outcome AwaitEnd();
    Outcome OnRunOver(const std::string& how, i32 result);

    const StartFunction start_;
    const bool restart_;
    const TellFunction tell_;
    std::unique_ptr<Run> run_;
    u64 waitMs_ = FirstWaitMs;
    u64 startAt_ = 0;  // steady milliseconds
    i32 result_ = PublishDone;
};

}  // namespace Orv
