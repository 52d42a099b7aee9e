// What the configuration client asks of the library, in which order. The library itself is replaced by a recorder here:
// this program defines its operations, and links only its parameter lists.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "ConfigClient/ConfigConnection.h"
#include "ConfigClient/Connection.h"
#include "Rows.h"

namespace {

struct Recorder {
    std::vector<std::string> done;
    u32 connectResult = 0;
    bool refuseSlots = false;
    std::map<u32, std::pair<VXDispatcher, void*>> slots;
};

// Not destroyed: the process's end is recorded too.
Recorder& Library() {
    static auto* const recorder = new Recorder;
    return *recorder;
}

void Note(const std::string& text) {
    Library().done.push_back(text);
    if (std::getenv("TELL_THE_END") != nullptr) std::fprintf(stderr, "%s;", text.c_str());
}

std::string Hex(u32 slot) {
    char text[16];
    std::snprintf(text, sizeof text, "%08x", slot);
    return text;
}

}  // namespace

void VXShutdown(u64 value) {
    Note("shutdown " + std::to_string(value));
}
void VXSetAuthFailedListener(VXFailureCallback listener) {
    Note(listener == nullptr ? "auth-failed 0" : "auth-failed");
}
void VXSetConnectListener(VXConnectCallback listener) {
    Note(listener == nullptr ? "connect 0" : "connect");
}
void VXSetDisconnectListener(VXDisconnectCallback listener) {
    Note(listener == nullptr ? "disconnect 0" : "disconnect");
}
void VXSetUnknownConnectListener(VXFailureCallback listener) {
    Note(listener == nullptr ? "unknown-connect 0" : "unknown-connect");
}
u32 VXConnect(const char* host, u32 port, char* nameOut, u32 nameSize, const void* credentials, u32 credentialsSize) {
    Note(std::string("VXConnect ") + host + " " + std::to_string(port) + " " + std::to_string(nameSize) + " " +
         static_cast<const char*>(credentials) + " " + std::to_string(credentialsSize));
    if (Library().connectResult == 0) std::snprintf(nameOut, nameSize, "Server");
    return Library().connectResult;
}
void VXDisconnect(const char* application) {
    Note(std::string("VXDisconnect ") + application);
}
u32 VXRegisterSlot(u32 slot, VXDispatcher dispatcher, void* user) {
    Note("VXRegisterSlot " + Hex(slot));
    if (Library().refuseSlots) return VXInvalidSlot;
    Library().slots[slot] = {dispatcher, user};
    return slot;
}
void VXConnectSignal(const char* application, const char* signal, u32 slot) {
    Note(std::string("VXConnectSignal ") + application + " '" + signal + "' " + Hex(slot));
}
void VXDropOtherSignals(const char* application) {
    Note(std::string("VXDropOtherSignals ") + application);
}
HVXPARAMLIST VXCall(const char* application, u32 number, HVXPARAMLIST request) {
    Note(std::string("VXCall ") + application + " " + std::to_string(number) + " " + VXGetStringValue(request, "OC"));
    return VXCreateParamList();
}

namespace {

using Texts = std::vector<std::string>;

class LibraryOrderTest : public testing::Test {
protected:
    void SetUp() override { Library() = {}; }
    void TearDown() override {
        ConfigConnection::Disconnect();
        ConfigConnection::Connection::Instance().SetApplication(nullptr);
    }
    static bool Connect(const std::vector<const char*>& tables) {
        return ConfigConnection::Connect("10.0.0.1", 5484, tables.data(), static_cast<u32>(tables.size()), "u:p", 4);
    }
};

TEST_F(LibraryOrderTest, ConnectingSubscribesTheTablesThenRegistersTheSlotsAndConnectsTheBatchSignalLast) {
    EXPECT_TRUE(Connect({"AUDIOFEED", "PARAMETER"}));
    EXPECT_EQ(Library().done,
              (Texts{"VXConnect 10.0.0.1 5484 256 u:p 4", "VXConnectSignal Server 'UPDOfAUDIOFEED' 80000001",
                     "VXCall Server 9 AUDIOFEED", "VXConnectSignal Server 'UPDOfPARAMETER' 80000001",
                     "VXCall Server 9 PARAMETER", "VXRegisterSlot 80000001", "VXRegisterSlot 80000002",
                     "VXConnectSignal Server 'BATCHUPDATE' 80000002", "VXDropOtherSignals Server"}));
}

TEST_F(LibraryOrderTest, WhenNobodyAnswersNothingMoreIsAsked) {
    Library().connectResult = 1;
    EXPECT_FALSE(Connect({"AUDIOFEED"}));
    EXPECT_EQ(Library().done.size(), 1u);
    EXPECT_STREQ(ConfigConnection::GetServerName(), "");
}

TEST_F(LibraryOrderTest, ASlotThatTheLibraryRefusesDropsItsHandlerAndTheConnectionStands) {
    Library().refuseSlots = true;
    EXPECT_TRUE(Connect({}));
    EXPECT_EQ(Library().done,
              (Texts{"VXConnect 10.0.0.1 5484 256 u:p 4", "VXRegisterSlot 80000001", "VXRegisterSlot 80000002",
                     "VXConnectSignal Server 'BATCHUPDATE' 80000002", "VXDropOtherSignals Server"}));
}

TEST_F(LibraryOrderTest, DisconnectingClosesTheConnectionOnce) {
    Connect({"AUDIOFEED"});
    Library().done.clear();
    ConfigConnection::Disconnect();
    ConfigConnection::Disconnect();
    EXPECT_EQ(Library().done, Texts{"VXDisconnect Server"});
}

// The signal's name has room for 63 characters.
TEST_F(LibraryOrderTest, ATableNameTooLongForASignalIsSubscribedWithAnEmptyOneAndHasItsListAllTheSame) {
    const std::string fits(58, 'T');
    const std::string tooLong(59, 'T');
    EXPECT_TRUE(Connect({fits.c_str(), tooLong.c_str()}));
    EXPECT_EQ(Library().done[1], "VXConnectSignal Server 'UPDOf" + fits + "' 80000001");
    EXPECT_EQ(Library().done[3], "VXConnectSignal Server '' 80000001");
    EXPECT_EQ(Library().done[4], "VXCall Server 9 " + tooLong);
}

TEST_F(LibraryOrderTest, ASlotsDispatcherRunsItsHandler) {
    Connect({});
    static Texts told;
    told.clear();
    ConfigConnection::ChangeListener = [](const char* table, const char* kind, u32 id, VX::ParamListHolder*,
                                          VX::ParamListHolder*) {
        told.push_back(std::string(table) + " " + kind + " " + std::to_string(id));
    };
    VXSlotRecord record{nullptr, Library().slots[0x80000002].second};
    const auto event = BatchEvent(3, {});
    EXPECT_EQ(Library().slots[0x80000002].first(event.Get(), nullptr, &record), 0);
    EXPECT_EQ(told.size(), 3u);
    record.user = Library().slots[0x80000001].second;
    EXPECT_EQ(Library().slots[0x80000001].first(nullptr, nullptr, &record), -1);
    ConfigConnection::ChangeListener = nullptr;
}

TEST(LibraryOrderDeathTest, AtProcessEndTheListenersAreClearedInOrderAndTheLibraryIsShutDown) {
    EXPECT_EXIT(
        {
            setenv("TELL_THE_END", "1", 1);
            std::exit(0);
        },
        testing::ExitedWithCode(0), "^auth-failed 0;connect 0;disconnect 0;unknown-connect 0;shutdown 0;$");
}

}  // namespace
