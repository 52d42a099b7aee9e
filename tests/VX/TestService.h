// The two ends of a link as a test has them: both write down what they are told, and the service answers as the test
// wants.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Platform/Sync.h"
#include "VX/Link.h"

// What has been told, in its order, by any thread.
class TestNotes {
public:
    std::vector<std::string> Notes() {
        Platform::LockGuard guard(mutex_);
        return notes_;
    }

protected:
    void Note(std::string text) {
        Platform::LockGuard guard(mutex_);
        notes_.push_back(std::move(text));
        changed_.NotifyAll();
    }

    Platform::Mutex mutex_;
    Platform::CondVar changed_;
    std::vector<std::string> notes_ ORV_GUARDED_BY(mutex_);
};

class TestService : public VX::ILinkService, public TestNotes {
public:
    std::function<bool(const std::string&)> authenticate = [](const std::string& c) {
        return c == std::string("user:pass\0", 10);
    };
    std::function<VX::ParamListHolder(VX::SessionId, u32, const VX::ParamListHolder&)> onCall;

    std::string PeerType() const override { return "DBProvider"; }
    bool Authenticate(const std::string& credentials, const std::string& remote, std::string& user) override {
        Note("login from " + std::string(remote.empty() ? "nowhere" : "somewhere"));
        if (!authenticate(credentials)) return false;
        user = credentials.substr(0, credentials.find(':'));
        return true;
    }
    void OnConnected(VX::SessionId session, const std::string& user, const std::string& /*remote*/) override {
        Note("connected " + std::to_string(session) + " " + user);
    }
    void OnDisconnected(VX::SessionId session) override { Note("disconnected " + std::to_string(session)); }
    void OnFallenBehind(VX::SessionId session) override { Note("fallen behind " + std::to_string(session)); }
    VX::ParamListHolder OnCall(VX::SessionId session, u32 number, const VX::ParamListHolder& request) override {
        if (onCall) return onCall(session, number, request);
        VX::ParamListHolder reply;
        reply.NewList();
        VXSetInt32Value(reply.Get(), "number", static_cast<i32>(number));
        VXSetHandleValue(reply.Get(), "request", request.Get());
        return reply;
    }

    // Waits, five seconds at most, until the service has been told so.
    bool WaitFor(const std::string& note, u64 times = 1) {
        Platform::LockGuard guard(mutex_);
        for (u32 tries = 0; tries < 50; tries++) {
            u64 count = 0;
            for (const std::string& each : notes_) count += each == note;
            if (count >= times) return true;
            changed_.WaitFor(mutex_, 100);
        }
        return false;
    }
};

// The client's end of a link, which writes down the events.
class TestEvents : public VX::ILinkEvents, public TestNotes {
public:
    std::function<void()> inSignal;

    void OnSignal(const std::string& name, VX::ParamListHolder event) override {
        if (inSignal) inSignal();
        const char* text = VXGetStringValue(event.Get(), "text");
        Note(name + ":" + (text != nullptr ? text : ""));
    }
    void OnClosed() override { Note("closed"); }

    // Waits, ten seconds at most, until so many events have come.
    bool WaitForCount(u64 count) {
        Platform::LockGuard guard(mutex_);
        for (u32 tries = 0; tries < 100 && notes_.size() < count; tries++) changed_.WaitFor(mutex_, 100);
        return notes_.size() >= count;
    }
};

// An event with one text.
inline VX::ParamListHolder TextEvent(const std::string& text) {
    VX::ParamListHolder event;
    event.NewList();
    VXSetStringValue(event.Get(), "text", text.c_str());
    return event;
}
