#include "Tools/orvctl/Converter.h"

#include <nlohmann/json.hpp>

#include "Platform/Clock.h"
#include "Platform/Command.h"
#include "Platform/Files.h"
#include "Platform/Thread.h"
#include "Tools/orv-convert/Protocol.h"
#include "Tools/orvctl/ToolError.h"

namespace Orv {
namespace {

using nlohmann::json;

constexpr u32 kPollMs = 50;

// One line of the converter's; what is no such line says nothing.
void TakeLine(const std::string& line, Converted& result, bool& answered, const std::function<void(double)>& progress) {
    const json message = json::parse(line, nullptr, false);
    if (!message.is_object()) return;
    try {
        if (message.contains(ConvertProtocol::Progress)) progress(message[ConvertProtocol::Progress].get<double>());
        if (message.contains(ConvertProtocol::Refused)) {
            result.refusal = message[ConvertProtocol::Refused].get<std::string>();
            answered = true;
        }
        if (!message.contains(ConvertProtocol::Done)) return;
        const json& done = message[ConvertProtocol::Done];
        result.format = done.at("format").get<std::string>();
        result.rate = done.at("rate").get<u32>();
        result.channels = done.at("channels").get<u32>();
        result.seconds = done.at("seconds").get<double>();
        result.factor = done.at("factor").get<double>();
        result.notes = done.at("notes").get<std::vector<std::string>>();
        if (!done.at("lufs").is_null()) result.lufs = done.at("lufs").get<double>();
        answered = true;
    } catch (const json::exception&) {
        result.refusal = "orv-convert gave an answer that is not understood; is it of this version?";
        answered = true;
    }
}

std::string HowItEnded(const Platform::CommandEnd& end, const ConvertSettings& settings) {
    if (end.signal == Platform::TimeLimitSignal()) {
        return "takes more than the " + std::to_string(settings.seconds) +
               " s of processor time that it may have (--time-limit)";
    }
    if (Platform::IsFaultSignal(end.signal)) {
        return "broke the decoder (signal " + std::to_string(end.signal) + "); it is damaged, or made to do so";
    }
    if (end.signal != 0) {
        return "was not converted: somebody ended orv-convert, or the system did for want of memory (signal " +
               std::to_string(end.signal) + "); import it again";
    }
    return "could not be converted: orv-convert ended with code " + std::to_string(end.exitCode);
}

}  // namespace

Converted ConvertFile(const std::string& input, const std::string& output, const ConvertSettings& settings,
                      const std::function<void(double)>& progress, const std::atomic<bool>& stop) {
    std::vector<std::string> arguments = {"--memory", std::to_string(settings.megabytes), "--seconds",
                                          std::to_string(settings.seconds)};
    if (settings.lufs) arguments.insert(arguments.end(), {"--lufs=" + std::to_string(*settings.lufs)});
    // Behind "--", so that a name may begin with a dash.
    arguments.insert(arguments.end(), {"--", input, output});

    Converted result;
    Platform::SystemError error = 0;
    const auto process = Platform::StartProgram(settings.program, arguments, error);
    if (process == nullptr) {
        result.refusal =
            "could not be converted: " + settings.program + " cannot be started, " + Platform::SystemErrorText(error);
        return result;
    }
    const u64 seconds = u64{settings.seconds} + settings.spareSeconds;
    const u64 deadline = Platform::SteadyMilliseconds() + seconds * 1000;
    // Whether it is to be waited for no longer, with the reason.
    const auto givenUp = [&] {
        if (stop.load(std::memory_order_relaxed)) {
            result.refusal = "was not converted: stopped";
        } else if (Platform::SteadyMilliseconds() > deadline) {
            result.refusal =
                "could not be converted within " + std::to_string(seconds) + " s; look at the disk that it lies on";
        } else {
            return false;
        }
        return true;
    };
    std::string text;
    bool answered = false;
    for (;;) {
        if (givenUp()) return result;
        char bytes[4096];
        u64 taken = 0;
        const auto outcome = process->Output().Read(bytes, sizeof bytes, kPollMs, taken, error);
        if (outcome == Platform::IInputStream::Outcome::End) break;
        text.append(bytes, taken);
        for (std::size_t end; (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1)) {
            TakeLine(text.substr(0, end), result, answered, progress);
        }
    }
    Platform::CommandEnd end{};
    while (!process->Ended(end)) {
        if (givenUp()) return result;
        Platform::SleepMilliseconds(1);
    }
    if (!answered || (end.exitCode != 0 && result.refusal.empty())) result.refusal = HowItEnded(end, settings);
    return result;
}

std::string FindConverter() {
    const std::string folder = Platform::ProgramFolder();
    for (const std::string& path : {folder + "/orv-convert", folder + "/../libexec/orv/orv-convert"}) {
        if (Platform::PathExists(path)) return path;
    }
    throw ToolError(
        ExitCode::BadCommandLine,
        "orv-convert is neither in " + folder + " nor in ../libexec/orv beside it; install the package orv-tools anew");
}

}  // namespace Orv
