// An application that tells what was done to it.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Platform/Sync.h"
#include "ServiceProcess/ServiceHost.h"

struct HostRecord {
    std::vector<std::string> events;
    Platform::Event stopped;
    std::function<void(Orv::ServiceHost&, u32 argCount, void* args)> run;  // what Run() does besides
    std::function<void()> control;                                         // and what OnControl() does
    int alive = 0;
    u32 answer = 3;  // to every control
};

class HostProbe : public Orv::ServiceHost {
public:
    HostProbe(const char* name, HostRecord& record, bool valid = true)
        : ServiceHost(name), record_(record), valid_(valid) {
        ++record_.alive;
    }
    ~HostProbe() override { --record_.alive; }
    void Run(u32 argCount, void* args) override {
        record_.events.push_back("run " + Name());
        if (record_.run) record_.run(*this, argCount, args);
    }
    u32 OnControl(u32 control, u32 eventType, void*) override {
        record_.events.push_back("control " + std::to_string(control) + " " + std::to_string(eventType));
        if (record_.control) record_.control();
        if (control == 1 || control == 5) record_.stopped.Set();
        return record_.answer;
    }

protected:
    bool TestValid() const override { return valid_; }

private:
    HostRecord& record_;
    bool valid_;
};
