// Goal: each way in which a call can end has its code. Method: links that the test makes up.
#include "Tools/orvctl/Connection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tools/orvctl/Report.h"
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

}  // namespace
}  // namespace Orv
