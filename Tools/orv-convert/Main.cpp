// orv-convert: makes one sound file into what a feed plays. orvctl starts one for each file, so that what a decoder
// does with a file that was made to break it stays here, within limits of memory and time.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <new>
#include <nlohmann/json.hpp>

#include "Platform/Clock.h"
#include "Platform/Command.h"
#include "Platform/NewFile.h"
#include "Tools/orv-convert/Convert.h"
#include "Tools/orv-convert/Protocol.h"

namespace {

constexpr Platform::SystemError kNone = 0;
constexpr u32 kProgressMs = 50;

struct Options {
    std::string input;
    std::string output;
    double lufs = 0.0;
    u32 megabytes = 0;
    u32 seconds = 0;
};

void Write(const nlohmann::json& line) {
    std::puts(line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
    std::fflush(stdout);
}

void WriteFile(const std::string& path, const std::string& bytes) {
    Platform::SystemError error = kNone;
    const auto file = Platform::CreateNewFile(path, error);
    if (file == nullptr || !file->Write(bytes.data(), bytes.size(), error) || !file->Finish(error)) {
        throw Orv::Refusal("cannot be written: " + Platform::SystemErrorText(error));
    }
}

void Run(const Options& options, bool level) {
    using namespace Orv;
    Platform::SystemError error = kNone;
    const auto file = Platform::OpenReadFile(options.input, error);
    if (file == nullptr) throw Refusal("cannot be read: " + Platform::SystemErrorText(error));
    const auto sound = OpenSoundFile(*file);
    u64 told = 0;
    const auto progress = [&told](double share) {
        const u64 now = Platform::SteadyMilliseconds();
        if (now - told < kProgressMs) return;
        told = now;
        Write({{ConvertProtocol::Progress, share}});
    };
    const Conversion result =
        Convert(*sound, level ? std::optional<double>(options.lufs) : std::nullopt, ConvertLimits{}, progress);
    WriteFile(options.output, WavBytes(result.samples));
    nlohmann::json done = {{"format", result.format},
                           {"rate", result.rate},
                           {"channels", result.channels},
                           {"seconds", static_cast<double>(result.samples.size()) / 8000.0},
                           {"lufs", nullptr},
                           {"factor", result.change.factor},
                           {"notes", result.notes}};
    if (result.before.lufs) done["lufs"] = *result.before.lufs;
    Write({{ConvertProtocol::Done, done}});
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{"Makes one sound file into 8000 Hz, mono, 16-bit WAV. Started by orvctl import.", "orv-convert"};
    app.set_version_flag("--version", "orv-convert " ORV_VERSION);
    app.add_option("input", options.input, "The sound file")->required();
    app.add_option("output", options.output, "The WAV file, which must not exist")->required();
    auto* level = app.add_option("--lufs", options.lufs, "Bring it to this loudness")->check(CLI::Range(-70.0, 0.0));
    app.add_option("--memory", options.megabytes, "Megabytes that it may hold")->required();
    app.add_option("--seconds", options.seconds, "Seconds of processor time that it may use")->required();
    app.footer("Exit codes: 0 done, 1 refused, 2 bad command line.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    Platform::SystemError error = kNone;
    try {
        if (!Platform::LimitThisProcess(u64{options.megabytes} << 20, options.seconds, error)) {
            throw Orv::Refusal("the limits on memory and time cannot be set: " + Platform::SystemErrorText(error));
        }
        Run(options, level->count() > 0);
        return 0;
    } catch (const Orv::Refusal& refusal) {
        Write({{Orv::ConvertProtocol::Refused, refusal.what()}});
    } catch (const std::bad_alloc&) {
        Write({{Orv::ConvertProtocol::Refused,
                "needs more than the " + std::to_string(options.megabytes) + " MB of memory that it may take"}});
    }
    return 1;
}
