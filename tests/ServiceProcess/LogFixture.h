// A log on a simulated disk.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "Platform/Thread.h"
#include "Platform/sim/Simulation.h"
#include "ServiceProcess/Log.h"

class LogFixture : public testing::Test {
protected:
    // The calendar stands at 2024-03-05 10:20:30.000 until a test turns it.
    void SetUp() override {
        Platform::Sim::ResetProcessWorld();
        Files().AddFolder("/log");
    }

    static Platform::Sim::SimFiles& Files() { return Platform::Sim::Files(); }
    static void Later(u64 milliseconds) { Platform::Sim::Clock().Advance(milliseconds * 1'000'000); }

    // What a line of this thread has in front of its level word.
    static std::string At(const char* time) {
        char id[32];
        std::snprintf(id, sizeof id, "%08llu", static_cast<unsigned long long>(Platform::CurrentThreadId()));
        return std::string(time) + "|" + id + "|";
    }

    static constexpr u64 kNoLimit = 1u << 20;
    static constexpr char kFile[] = "/log/OrvAudioProvider.2024-03-05.102030.log";
    static constexpr char kArchived[] = "/log/Backup/20240305/OrvAudioProvider.2024-03-05.102030.log";
};
