// Goal: each way in which a call can end has its code. Method: links that the test makes up.
#include "Tools/orvctl/Connection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Platform/Files.h"
#include "Tools/orvctl/Report.h"
#include "Tools/orvctl/Status.h"
#include "Tools/orvctl/ToolError.h"

namespace Orv {
namespace {

using ::testing::HasSubstr;

// Answers every call with one reply, or loses the connection.
class FakeConnector : public VX::ILinkConnector {
public:
    class Link : public VX::ILink {
    public:
        explicit Link(FakeConnector& owner) : owner_(owner) {}
        bool Call(u32, const VX::ParamListHolder&, VX::ParamListHolder& reply) override {
            reply = owner_.reply;
            return !owner_.lost;
        }
        void Close() override {}

    private:
        FakeConnector& owner_;
    };
    std::unique_ptr<VX::ILink> Connect(const std::string&, u32, const std::string& credentials, VX::ILinkEvents&,
                                       VX::PeerInfo&, bool& authFailed) override {
        EXPECT_EQ(credentials, "me:pw");
        authFailed = refuses;
        return refuses || away ? nullptr : std::make_unique<Link>(*this);
    }
    void Reply(const char* result, const char* text) {
        reply.NewList();
        if (result == nullptr) return;
        VXSetStringValue(reply.Get(), "result", result);
        VX::ParamListHolder error;
        error.NewList();
        VXSetStringValue(error.Get(), "text", text);
        const HVXPARAMLIST handle = error.Get();
        VXSetHandleArray(reply.Get(), "errors", &handle, 1);
    }
    bool refuses = false;
    bool away = false;
    bool lost = false;
    VX::ParamListHolder reply;
};

std::pair<ExitCode, std::string> CallOnce(FakeConnector& connector) {
    try {
        Connection(connector, {"host", 9, "me", "pw"}).Call(100, VX::ParamListHolder());
    } catch (const ToolError& error) {
        return {error.Code(), error.what()};
    }
    return {ExitCode::Done, ""};
}

TEST(OrvctlConnection, EachEndOfACallHasItsCode) {
    FakeConnector connector;
    connector.Reply("ok", "");
    EXPECT_EQ(CallOnce(connector).first, ExitCode::Done);
    for (const auto& [word, code] :
         {std::pair("refused", ExitCode::Refused), std::pair("notfound", ExitCode::NotFound),
          std::pair("forbidden", ExitCode::NotAllowed), std::pair("failed", ExitCode::ServiceFailed)}) {
        connector.Reply(word, "because");
        EXPECT_EQ(CallOnce(connector), (std::pair(code, std::string("because")))) << word;
    }
    connector.Reply(nullptr, "");
    EXPECT_THAT(CallOnce(connector).second, HasSubstr("does not know this command"));
    connector.lost = true;
    EXPECT_EQ(CallOnce(connector).first, ExitCode::ConnectionLost);
    EXPECT_THAT(CallOnce(connector).second, HasSubstr("look with `orvctl status` whether the change was made"));
    connector.away = true;
    EXPECT_EQ(CallOnce(connector).first, ExitCode::CannotConnect);
    connector.refuses = true;
    EXPECT_EQ(CallOnce(connector).first, ExitCode::WrongCredentials);
}

// The system's own files say that they are longer than what can be read of them.
TEST(OrvctlConnection, ASettingsFileThatCannotBeReadToItsEndIsTold) {
    ConnectionOptions options;
    options.configFile = "/sys/kernel/uevent_seqnum";
    if (!Platform::PathExists(options.configFile)) GTEST_SKIP() << "no " << options.configFile << " on this machine";
    const auto expectRefusal = [](const auto& read) {
        try {
            read();
            ADD_FAILURE() << "nothing was refused";
        } catch (const ToolError& error) {
            EXPECT_EQ(error.Code(), ExitCode::BadCommandLine);
            EXPECT_THAT(error.what(),
                        HasSubstr("The settings file /sys/kernel/uevent_seqnum cannot be read to its end"));
        }
    };
    expectRefusal([&] { FindTarget(options); });
    expectRefusal([&] { ReadServiceSettings(options); });
}

TEST(OrvctlReport, ColumnsAreAlignedByCharacters) {
    EXPECT_EQ(AlignTable({{"A", "B"}, {"J\xC3\xBCrgen", "x"}, {"longer name", "y"}}),
              "A            B\nJ\xC3\xBCrgen       x\nlonger name  y\n");
}

TEST(OrvctlReport, AFindingNamesTheRowTheOptionAndTheFix) {
    EXPECT_EQ(FindingText({0, "AUDIOFEED", "hold", "maxvolume", "is 101; give less", false}),
              "feed \"hold\", --max-volume: is 101; give less");
    EXPECT_EQ(FindingText({0, "AUDIOFEED", "hold", "", "does not exist", true}), "feed \"hold\": does not exist");
    EXPECT_EQ(FindingText({0, "user", "me", "password", "is empty", false}), "user \"me\", password: is empty");
    EXPECT_EQ(FindingText({-1, "", "", "", "The disk is full", false}), "The disk is full");
}

// What a person is told of one changed feed, or of one changed parameter.
std::string HeardOfFeed(std::vector<std::string> columns, std::vector<std::string> alike = {}) {
    std::string text;
    for (const std::string& sentence :
         HeardWhen({AudioFeed, 1, "Updated", "hold", "hold", std::move(columns), std::move(alike)})) {
        text += sentence + "\n";
    }
    return text;
}
std::vector<std::string> HeardOfParameter(const char* kind, const char* name, const char* oldName) {
    return HeardWhen({Parameter, 1, kind, name, oldName, {"name", "value"}, {}});
}

TEST(OrvctlReport, EachOfTheFiveColumnsThatTheFeedIsMadeOfBuildsItAnew) {
    for (const char* column : {"pipename", "thename", "feedtype", "playannouncements", "nonstop"}) {
        EXPECT_EQ(
            HeardOfFeed({column, "maxvolume", "minannouncementpause"}),
            "At once: the feed is built anew, so its clients see the end of the pipe and have to connect again.\n")
            << column;
    }
}

TEST(OrvctlReport, AColumnThatTurnsFromAbsentToZeroOrEmptyDoesNotBuildTheFeedAnew) {
    const char softly[] = "At once: the feed goes on with its next file; its clients stay connected.\n";
    for (const char* column : {"thename", "feedtype", "playannouncements", "nonstop", "maxvolume", "autogain"}) {
        EXPECT_EQ(HeardOfFeed({column}, {column}), softly) << column;
    }
    EXPECT_EQ(HeardOfFeed({"maxvolume"}), softly);
    EXPECT_THAT(HeardOfFeed({"nonstop", "thename"}, {"nonstop"}), HasSubstr("built anew"));
}

TEST(OrvctlReport, NewPausesCountFromTheNextRebuild) {
    EXPECT_THAT(HeardOfFeed({"minannouncementpause"}),
                HasSubstr("still with the old pauses.\nThe new pauses count from"));
    EXPECT_THAT(HeardOfFeed({"autogain", "maxannouncementpause"}),
                HasSubstr("its clients stay connected.\nThe new pauses count from the feed's next rebuild"));
}

TEST(OrvctlReport, ARemovedParameterCountsAtTheNextStartAndAnUnknownOneNever) {
    const std::string never = "Never: the audio feed service reads no parameter of that name.";
    const std::string old =
        "What \"SYSTEMLOGGINGLEVEL\" has set stays in force until the audio feed service's next start.";
    const char level[] = "SYSTEMLOGGINGLEVEL";
    using Sentences = std::vector<std::string>;
    EXPECT_EQ(HeardOfParameter("Inserted", level, level), Sentences{"At once."});
    EXPECT_EQ(HeardOfParameter("Deleted", level, level),
              Sentences{"At the audio feed service's next start; until then the last value stays in force."});
    EXPECT_EQ(HeardOfParameter("Updated", "COLOUR", level), (Sentences{never, old}));
    EXPECT_EQ(HeardOfParameter("Updated", level, "COLOUR"), Sentences{"At once."});
    EXPECT_EQ(HeardOfParameter("Deleted", "COLOUR", "COLOUR"), Sentences{never});
    EXPECT_THAT(HeardOfParameter("Updated", "DEFAULTAUDIOFILE", "DEFAULTAUDIOFILE").front(),
                HasSubstr("At once, unless it is empty"));
}

}  // namespace
}  // namespace Orv
