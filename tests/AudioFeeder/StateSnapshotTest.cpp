#include "AudioFeeder/StateSnapshot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/AudioFeeder/FeederWorld.h"

namespace {

using namespace FeederTest;
using ::testing::HasSubstr;
using ::testing::Not;

Orv::StateSnapshot OneFeed(const char* pipe) {
    Orv::StateSnapshot state;
    state.version = "1.2.3";
    state.uptimeMilliseconds = 61'500;
    state.link = Orv::ConfigurationLink::Lost;
    state.linkMilliseconds = 2'000;
    state.defaultFile = "/d.wav";
    state.rootPath = "/root";
    state.level = {32767, true};
    state.announcements = 7;
    Orv::FeedFigures figures;
    figures.hasThread = true;
    figures.clients = 2;
    figures.blocks = 100;
    figures.blocksSent = 200;
    figures.silentBlocks = 3;
    figures.lateBlocks = 4;
    figures.gain = 0.5F;
    figures.peak = 16384;
    figures.level = {16383, false};
    figures.announcements = 5;
    figures.music = "/m \"x\".wav";
    figures.badContent = "/b.wav";
    figures.badReason = "why";
    figures.badSeconds = 9;
    const Orv::FeedRow row = MakeRow({{"pipename", pipe}, {"idaudiofeed", 4}, {"feedtype", 3}});
    state.feeds.push_back({std::make_shared<Orv::FeedReport>(row, 12), figures});
    return state;
}

TEST(StateSnapshot, AsJsonItHasTheRowAndEachFigure) {
    EXPECT_EQ(Orv::WriteStateJson(OneFeed("a\\b")),
              R"({"version":"1.2.3","process":{"id":0,"uptime_seconds":61.500,"threads":0,"resident_bytes":0,)"
              R"("cpu_seconds":0.000,"open_files":0,"open_files_limit":0},)"
              R"("configuration":{"state":"lost","text":"configuration lost, playing on","seconds":2.000},)"
              R"("default_file":"/d.wav","root_path":"/root","max_volume":100,"autogain":true,"announcements":7,)"
              R"("feeds":[{"row":{"pipename":"a\\b","thename":null,"idaudiofeed":4,"feedtype":3,"nonstop":null,)"
              R"("playannouncements":null,"minannouncementpause":null,"maxannouncementpause":null,"maxvolume":null,)"
              R"("autogain":null},"instance":12,"state":"playing","music":"/m \"x\".wav","announcement":"",)"
              R"("clients":2,"blocks":100,"blocks_sent":200,"silent_blocks":3,"late_blocks":4,)"
              R"("write_milliseconds":0,"gain":0.5000,"peak":16384,"max_volume":50,"autogain":false,)"
              R"("announcements":5,"pipe_error":null,)"
              R"("bad_content":{"name":"/b.wav","reason":"why","seconds_ago":9}}]})"
              "\n");
}

TEST(StateSnapshot, AsMetricsEachFamilyHasItsHelpItsTypeAndASampleForEachFeed) {
    const std::string text = Orv::WriteStateMetrics(OneFeed("a\"b\\c\nd\xFF"));
    const std::string label = "{feed=\"a\\\"b\\\\c\\nd\xEF\xBF\xBD\"} ";
    EXPECT_THAT(text,
                HasSubstr("# TYPE orv_feed_blocks_sent_total counter\norv_feed_blocks_sent_total" + label + "200\n"));
    EXPECT_THAT(text, HasSubstr("orv_feed_silent_blocks_total" + label + "3\n"));
    EXPECT_THAT(text, HasSubstr("orv_feed_gain_ratio" + label + "0.5000\n"));
    EXPECT_THAT(text, HasSubstr("orv_feed_peak_ratio" + label + "0.5000\n"));
    EXPECT_THAT(text, HasSubstr("orv_build_info{version=\"1.2.3\"} 1\n"));
    EXPECT_THAT(text, HasSubstr("orv_configuration_link{state=\"lost\"} 1\n"));
    EXPECT_THAT(text, HasSubstr("orv_configuration_link{state=\"up\"} 0\n"));
    EXPECT_EQ(text.back(), '\n');
}

TEST(StateSnapshot, AsMetricsTheTextsOfAFeedAreLabelsOfASampleThatIsOne) {
    Orv::StateSnapshot state = OneFeed("hold");
    state.feeds[0].figures.announcement = "/a\\b.wav";
    const std::string text = Orv::WriteStateMetrics(state);
    EXPECT_THAT(text, HasSubstr("# TYPE orv_feed_info gauge\n"
                                "orv_feed_info{feed=\"hold\",folder=\"\",type=\"sorted\",music=\"/m \\\"x\\\".wav\","
                                "announcement=\"/a\\\\b.wav\"} 1\n"));
    EXPECT_THAT(text, HasSubstr("# TYPE orv_feed_bad_content_info gauge\n"
                                "orv_feed_bad_content_info{feed=\"hold\",name=\"/b.wav\",reason=\"why\"} 1\n"));
    const Orv::FeedRow row = MakeRow({{"pipename", "night"}, {"thename", "jazz"}, {"feedtype", 7}});
    state.feeds[0] = {std::make_shared<Orv::FeedReport>(row, 1), {}};
    const std::string other = Orv::WriteStateMetrics(state);
    EXPECT_THAT(other,
                HasSubstr("orv_feed_info{feed=\"night\",folder=\"jazz\",type=\"7\",music=\"\",announcement=\"\"} 1\n"));
    EXPECT_THAT(other, Not(HasSubstr("orv_feed_bad_content_info{"))) << "nothing is bad";
}

TEST(StateSnapshot, TheWordOfAFeedTellsTheWorstOfIt) {
    Orv::FeedFigures figures;
    EXPECT_STREQ(Orv::FeedWord(figures), "dead");
    figures.hasThread = true;
    EXPECT_STREQ(Orv::FeedWord(figures), "idle");
    figures.nonstop = true;
    EXPECT_STREQ(Orv::FeedWord(figures), "playing");
    figures.pipeError = 13;
    EXPECT_STREQ(Orv::FeedWord(figures), "unserved");
}

}  // namespace
