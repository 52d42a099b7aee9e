// Goal: what people have becomes what a feed plays, and each refusal tells why. Method: files made by outside tools are
// imported by the real programs, and the results measured by outside tools again.
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "tests/Tools/ServedDatabase.h"

namespace OrvTest {
namespace {

namespace fs = std::filesystem;

class Import : public ServedDatabase {
protected:
    void SetUp() override {
        ServedDatabase::SetUp();
        fs::create_directories(root_);
        WriteFileText(settings_, ReadFileText(settings_) + "[General]\nAppDataPath=" + (folder_ / "d") + "\n");
        Must({"feed", "add", "hold", "--type", "sorted", "--folder", "music"});
    }

    // A minute's piece of pink noise in the middle of a tone, by ffmpeg; `to` tells codec and layout by its name.
    std::string Make(const std::string& name, const std::string& source, const std::vector<std::string>& how) {
        std::vector<std::string> command = {"/usr/bin/ffmpeg", "-v", "error", "-f", "lavfi", "-i", source};
        command.insert(command.end(), how.begin(), how.end());
        command.push_back(folder_ / name);
        const RunResult result = OrvTest::Run(command);
        EXPECT_EQ(result.exitCode, 0) << result.error;
        return folder_ / name;
    }
    // 116 minutes of silence, which take no room on the disk.
    std::string MakeLongFile() const {
        const std::string file = folder_ / "long.wav";
        constexpr std::uint32_t kData = 7000u * 96000u * 4u;
        std::string header(
            "RIFF\0\0\0\0WAVEfmt \x10\0\0\0\x01\0\x02\0\0\x77\x01\0\0\xDC\x05\0\x04\0\x10\0"
            "data\0\0\0\0",
            44);
        for (std::size_t i = 0; i < 4; ++i) {
            header[4 + i] = static_cast<char>((kData + 36) >> (8 * i));
            header[40 + i] = static_cast<char>(kData >> (8 * i));
        }
        WriteFileText(file, header);
        fs::resize_file(file, 44 + std::uintmax_t{kData});
        return file;
    }
    static std::string Probe(const std::string& path) {
        return OrvTest::Run({"/usr/bin/ffprobe", "-v", "error", "-show_entries",
                             "stream=codec_name,sample_rate,channels,duration", "-of", "csv=p=0", path})
            .output;
    }
    // Integrated loudness and true peak by ffmpeg.
    static std::pair<double, double> Measure(const std::string& path) {
        const RunResult result =
            OrvTest::Run({"/usr/bin/ffmpeg", "-nostats", "-i", path, "-af", "ebur128=peak=true", "-f", "null", "-"});
        const std::string summary = result.error.substr(result.error.rfind("Summary:"));
        std::smatch loudness;
        std::smatch peak;
        EXPECT_TRUE(std::regex_search(summary, loudness, std::regex("I: +(-?[0-9.]+) LUFS"))) << result.error;
        EXPECT_TRUE(std::regex_search(summary, peak, std::regex("Peak: +(-?[0-9.]+) dBFS"))) << result.error;
        return {std::stod(loudness[1]), std::stod(peak[1])};
    }
    // A port on which connections are taken, and its socket.
    static std::pair<int, int> ListenAndSayNothing() {
        const int listening = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        EXPECT_EQ(::bind(listening, reinterpret_cast<sockaddr*>(&address), size), 0);
        EXPECT_EQ(::listen(listening, 8), 0);
        EXPECT_EQ(::getsockname(listening, reinterpret_cast<sockaddr*>(&address), &size), 0);
        return {ntohs(address.sin_port), listening};
    }
    std::vector<std::string> Folder() const {
        std::vector<std::string> names;
        if (!fs::exists(root_ + "/Playlist/music")) return names;
        for (const auto& entry : fs::directory_iterator(root_ + "/Playlist/music"))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }
    std::string Music(const std::string& name) const { return root_ + "/Playlist/music/" + name; }

    const std::string root_ = folder_ / "d/Data/Ivr/Prompts";
};

const char kNoise[] = "anoisesrc=color=pink:amplitude=0.8:duration=6:sample_rate=44100:seed=3";

TEST_F(Import, AnMp3AndAStereoFlacBecomeWhatAFeedPlaysAtOneLoudness) {
    const std::string mp3 = Make("loud song.mp3", kNoise, {"-ac", "1", "-b:a", "128k"});
    const std::string flac = Make("quiet.flac", kNoise, {"-ac", "2", "-ar", "48000", "-af", "volume=-30dB"});
    const nlohmann::json done = MustJson({"import", mp3, flac, "--feed", "hold"});
    EXPECT_EQ(Folder(), (std::vector<std::string>{"loud song.wav", "quiet.wav"}));
    for (const std::string& name : Folder()) {
        const std::string probe = Probe(Music(name));
        std::smatch match;
        ASSERT_TRUE(std::regex_search(probe, match, std::regex("^pcm_s16le,8000,1,([0-9.]+)"))) << probe;
        EXPECT_NEAR(std::stod(match[1]), 6.0, 0.06) << name;  // an MP3 is whole frames of 26 ms
        const auto [lufs, peak] = Measure(Music(name));
        EXPECT_NEAR(lufs, -23.0, 0.3) << name;
        EXPECT_LE(peak, -0.9) << name;
    }
    EXPECT_EQ(done["files"][0]["format"], "MP3");
    EXPECT_EQ(done["files"][1]["channels"], 2);
    EXPECT_EQ(fs::status(Music("quiet.wav")).permissions() & fs::perms::mask, fs::perms(0644));
}

TEST_F(Import, OggOpusAndWavComeInToo) {
    const std::string ogg = Make("a.ogg", kNoise, {"-c:a", "libvorbis"});
    const std::string opus = Make("b.opus", kNoise, {"-c:a", "libopus"});
    const std::string wav = Make("c.wav", kNoise, {"-ar", "11025", "-ac", "2", "-c:a", "pcm_s24le"});
    const std::string text = Must({"import", ogg, opus, wav, "--feed", "hold", "--no-loudness"});
    EXPECT_EQ(Folder(), (std::vector<std::string>{"a.wav", "b.wav", "c.wav"}));
    EXPECT_TRUE(std::regex_search(text, std::regex("a.ogg +Ogg 44100 Hz mono +0:06.0"))) << text;
    EXPECT_TRUE(std::regex_search(text, std::regex("b.opus +Opus 48000 Hz mono +0:06.0"))) << text;
    EXPECT_TRUE(std::regex_search(text, std::regex("c.wav +WAV 11025 Hz stereo +0:06.0"))) << text;
    EXPECT_NE(text.find("at the end of the default audio file"), std::string::npos) << text;
    EXPECT_NEAR(Measure(Music("a.wav")).first, Measure(ogg).first, 3.0) << "what is above 4000 Hz is gone";
}

TEST_F(Import, EachRefusedFileTellsWhyAndTheOthersComeIn) {
    const std::string good = Make("good.flac", kNoise, {});
    WriteFileText(folder_ / "letter.mp3", "dear sir");
    WriteFileText(folder_ / "empty.wav", "");
    const std::string six = Make("six.wav", "anullsrc=channel_layout=5.1:d=1", {});
    const RunResult result = Ctl({"import", folder_ / "letter.mp3", folder_ / "empty.wav", six, folder_ / "none.wav",
                                  folder_.Path(), good, "--feed", "hold"});
    EXPECT_EQ(result.exitCode, 9) << result.error;
    EXPECT_NE(result.error.find("orvctl: 5 of 6 files were refused"), std::string::npos) << result.error;
    for (const char* part : {"is no sound file that can be read", "is empty", "has 6 channels",
                             "cannot be read: No such file or directory", "cannot be read: Is a directory"}) {
        EXPECT_NE(result.output.find(part), std::string::npos) << part << "\n" << result.output;
    }
    EXPECT_EQ(Folder(), (std::vector<std::string>{"good.wav"}));
}

TEST_F(Import, AFileOfTheSameNameIsReplacedOnlyOnRequestAndWhateverItsCase) {
    const std::string one = Make("song.flac", kNoise, {});
    fs::create_directories(root_ + "/Playlist/music");
    WriteFileText(Music("Song.WAV"), "old");
    const RunResult refused = Ctl({"import", one, "--feed", "hold"});
    EXPECT_EQ(refused.exitCode, 9);
    EXPECT_NE(refused.output.find("Song.WAV is in the folder already"), std::string::npos) << refused.output;
    EXPECT_EQ(ReadFileText(Music("Song.WAV")), "old");
    const std::string text = Must({"import", one, "--feed", "hold", "--replace"});
    EXPECT_EQ(Folder(), (std::vector<std::string>{"Song.WAV"}));
    EXPECT_EQ(fs::file_size(Music("Song.WAV")), 44u + 6 * 16000);
    EXPECT_NE(text.find("when all 1 file of its present round"), std::string::npos) << text;
}

TEST_F(Import, TheLimitsOnMemoryAndTimeHoldAndNothingIsLeftBehind) {
    const std::string file = MakeLongFile();
    const RunResult memory = Ctl({"import", file, "--feed", "hold", "--memory-limit", "40"});
    EXPECT_EQ(memory.exitCode, 9) << memory.output;
    EXPECT_NE(memory.output.find("needs more than the 40 MB of memory"), std::string::npos) << memory.output;
    const RunResult time = Ctl({"import", file, "--feed", "hold", "--time-limit", "1"});
    EXPECT_EQ(time.exitCode, 9) << time.output;
    EXPECT_NE(time.output.find("takes more than the 1 s of processor time"), std::string::npos) << time.output;
    EXPECT_EQ(Folder(), std::vector<std::string>{});
}

// With a converter in front of the real one that ends in the middle of its output, as one does that breaks.
TEST_F(Import, AConverterThatBreaksIsToldLeavesNothingBehindAndTheOthersComeIn) {
    const std::string good = Make("good.flac", kNoise, {});
    const std::string bad = Make("bad.flac", kNoise, {});
    fs::create_directory(folder_ / "bin");
    fs::copy_file(OrvctlProgram, folder_ / "bin/orvctl");
    WriteFileText(folder_ / "bin/orv-convert",
                  "#!/bin/sh\nfor output; do :; done\ncase $* in\n*bad.flac*)\n  head -c 5000 /dev/zero >\"$output\"\n"
                  "  ls -A \"${output%/*}\" >'" +
                      (folder_ / "half") + "'\n  kill -SEGV $$\nesac\nexec '" + ORV_BIN_FOLDER +
                      "/orv-convert' \"$@\"\n");
    fs::permissions(folder_ / "bin/orv-convert", fs::perms(0755));
    const RunResult result =
        OrvTest::Run({folder_ / "bin/orvctl", "-c", settings_, "import", bad, good, "--feed", "hold"});
    EXPECT_EQ(result.exitCode, 9) << result.error;
    EXPECT_NE(result.output.find("broke the decoder (signal 11)"), std::string::npos) << result.output;
    EXPECT_NE(ReadFileText(folder_ / "half").find(".bad.wav.new"), std::string::npos) << "half of it was there";
    EXPECT_EQ(Folder(), (std::vector<std::string>{"good.wav"}));
}

// The signal met a thread of the connection and ended orvctl at once; its converter went on alone, and left its file.
TEST_F(Import, CtrlCEndsItAndLeavesNothingBehind) {
    const std::string file = MakeLongFile();
    ProcessOptions options;
    options.command = {OrvctlProgram, "-c", settings_, "import", file, "--feed", "hold"};
    options.outputFile = folder_ / "said";
    Process importing(options);
    const std::string id = std::to_string(importing.Pid());
    ASSERT_TRUE(Eventually([&] { return !ReadFileText("/proc/" + id + "/task/" + id + "/children").empty(); }));
    importing.Signal(SIGINT);
    ASSERT_TRUE(importing.WaitFor(20000));
    EXPECT_EQ(importing.ExitCode(), 9);
    EXPECT_NE(ReadFileText(options.outputFile).find("was not converted: stopped"), std::string::npos);
    EXPECT_EQ(Folder(), std::vector<std::string>{});
}

// It was told nine seconds later, as a service that does not answer.
TEST_F(Import, CtrlCEndsItAtOnceWhileNobodyAnswers) {
    WriteFileText(folder_ / "password", "secret\n");
    for (const bool json : {false, true}) {
        const auto [port, listening] = ListenAndSayNothing();
        ProcessOptions options;
        options.command = {OrvctlProgram,        "--port", std::to_string(port), "--user", "root", "--password-file",
                           folder_ / "password", "import", folder_ / "none.wav", "--feed", "hold"};
        if (json) options.command.push_back("--json");
        options.outputFile = folder_ / ("said" + std::to_string(json));
        options.errorFile = folder_ / ("told" + std::to_string(json));
        Process importing(options);
        pollfd asked{listening, POLLIN, 0};
        ASSERT_EQ(::poll(&asked, 1, 20000), 1);
        const int connection = ::accept(listening, nullptr, nullptr);
        importing.Signal(SIGINT);
        ASSERT_TRUE(importing.WaitFor(20000));
        EXPECT_EQ(importing.ExitCode(), 9);
        EXPECT_EQ(ReadFileText(options.errorFile), "orvctl: Stopped; no file was converted\n");
        const nlohmann::json object = {{"error", "Stopped; no file was converted"}, {"exitcode", 9}};
        const std::string said = ReadFileText(options.outputFile);
        EXPECT_TRUE(json ? nlohmann::json::parse(said, nullptr, false) == object : said.empty()) << said;
        ::close(connection);
        ::close(listening);
    }
    EXPECT_FALSE(fs::exists(root_ + "/Playlist"));
}

TEST_F(Import, AFullDiskIsToldAndNothingIsLeftBehind) {
    const std::string file = Make("song.flac", kNoise, {});
    fs::create_directories(root_ + "/Playlist/music");
    // A file system of 64 kB in a namespace of its own; what it holds afterwards is listed in there.
    const std::string script = "mount -t tmpfs -o size=64k none '" + root_ + "/Playlist/music' || exit 77; '" +
                               OrvctlProgram + "' -c '" + settings_ + "' import '" + file +
                               "' --feed hold; echo code $?; ls -A '" + root_ + "/Playlist/music'";
    const RunResult result = OrvTest::Run({"/usr/bin/unshare", "-rm", "/bin/sh", "-c", script});
    if (result.exitCode == 77 || result.output.empty()) GTEST_SKIP() << "no file systems of one's own here";
    EXPECT_NE(result.output.find("cannot be written: No space left on device"), std::string::npos) << result.output;
    EXPECT_TRUE(result.output.ends_with("code 9\n")) << result.output;
}

TEST_F(Import, AnAnnouncementGetsItsFileAndIsToldHowToAddIt) {
    const std::string file = Make("voice.wav", kNoise, {});
    const std::string text = Must({"import", file, "--announcement", "thanks"});
    EXPECT_TRUE(fs::exists(root_ + "/thanks.wav"));
    EXPECT_NE(text.find("orvctl announcement add thanks --file " + root_ + "/thanks.wav --kind over"),
              std::string::npos);
    Must({"announcement", "add", "thanks", "--file", root_ + "/thanks.wav", "--kind", "over"});
    ExpectFailure({"import", file, "--announcement", "thanks"}, 9, "1 of 1 file was refused");
    EXPECT_NE(Must({"import", file, "--announcement", "thanks", "--replace"}).find("At once"), std::string::npos);
}

TEST_F(Import, WhoPlaysTheFilesMustBeNamedAndMustBeThere) {
    ExpectFailure({"import", "x.wav"}, 2, "--feed NAME or --announcement NAME");
    ExpectFailure({"import", "x.wav", "--feed", "none"}, 5, "orvctl feed add none --type shuffled --folder none");
    Must({"feed", "add", "plain", "--type", "default"});
    ExpectFailure({"import", "x.wav", "--feed", "plain"}, 1, "plays the default stream");
    ExpectFailure({"import", "x.wav", "--feed", "hold", "--prompts", folder_ / "nowhere"}, 2,
                  "name another one with --prompts");
}

}  // namespace
}  // namespace OrvTest
