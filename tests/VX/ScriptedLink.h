// A link whose other end is the test itself.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "VX/Link.h"

// What the test sees and decides. Lives as long as the connector and its links.
struct LinkScript {
    // The answers of Connect().
    bool answers = true;
    bool refuses = false;
    VX::PeerInfo peer = {"ConfigService", "local", "remote", "DBProvider"};
    std::function<void(VX::ILinkEvents&)> duringConnect;
    std::function<bool(u32, const VX::ParamListHolder&, VX::ParamListHolder&)> onCall;

    // What Connect() was given, and what became of the links.
    std::string host;
    u32 port = 0;
    std::string credentials;
    std::vector<VX::ILinkEvents*> events;  // one for each link, in order
    u32 closed = 0;
    u32 destroyed = 0;

    void Signal(const std::string& name, const char* text, u64 link = 0) {
        VX::ParamListHolder event;
        event.NewList();
        VXSetStringValue(event.Get(), "text", text);
        events.at(link)->OnSignal(name, event);
    }
};

class ScriptedConnector : public VX::ILinkConnector {
public:
    explicit ScriptedConnector(LinkScript& script) : script_(script) {}

    std::unique_ptr<VX::ILink> Connect(const std::string& host, u32 port, const std::string& credentials,
                                       VX::ILinkEvents& events, VX::PeerInfo& peer, bool& authFailed) override {
        script_.host = host;
        script_.port = port;
        script_.credentials = credentials;
        authFailed = script_.refuses;
        if (!script_.answers || script_.refuses) return nullptr;
        script_.events.push_back(&events);
        if (script_.duringConnect) script_.duringConnect(events);
        peer = script_.peer;
        return std::make_unique<Link>(script_);
    }

private:
    class Link : public VX::ILink {
    public:
        explicit Link(LinkScript& script) : script_(script) {}
        ~Link() override {
            Close();
            script_.destroyed++;
        }
        bool Call(u32 number, const VX::ParamListHolder& request, VX::ParamListHolder& reply) override {
            return script_.onCall && script_.onCall(number, request, reply);
        }
        void Close() override {
            if (!open_) return;
            open_ = false;
            script_.closed++;
        }

    private:
        LinkScript& script_;
        bool open_ = true;
    };

    LinkScript& script_;
};
