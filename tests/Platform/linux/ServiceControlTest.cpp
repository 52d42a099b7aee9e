// Method: the test is the service manager. It listens on a notify socket of its own, sends itself the stop signals,
// and runs the dispatcher on its main thread as the process entry does.
#include "Platform/ServiceControl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Platform/Sync.h"
#include "Platform/Thread.h"
#include "tests/support/Process.h"

namespace Platform {
namespace {

using OrvTest::Eventually;
using OrvTest::TempFolder;
using testing::ElementsAre;

std::string ThreadName() {
    char name[16] = {};
    ::pthread_getname_np(::pthread_self(), name, sizeof name);
    return name;
}

// Keeps the stop signals from ending the test program itself.
class BlockedSignals {
public:
    BlockedSignals() {
        ::sigemptyset(&signals_);
        ::sigaddset(&signals_, SIGINT);
        ::sigaddset(&signals_, SIGTERM);
        ::pthread_sigmask(SIG_BLOCK, &signals_, &before_);
    }
    ~BlockedSignals() {
        const timespec now{0, 0};
        while (::sigtimedwait(&signals_, nullptr, &now) > 0) {
        }
        ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t signals_;
    sigset_t before_;
};

class Manager {
public:
    // `name` as it stands in NOTIFY_SOCKET.
    explicit Manager(const std::string& name) : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, name.c_str(), name.size());
        if (name[0] == '@') address.sun_path[0] = '\0';
        const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
        EXPECT_EQ(::bind(socket_, reinterpret_cast<sockaddr*>(&address), length), 0);
        ::setenv("NOTIFY_SOCKET", name.c_str(), 1);
    }
    ~Manager() {
        ::unsetenv("NOTIFY_SOCKET");
        ::close(socket_);
    }
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    // The next message; empty after ten seconds without one.
    std::string Next(int milliseconds = 10000) {
        pollfd readable{socket_, POLLIN, 0};
        if (::poll(&readable, 1, milliseconds) <= 0) return "";
        char text[512];
        const ssize_t size = ::recv(socket_, text, sizeof text, 0);
        return std::string(text, static_cast<size_t>(size));
    }
    std::vector<std::string> All() {
        std::vector<std::string> messages;
        for (std::string text = Next(0); !text.empty(); text = Next(0)) messages.push_back(text);
        return messages;
    }

private:
    const int socket_;
};

// The service of a test. Its main runs what the test puts here.
struct Service {
    std::function<void()> main;
    std::string argument;
    u32 argCount = 0;
    std::string mainThread;
    StatusHandle handle = nullptr;
    Event stopped;
    std::atomic<int> stops{0};
    u64 controlThread = 0;

    void Register() {
        handle = RegisterControlHandler("service", Control, this);
        EXPECT_NE(handle, nullptr);
    }
    void Tell(u32 state) { SetServiceStatus(handle, ServiceStatus{16, state, state == 2 ? 0u : 5u, 0, 0, 0, 0}); }
    static u32 Control(u32 control, u32 eventType, void* eventData, void* context) {
        EXPECT_EQ(control, 1u);
        EXPECT_EQ(eventType, 0u);
        EXPECT_EQ(eventData, nullptr);
        auto& service = *static_cast<Service*>(context);
        service.controlThread = CurrentThreadId();
        service.stops.fetch_add(1, std::memory_order_relaxed);
        service.Tell(3);
        service.stopped.Set();
        return 0;
    }
};

Service* service = nullptr;

void ServiceMainOfTest(u32 argCount, char** args) {
    service->argCount = argCount;
    service->argument = args[0];
    service->mainThread = ThreadName();
    service->main();
}

class ServiceControlTest : public testing::Test {
protected:
    ServiceControlTest() { service = &service_; }

    bool Run(std::function<void()> main) {
        service_.main = std::move(main);
        const ServiceTableEntry table[] = {{"Orv Audio Feed", ServiceMainOfTest}, {nullptr, nullptr}};
        return StartServiceDispatcher(table);
    }

    BlockedSignals blocked_;
    TempFolder folder_;
    Service service_;
};

TEST_F(ServiceControlTest, WithoutANotifySocketTheDispatcherFailsAtOnce) {
    ::unsetenv("NOTIFY_SOCKET");
    EXPECT_FALSE(Run([] { FAIL() << "main was called"; }));
    ::setenv("NOTIFY_SOCKET", "", 1);
    EXPECT_FALSE(Run([] { FAIL() << "main was called"; }));
    ::setenv("NOTIFY_SOCKET", ("/" + std::string(200, 'x')).c_str(), 1);
    EXPECT_FALSE(Run([] { FAIL() << "main was called"; }));
    ::unsetenv("NOTIFY_SOCKET");
    EXPECT_EQ(RegisterControlHandler("service", Service::Control, nullptr), nullptr);
    SetServiceStatus(nullptr, ServiceStatus{16, 4, 5, 0, 0, 0, 0});
}

TEST_F(ServiceControlTest, TheManagerHearsTheStatesInTheirOrder) {
    Manager manager(folder_ / "notify");
    EXPECT_TRUE(Run([this] {
        service_.Register();
        for (const u32 state : {2u, 4u, 3u, 1u}) service_.Tell(state);
    }));
    EXPECT_THAT(manager.All(), ElementsAre("STATUS=Starting", "READY=1\nSTATUS=Running", "STOPPING=1\nSTATUS=Stopping",
                                           "STATUS=Stopped"));
}

TEST_F(ServiceControlTest, AnAbstractNotifySocketIsServedToo) {
    Manager manager("@orv-test-" + std::to_string(::getpid()));
    EXPECT_TRUE(Run([this] {
        service_.Register();
        service_.Tell(4);
    }));
    EXPECT_EQ(manager.Next(), "READY=1\nSTATUS=Running");
}

TEST_F(ServiceControlTest, TheMainRunsOnAThreadOfItsOwnWithItsName) {
    Manager manager(folder_ / "notify");
    EXPECT_TRUE(Run([] {}));
    EXPECT_EQ(service_.argCount, 1u);
    EXPECT_EQ(service_.argument, "Orv Audio Feed");
    EXPECT_EQ(service_.mainThread, "service");
}

TEST_F(ServiceControlTest, SigtermIsTheStopControlOnTheDispatchersThread) {
    Manager manager(folder_ / "notify");
    EXPECT_TRUE(Run([this] {
        service_.Register();
        service_.Tell(4);
        ::kill(::getpid(), SIGTERM);
        EXPECT_TRUE(service_.stopped.WaitFor(10000));
        service_.Tell(1);
    }));
    EXPECT_EQ(service_.stops.load(std::memory_order_relaxed), 1);
    EXPECT_EQ(service_.controlThread, CurrentThreadId());
    EXPECT_THAT(manager.All(), ElementsAre("READY=1\nSTATUS=Running", "STOPPING=1\nSTATUS=Stopping", "STATUS=Stopped"));
}

TEST_F(ServiceControlTest, AStopThatComesBeforeTheServiceRunsIsKeptForIt) {
    Manager manager(folder_ / "notify");
    EXPECT_TRUE(Run([this] {
        ::kill(::getpid(), SIGTERM);
        service_.Register();
        service_.Tell(2);
        EXPECT_FALSE(service_.stopped.WaitFor(50));
        service_.Tell(4);
        EXPECT_TRUE(service_.stopped.WaitFor(10000));
        service_.Tell(1);
    }));
    EXPECT_THAT(manager.All(), ElementsAre("STATUS=Starting", "READY=1\nSTATUS=Running", "STOPPING=1\nSTATUS=Stopping",
                                           "STATUS=Stopped"));
}

TEST_F(ServiceControlTest, FurtherSignalsChangeNothing) {
    Manager manager(folder_ / "notify");
    EXPECT_TRUE(Run([this] {
        service_.Register();
        service_.Tell(4);
        ::kill(::getpid(), SIGINT);
        EXPECT_TRUE(service_.stopped.WaitFor(10000));
        ::kill(::getpid(), SIGTERM);
        ::kill(::getpid(), SIGINT);
        SleepMilliseconds(20);
        service_.Tell(1);
        ::kill(::getpid(), SIGTERM);
        // A control that was on its way can say nothing behind the last word.
        service_.Tell(3);
    }));
    EXPECT_EQ(service_.stops.load(std::memory_order_relaxed), 1);
    EXPECT_THAT(manager.All(), ElementsAre("READY=1\nSTATUS=Running", "STOPPING=1\nSTATUS=Stopping", "STATUS=Stopped"));
}

TEST_F(ServiceControlTest, TheWatchdogsTimeIsTheManagersInMilliseconds) {
    const Manager manager(folder_ / "notify");
    const struct {
        const char* time;
        u32 milliseconds;
    } cases[] = {{"60000000", 60000},
                 {"1500", 1},
                 {"1", 1},
                 {"0", 0},
                 {"-5", 0},
                 {"soon", 0},
                 {"9999999999999999999", 2147483647}};
    for (const auto& [time, milliseconds] : cases) {
        ::setenv("WATCHDOG_USEC", time, 1);
        EXPECT_EQ(WatchdogMilliseconds(), milliseconds) << time;
    }
    ::setenv("WATCHDOG_USEC", "60000000", 1);
    ::setenv("WATCHDOG_PID", std::to_string(::getpid()).c_str(), 1);
    EXPECT_EQ(WatchdogMilliseconds(), 60000u);
    ::setenv("WATCHDOG_PID", "1", 1);
    EXPECT_EQ(WatchdogMilliseconds(), 0u);
    ::unsetenv("WATCHDOG_PID");
    ::unsetenv("NOTIFY_SOCKET");
    EXPECT_EQ(WatchdogMilliseconds(), 0u);
    ::unsetenv("WATCHDOG_USEC");
    EXPECT_EQ(WatchdogMilliseconds(), 0u);
}

TEST_F(ServiceControlTest, APingAndASentenceAreOneMessageEach) {
    Manager manager(folder_ / "notify");
    PingWatchdog();
    SetServiceText("all is\nwell");
    EXPECT_THAT(manager.All(), ElementsAre("WATCHDOG=1", "STATUS=all is well"));
}

TEST_F(ServiceControlTest, AManagerThatHasGoneHoldsNobodyUp) {
    ::setenv("NOTIFY_SOCKET", (folder_ / "nobody").c_str(), 1);
    EXPECT_TRUE(Run([this] {
        service_.Register();
        for (const u32 state : {2u, 4u, 3u, 1u}) service_.Tell(state);
    }));
    ::unsetenv("NOTIFY_SOCKET");
}

TEST_F(ServiceControlTest, EachStopSignalReachesTheForeground) {
    std::atomic<int> stops{0};
    std::string name;
    {
        const ForegroundStop foreground([&] {
            name = ThreadName();
            stops.fetch_add(1, std::memory_order_release);
        });
        ::kill(::getpid(), SIGINT);
        EXPECT_TRUE(Eventually([&] { return stops.load(std::memory_order_acquire) == 1; }));
        ::kill(::getpid(), SIGTERM);
        EXPECT_TRUE(Eventually([&] { return stops.load(std::memory_order_acquire) == 2; }));
    }
    EXPECT_EQ(name, "control");
    ::kill(::getpid(), SIGTERM);
    EXPECT_EQ(stops.load(std::memory_order_acquire), 2);
}

// Method: children that prepare themselves, so that nothing of it stays with the test program.
TEST(ServiceControlDeathTest, APreparedProcessSurvivesStopSignalsAndBrokenPipes) {
    const auto prepared = [] {
        ::signal(SIGINT, SIG_IGN);  // as a shell starts a background job
        PrepareProcess();
        ::raise(SIGTERM);
        ::raise(SIGPIPE);
        ::kill(::getpid(), SIGINT);
        sigset_t pending;
        ::sigpending(&pending);
        const bool kept = ::sigismember(&pending, SIGTERM) == 1 && ::sigismember(&pending, SIGINT) == 1;
        Event stopped;
        const ForegroundStop foreground([&] { stopped.Set(); });
        ::_exit(kept && stopped.WaitFor(10000) ? 0 : 1);
    };
    EXPECT_EXIT(prepared(), testing::ExitedWithCode(0), "");
}

TEST(ServiceControlDeathTest, APreparedProcessMayOpenAsManyFilesAsItIsAllowed) {
    const auto prepared = [] {
        rlimit limit{};
        ::getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = 16;
        ::setrlimit(RLIMIT_NOFILE, &limit);
        PrepareProcess();
        rlimit now{};
        ::getrlimit(RLIMIT_NOFILE, &now);
        ::_exit(now.rlim_cur == limit.rlim_max && now.rlim_max == limit.rlim_max ? 0 : 1);
    };
    EXPECT_EXIT(prepared(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace Platform
