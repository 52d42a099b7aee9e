// The library on simulated threads, over a scripted link.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "Platform/Thread.h"
#include "Platform/sim/Simulation.h"
#include "VX/VX.h"
#include "tests/VX/ScriptedLink.h"

class RuntimeFixture : public ::testing::Test {
protected:
    using Lines = std::vector<std::string>;
    static constexpr u32 Slot = 0x80000001;
    static constexpr u32 OtherSlot = 0x80000002;

    RuntimeFixture() : connector_(script_) { current_ = this; }
    ~RuntimeFixture() override { current_ = nullptr; }

    // Runs the test with the library started, and the library's end after it.
    void Run(std::function<void()> body, u64 seed = 1, Platform::Sim::Options options = {}) {
        Platform::Sim::Simulation simulation(seed, options);
        simulation_ = &simulation;
        simulation.Run([&] {
            VXSetConnector(&connector_);
            VXSetConnectListener(&OnConnect);
            VXSetDisconnectListener(&OnDisconnect);
            VXSetAuthFailedListener(&OnAuthFailed);
            VXSetUnknownConnectListener(&OnUnknownConnect);
            ASSERT_EQ(VXInitialize("AudioProvider", 11, 12), 0u);
            body();
            VXShutdown(0);
        });
        simulation_ = nullptr;
    }

    // Connects with the standard credentials; the peer's name.
    static std::string Connect(u32 expected = 0) {
        char name[256] = "";
        EXPECT_EQ(VXConnect("127.0.0.1", 5480, name, sizeof(name), "user:pass", 10), expected);
        return name;
    }
    // Registers a handler that writes down the text of each event.
    void Record(u32 slot = Slot) { EXPECT_EQ(VXRegisterSlot(slot, &OnEvent, this), slot); }
    // Lets the library's thread do what it can.
    static void Settle() { Platform::SleepMilliseconds(1); }

    static i32 OnEvent(HVXPARAMLIST request, HVXPARAMLIST /*reply*/, VXSlotRecord* record) {
        auto& self = *static_cast<RuntimeFixture*>(record->user);
        const char* text = VXGetStringValue(request, "text");
        self.log_.emplace_back(text != nullptr ? text : "(none)");
        self.eventThreads_.push_back(Platform::CurrentThreadId());
        if (self.inHandler_) self.inHandler_();
        return 0;
    }
    static i32 OnConnect(const char* local, const char* remote, const char* application, u64 value1, u64 value2,
                         const char* applicationType) {
        current_->log_.push_back(std::string("connected ") + local + "," + remote + "," + application + "," +
                                 std::to_string(value1) + "," + std::to_string(value2) + "," + applicationType);
        if (current_->inConnect_) current_->inConnect_();
        return 0;
    }
    static i32 OnDisconnect(const char* application, u64 value1, u64 value2) {
        current_->log_.push_back(std::string("lost ") + application + "," + std::to_string(value1) + "," +
                                 std::to_string(value2));
        if (current_->inDisconnect_) current_->inDisconnect_();
        return 0;
    }
    static i32 OnAuthFailed(const char* remote, u64, u64) {
        current_->log_.push_back(std::string("refused ") + remote);
        current_->eventThreads_.push_back(Platform::CurrentThreadId());
        return 0;
    }
    static i32 OnUnknownConnect(const char* remote, u64, u64) {
        current_->log_.push_back(std::string("unknown ") + remote);
        return 0;
    }

    LinkScript script_;
    ScriptedConnector connector_;
    Platform::Sim::Simulation* simulation_ = nullptr;
    Lines log_;
    std::vector<u64> eventThreads_;
    std::function<void()> inHandler_;
    std::function<void()> inConnect_;
    std::function<void()> inDisconnect_;
    const std::string connected_ = "connected local,remote,ConfigService,11,12,DBProvider";

private:
    static inline RuntimeFixture* current_ = nullptr;
};
