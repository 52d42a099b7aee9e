// Goal: whatever answers on the Configuration service's port, the audio feed service neither ends nor hangs nor grows
// without a limit; it says that it is not connected, and what plays plays on. Method: servers that answer garbage,
// wrong types, oversized lists or nothing, each with an audio feed service of its own, all at once.
#include <grpcpp/grpcpp.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <random>
#include <thread>

#include "VX/Link.grpc.pb.h"
#include "VX/ListCodec.h"
#include "tests/ConfigClient/FakeConfigService.h"
#include "tests/e2e/Exchange.h"
#include "tests/faults/Http2Peer.h"
#include "tests/faults/ProcessFigures.h"
#include "tests/faults/RawServer.h"

namespace OrvTest {
namespace {

constexpr char kCannot[] = "Can't connect to Configuration service on 127.0.0.1:";
constexpr char kLost[] = "[EC000001]: Connection with configuration server is lost";
constexpr long kMostKilobytes = 600 * 1024;
// What a service lets be under way on its link. It waits for ten seconds to be welcomed, from a moment on that a server
// does not see: what ends sooner than this was not ended by them.
constexpr std::uint64_t kTransportBytes = 256u << 20;
constexpr std::uint64_t kSoonMilliseconds = 5'000;

std::string Garbage(std::size_t size) {
    std::mt19937 random(7);
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    return bytes;
}

std::string Encode(const VX::ParamListHolder& list) {
    std::string bytes;
    EXPECT_TRUE(VX::EncodeParamList(list.Get(), bytes));
    return bytes;
}

// --- servers that are no gRPC servers -------------------------------------------------------------------------------

// Sends, then reads until the other side ends it, and closes.
RawServer::Behaviour Say(const std::string& bytes) {
    return [bytes](int socket, const std::atomic<bool>& stop) {
        Http2Peer peer(socket, true);
        peer.Send(bytes);
        while (!stop.load() && !peer.WaitForEnd(100)) {
        }
    };
}

// --- servers that speak the link's protocol --------------------------------------------------------------------------

class BadLink : public orv::vx::Link::Service {
public:
    // The reply to a call; empty: the good one.
    using Answer = std::function<std::optional<std::string>(u32 number)>;

    BadLink(Answer answer, std::vector<orv::vx::Message> messages)
        : answer_(std::move(answer)), messages_(std::move(messages)) {
        tables_.tables["AUDIOFEED"][1] =
            MakeRow({{"idaudiofeed", 1}, {"pipename", "hold"}, {"thename", "music"}, {"feedtype", 0}});
        grpc::ServerBuilder builder;
        builder.AddListeningPort("127.0.0.1:0", grpc::InsecureServerCredentials(), &port_);
        builder.SetMaxSendMessageSize(-1);
        builder.RegisterService(this);
        server_ = builder.BuildAndStart();
    }
    ~BadLink() override {
        stop_.store(true);
        server_->Shutdown(std::chrono::system_clock::now() + std::chrono::seconds(1));
    }
    int Port() const { return port_; }
    // Sends the messages to who is connected.
    void SayIt() { say_.store(true); }
    FakeConfigService& Tables() { return tables_; }
    // Never comes back to a call before its client has gone.
    bool silent = false;

    grpc::Status Open(grpc::ServerContext* context, const orv::vx::OpenRequest*,
                      grpc::ServerWriter<orv::vx::Message>* writer) override {
        orv::vx::Message message;
        message.mutable_welcome()->set_session("s");
        message.mutable_welcome()->set_application("ConfigService");
        message.mutable_welcome()->set_peer_type("DBProvider");
        writer->Write(message);
        bool said = false;
        while (!stop_.load() && !context->IsCancelled()) {
            if (say_.load() && !said) {
                for (const orv::vx::Message& each : messages_) writer->Write(each);
                said = true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return grpc::Status::OK;
    }
    grpc::Status Call(grpc::ServerContext* context, const orv::vx::CallRequest* request,
                      orv::vx::CallReply* reply) override {
        while (silent && !stop_.load() && !context->IsCancelled()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        if (answer_) {
            if (std::optional<std::string> bytes = answer_(request->number())) {
                reply->set_reply(std::move(*bytes));
                return grpc::Status::OK;
            }
        }
        VX::ParamListHolder list;
        if (!VX::DecodeParamList(request->request(), list)) return grpc::Status(grpc::StatusCode::INVALID_ARGUMENT, "");
        std::lock_guard guard(mutex_);
        reply->set_reply(Encode(tables_.OnCall(0, request->number(), list)));
        return grpc::Status::OK;
    }

private:
    const Answer answer_;
    const std::vector<orv::vx::Message> messages_;
    std::mutex mutex_;
    FakeConfigService tables_;
    int port_ = 0;
    std::atomic<bool> stop_{false};
    std::atomic<bool> say_{false};
    std::unique_ptr<grpc::Server> server_;
};

orv::vx::Message Signal(const std::string& name, const std::string& event) {
    orv::vx::Message message;
    message.mutable_signal()->set_name(name);
    message.mutable_signal()->set_event(event);
    return message;
}

// --- what is expected -----------------------------------------------------------------------------------------------

void Start(Exchange& exchange, int port) {
    WriteFileText(exchange.SettingsFile(), "[General]\nAppDataPath=" + (exchange.Folder() / "d") +
                                               "\nPipePath=" + exchange.PipeFolder() +
                                               "\n[ConfService]\nconfNIC=127.0.0.1\nConfPort=" + std::to_string(port) +
                                               "\nconfUser=feeder\nconfPass=x\n");
    exchange.Own(exchange.SettingsFile());
    exchange.StartFeeder(false);
}

void ExpectTheEnd(Exchange& exchange, const std::string& who) {
    ASSERT_TRUE(exchange.Feeder().Running()) << who;
    const long most = FigureOf(exchange.Feeder().Pid(), "VmHWM");
    EXPECT_LT(most, kMostKilobytes) << who;
    EXPECT_EQ(exchange.Feeder().Stop(60'000), 0) << who;
    std::printf("%s: %ld kB at most\n", who.c_str(), most);
}

void ExpectNoConnection(const std::string& who, const std::function<int(Exchange&)>& serve) {
    Exchange exchange;
    Start(exchange, serve(exchange));
    EXPECT_TRUE(exchange.WaitForLog(kCannot, 90'000)) << who;
    ExpectTheEnd(exchange, who);
}

void ExpectNoConnectionToRaw(const std::string& who, const RawServer::Behaviour& behaviour) {
    RawServer server(behaviour);
    ExpectNoConnection(who, [&](Exchange&) { return server.Port(); });
}

void ExpectNoConnectionToLink(const std::string& who, BadLink::Answer answer, bool silent = false) {
    BadLink server(std::move(answer), {});
    server.silent = silent;
    ExpectNoConnection(who, [&](Exchange&) { return server.Port(); });
}

// Connected, and the good feed plays; after what the server then says it plays on.
void ExpectToPlayOn(const std::string& who, BadLink& server, bool loses) {
    Exchange exchange;
    Start(exchange, server.Port());
    ASSERT_TRUE(exchange.WaitForLog("Connected to Configuration service 'ConfigService'", 60'000)) << who;
    Client client(exchange, "hold", 30'000);
    EXPECT_TRUE(client.WaitForBlocks(4, 30'000)) << who;
    server.SayIt();
    if (loses) {
        EXPECT_TRUE(exchange.WaitForLog(kLost, 60'000)) << who;
    }
    const std::size_t heard = client.Size();
    EXPECT_TRUE(client.WaitForBytes(heard + 8 * Model::BlockBytes, 30'000)) << who;
    if (!loses) {
        EXPECT_TRUE(exchange.LogTexts(kLost).empty()) << who;
    }
    ExpectTheEnd(exchange, who);
}

class Together {
public:
    ~Together() { Join(); }
    void Run(std::function<void()> scenario) { threads_.emplace_back(std::move(scenario)); }
    void Join() {
        for (std::thread& thread : threads_) thread.join();
        threads_.clear();
    }

private:
    std::vector<std::thread> threads_;
};

TEST(HostileServer, WhateverAnswersTheServiceNeitherEndsNorHangs) {
    const std::string settings = Http2Peer::Frame(4, 0, 0, "");
    // By itself, so that much of it is taken before the service gives up the login.
    EndlessMessage endless(1u << 30);
    ExpectNoConnectionToRaw("a message without an end", std::ref(endless));
    Together together;
    // --- no server of the link at all
    const std::vector<std::pair<std::string, RawServer::Behaviour>> raw = {
        {"ends each connection", [](int socket, const std::atomic<bool>&) { ::close(socket); }},
        {"says nothing", Say("")},
        {"garbage", Say(Garbage(200'000))},
        {"half a frame", Say(settings.substr(0, 5))},
        {"another protocol", Say("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello")},
        {"a frame of 16 MB", Say(settings + std::string("\xff\xff\xff\0\0\0\0\0\1", 9) + Garbage(1 << 20))},
    };
    for (const auto& [who, behaviour] : raw) {
        together.Run([who = who, behaviour = behaviour] { ExpectNoConnectionToRaw(who, behaviour); });
    }
    // --- the link's protocol, and what is in it makes no sense
    together.Run([] { ExpectNoConnectionToLink("calls that are never answered", {}, true); });
    together.Run([] { ExpectNoConnectionToLink("replies that are no lists", [](u32) { return Garbage(5000); }); });
    together.Run([] {
        ExpectNoConnectionToLink("replies larger than a message", [](u32) { return std::string(100u << 20, 'x'); });
    });
    together.Run([] {
        BadLink server(
            [](u32 number) -> std::optional<std::string> {
                // The second table's ids come as a text, and rows that nobody asked for.
                if (number == 8) return Encode(MakeRow({{"ids", "12345678"}}));
                return std::nullopt;
            },
            {});
        auto& feeds = server.Tables().tables["AUDIOFEED"];
        const std::string large(1 << 20, 'x');
        feeds[2] = MakeRow({{"idaudiofeed", "two"}, {"pipename", 7}, {"thename", 8}, {"feedtype", "three"}});
        const std::string longName(8'000, 'y');  // it stands in each line of the log that tells of the feed
        feeds[3] = MakeRow(
            {{"idaudiofeed", 3}, {"pipename", longName.c_str()}, {"thename", longName.c_str()}, {"feedtype", 3}});
        feeds[4] = MakeRow({{"v", 1}});
        feeds[-5] = MakeRow({{"idaudiofeed", 5}, {"pipename", "five"}, {"feedtype", -2147483647}, {"nonstop", "x"}});
        VXSetHandleValue(feeds[4].Get(), "pipename", feeds[2].Get());
        VXSetBinaryValue(feeds[4].Get(), "thename", "abc", 3);
        for (i32 id = 1; id < 50; ++id) {
            server.Tables().tables["ANNOUNCEMENT"][id] = MakeRow({{"idannouncement", id}, {"thename", large.c_str()}});
        }
        server.Tables().tables["PARAMETER"][1] = MakeRow({{"name", 5}, {"value", 6}});
        ExpectToPlayOn("rows of wrong types and of a megabyte", server, false);
    });
    together.Run([] {
        std::vector<i32> many(2'000'000);
        for (std::size_t i = 0; i < many.size(); ++i) many[i] = static_cast<i32>(i + 1);
        VX::ParamListHolder ids = MakeRow({});
        SetIds(ids, "ids", many);
        const std::string bytes = Encode(ids);
        Exchange exchange;
        BadLink server(
            [bytes](u32 number) -> std::optional<std::string> {
                if (number == 9) return bytes;
                return Encode(MakeRow({{"OD", 1}}));
            },
            {});
        Start(exchange, server.Port());
        EXPECT_TRUE(exchange.WaitForLog("Connected to Configuration service 'ConfigService'", 60'000));
        ExpectTheEnd(exchange, "two million ids and no row");
    });
    // --- a good start, and then
    const std::vector<std::pair<std::string, std::vector<orv::vx::Message>>> ends = {
        {"a signal that is no list", {Signal("BATCHUPDATE", Garbage(1000))}},
        {"a message that is nothing", {orv::vx::Message()}},
        {"a signal larger than a message", {Signal("BATCHUPDATE", std::string(100u << 20, 'x'))}},
    };
    for (const auto& [who, messages] : ends) {
        together.Run([who = who, messages = messages] {
            BadLink server({}, messages);
            ExpectToPlayOn(who, server, true);
        });
    }
    together.Run([] {
        const VX::ParamListHolder nested = MakeRow({{"DELETED", "12"}, {"UPDATED", 3}});
        const VX::ParamListHolder batch = MakeRow({{"__TRN", "5"}, {"PARAMETER", 1}});
        VXSetHandleValue(batch.Get(), "AUDIOFEED", nested.Get());
        VXSetHandleValue(batch.Get(), "USERS", nested.Get());
        std::vector<orv::vx::Message> messages = {
            Signal("BATCHUPDATE", Encode(batch)),
            Signal("", ""),
            Signal("UPDOfAUDIOFEED", ""),
            Signal("UPDOfAUDIOFEED", Encode(MakeRow({{"OC", 1}, {"TO", 2}, {"IDA", "3"}}))),
            Signal(Garbage(100'000), Encode(batch)),
            Signal("UPDOfAUDIOFEED", Encode(UpdateEvent("AUDIOFEED", "", {0, -1, 2147483647, 77})))};
        for (int i = 0; i < 2000; ++i)
            messages.push_back(Signal("UPDOfPARAMETER", Encode(UpdateEvent("PARAMETER", "D", {i}))));
        BadLink server({}, messages);
        ExpectToPlayOn("signals of wrong types", server, false);
    });
    together.Join();
    ASSERT_FALSE(endless.Tries().empty());
    for (const EndlessMessage::Try& one : endless.Tries()) {
        std::printf("a message without an end: %llu kB of it were taken in %llu ms\n",
                    static_cast<unsigned long long>(one.bytes / 1024),
                    static_cast<unsigned long long>(one.milliseconds));
        // Ended by the limit of what may be under way, unless the login's time was over before so much had come: how
        // fast it comes is the machine's. That the limit is one, with all the time there is, GrpcLinkTest shows.
        if (one.milliseconds < kSoonMilliseconds) {
            EXPECT_GT(one.bytes, kTransportBytes - kTransportBytes / 8) << "neither the limit nor the time ended it";
        }
        EXPECT_LT(one.bytes, kTransportBytes + kTransportBytes / 4);
    }
}

}  // namespace
}  // namespace OrvTest
