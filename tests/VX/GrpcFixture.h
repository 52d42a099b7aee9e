// A server on a free port with a test's service behind it, and clients.
#pragma once

#include <grpcpp/grpcpp.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Platform/Clock.h"
#include "Platform/Thread.h"
#include "VX/GrpcOptions.h"
#include "VX/Link.grpc.pb.h"
#include "VX/ListCodec.h"
#include "tests/VX/TestService.h"

class GrpcFixture : public ::testing::Test {
protected:
    using Lines = std::vector<std::string>;

    void Listen(VX::GrpcOptions options = {}) {
        std::string reason;
        server_ = VX::CreateGrpcServer("", 0, service_, reason, "ConfigService", options);
        ASSERT_NE(server_, nullptr) << reason;
        ASSERT_NE(server_->Port(), 0u);
    }
    std::unique_ptr<VX::ILink> Connect(TestEvents& events, VX::GrpcOptions options = {}, u32 port = 0) {
        return VX::CreateGrpcConnector(options)->Connect("127.0.0.1", port != 0 ? port : server_->Port(), credentials_,
                                                         events, peer_, authFailed_);
    }
    static std::string TextOf(const VX::ParamListHolder& list) {
        const char* text = VXGetStringValue(list.Get(), "text");
        return text != nullptr ? text : "(none)";
    }

    TestService service_;
    std::unique_ptr<VX::ILinkServer> server_;
    std::string credentials_ = std::string("user:pass\0", 10);
    VX::PeerInfo peer_;
    bool authFailed_ = false;
};

// A client that speaks the protocol by hand, on a transport connection of its own.
class RawClient {
public:
    explicit RawClient(u32 port) {
        grpc::ChannelArguments arguments;
        arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
        arguments.SetInt(GRPC_ARG_ENABLE_HTTP_PROXY, 0);
        arguments.SetMaxSendMessageSize(-1);
        stub_ = orv::vx::Link::NewStub(grpc::CreateCustomChannel("dns:///127.0.0.1:" + std::to_string(port),
                                                                 grpc::InsecureChannelCredentials(), arguments));
    }
    ~RawClient() { End(); }

    // The session token; empty when the server did not welcome us.
    std::string Open(const std::string& credentials) {
        orv::vx::OpenRequest request;
        request.set_credentials(credentials);
        stream_ = stub_->Open(&context_, request);
        orv::vx::Message message;
        if (!stream_->Read(&message)) return "";
        return message.welcome().session();
    }
    // How the stream ended. Reads what is left of it.
    grpc::StatusCode Drain() {
        orv::vx::Message message;
        while (stream_->Read(&message)) messages_++;
        const grpc::Status status = stream_->Finish();
        stream_ = nullptr;
        return status.error_code();
    }
    void End() {
        context_.TryCancel();
        if (stream_ != nullptr) Drain();
    }
    grpc::StatusCode Call(const std::string& session, const std::string& request) {
        grpc::ClientContext context;
        orv::vx::CallRequest message;
        orv::vx::CallReply reply;
        message.set_session(session);
        message.set_request(request);
        return stub_->Call(&context, message, &reply).error_code();
    }
    u64 Messages() const { return messages_; }

private:
    std::unique_ptr<orv::vx::Link::Stub> stub_;
    grpc::ClientContext context_;
    std::unique_ptr<grpc::ClientReader<orv::vx::Message>> stream_;
    u64 messages_ = 0;
};
