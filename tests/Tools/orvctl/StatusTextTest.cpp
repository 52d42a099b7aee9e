// Goal: the state fits into the window that it is shown in, and colours add nothing but colour. Method: states made
// here, shown in windows of any size.
#include <gmock/gmock.h>

#include <regex>
#include <sstream>

#include "Tools/orvctl/Status.h"

namespace Orv {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr u32 kFullScale = 32767;

Json Feed(const std::string& pipe, const std::string& state, u32 peak) {
    return {{"row", {{"pipename", pipe}}}, {"state", state}, {"peak", peak}, {"music", "/m/song.wav"}, {"gain", 1.0}};
}

Json State(const std::vector<Json>& feeds) {
    return {{"version", "1.0.0"}, {"configuration", {{"state", "up"}, {"text", "up"}}}, {"feeds", feeds}};
}

Json Many(u32 count) {
    std::vector<Json> feeds;
    for (u32 i = 0; i < count; ++i) feeds.push_back(Feed("feed" + std::to_string(i), "playing", kFullScale));
    return State(feeds);
}

std::vector<std::string> LinesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

std::string WithoutColours(const std::string& text) {
    return std::regex_replace(text, std::regex("\x1b\\[[0-9;]*m"), "");
}

TEST(StateText, ABarHasACellForEach3DecibelsAboveMinus60) {
    // A peak of 1036 is 30.0 dB below full scale.
    const std::string text = StateText(State({Feed("a", "playing", 1036), Feed("b", "playing", 0)}), {});
    EXPECT_THAT(text, AllOf(HasSubstr("[##########          ] -30.0 dB"), HasSubstr("[                    ]   silent"),
                            Not(HasSubstr("\x1b"))));
}

// In a window of 30 rows the feeds of a large exchange ran out of it at the top, and the headings with them.
TEST(StateText, FeedsForWhichTheWindowHasNoRoomAreCounted) {
    const std::vector<std::string> lines = LinesOf(StateText(Many(300), {120, 30, false}));
    ASSERT_EQ(lines.size(), 29u);
    EXPECT_THAT(lines[3], HasSubstr("PIPE"));
    EXPECT_THAT(lines[27], HasSubstr("feed23"));
    EXPECT_EQ(lines[28], "... and 276 more; `orvctl status` shows all");
    EXPECT_EQ(LinesOf(StateText(Many(25), {120, 30, false})).size(), 29u) << "all of them fit exactly";
    EXPECT_THAT(StateText(Many(25), {120, 30, false}), Not(HasSubstr("more")));
}

TEST(StateText, WhatIsWrongIsShownBeforeFeedsAre) {
    Json state = Many(300);
    state["feeds"][299]["bad_content"] = {{"name", "x.wav"}, {"reason", "is empty"}, {"seconds_ago", 3}};
    EXPECT_THAT(StateText(state, {120, 10, false}),
                AllOf(HasSubstr("feed0"), HasSubstr("feed299: \"x.wav\" did not play 3 s ago: is empty"),
                      HasSubstr("... and 298 more")));
}

TEST(StateText, NoWindowIsTooSmall) {
    Json state = Many(40);
    state["feeds"][0]["pipe_error"] = "Permission denied";
    for (u32 height = 1; height < 60; ++height) {
        for (const u32 width : {1u, 2u, 20u, 40u, 80u, 200u}) {
            const std::string text = WithoutColours(StateText(state, {width, height, true}));
            const std::vector<std::string> lines = LinesOf(text);
            EXPECT_LE(lines.size(), std::max(height - 1, 1u));
            for (const std::string& line : lines) EXPECT_LT(line.size(), width) << line;
            EXPECT_EQ(text, StateText(state, {width, height, false}));
        }
    }
}

TEST(StateText, ColoursTellTheStateAndHowLoudItIs) {
    const std::string text =
        StateText(State({Feed("a [b] idle", "playing", kFullScale), Feed("c", "idle", 0), Feed("d", "unserved", 0)}),
                  {120, 30, true});
    EXPECT_THAT(text, HasSubstr("a [b] idle  \x1b[32mplaying\x1b[0m "));
    EXPECT_THAT(text, HasSubstr("[\x1b[32m##############\x1b[0m\x1b[33m####\x1b[0m\x1b[31m##\x1b[0m]"));
    EXPECT_THAT(text, AllOf(HasSubstr("\x1b[2midle\x1b[0m"), HasSubstr("\x1b[31munserved\x1b[0m")));
}

TEST(StateText, ALostConfigurationIsRed) {
    Json state = Many(1);
    state["configuration"] = {{"state", "lost"}, {"text", "configuration lost, playing on"}};
    EXPECT_THAT(StateText(state, {120, 30, true}), HasSubstr("\x1b[31mConfiguration: configuration lost, playing on"));
}

TEST(StateText, ControlCharactersInNamesDoNotReachTheTerminal) {
    Json state = Many(1);
    state["feeds"][0]["music"] = "/m/\x1b[2Jsong.wav";
    EXPECT_THAT(StateText(state, {120, 30, true}), AllOf(HasSubstr("?[2Jsong.wav"), Not(HasSubstr("\x1b[2J"))));
}

}  // namespace
}  // namespace Orv
