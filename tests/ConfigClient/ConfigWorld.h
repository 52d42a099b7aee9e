// The configuration client against a Configuration service in the same process, on simulated threads.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "ConfigClient/ConfigConnection.h"
#include "ConfigClient/Connection.h"
#include "ConfigClient/ObjectList.h"
#include "FakeConfigService.h"
#include "Platform/Thread.h"
#include "Platform/sim/Simulation.h"
#include "Rows.h"
#include "VX/VX.h"

using Texts = std::vector<std::string>;
using ListHolder = MTObjects::THolder<ConfigConnection::TObjectListImpl>;

class ConfigWorld : public testing::Test {
protected:
    explicit ConfigWorld(u64 seed = 1, Platform::Sim::Options options = {}) : sim_(seed, options) {}
    void SetUp() override { told_.clear(); }

    // Runs `body` between the start of the library and its end.
    void Run(const std::function<void()>& body) {
        sim_.Run([&] {
            VXSetConnector(&exchange_);
            EXPECT_EQ(VXInitialize("AudioProvider", 0, 0), 0u);
            body();
            ConfigConnection::Disconnect();
            VXShutdown(0);
            VXSetConnector(nullptr);
            ConfigConnection::ChangeListener = nullptr;
            ConfigConnection::Connection::Instance().SetApplication(nullptr);
            onTell_ = nullptr;
        });
    }
    bool Connect(const std::vector<const char*>& tables) {
        const std::string credentials = "user:secret";
        return ConfigConnection::Connect("127.0.0.1", 5484, tables.data(), static_cast<u32>(tables.size()),
                                         credentials.c_str(), static_cast<u32>(credentials.size() + 1));
    }
    // Connects to one table and forgets the calls that it took.
    ListHolder ConnectTo(const char* table) {
        EXPECT_TRUE(Connect({table}));
        service_.calls.clear();
        return ConfigConnection::GetList(table);
    }
    // Listens, and writes down what is told as "table kind id new/old", a row as its text "v".
    void Listen() { ConfigConnection::ChangeListener = Tell; }
    void Raise(const std::string& signal, const VX::ParamListHolder& event) {
        exchange_.Raise(signal, event);
        Platform::SleepMilliseconds(100);  // until the library's thread has nothing more to do
    }
    static std::vector<i32> IdsOf(const ListHolder& list) {
        std::vector<i32> ids;
        list->GetIds(ids);
        return ids;
    }

    Platform::Sim::Simulation sim_;
    FakeConfigService service_;
    VX::InProcessExchange exchange_{service_, "ConfigService"};
    static inline Texts told_;
    static inline std::function<void(const char* table, const char* kind)> onTell_;

private:
    static void Tell(const char* table, const char* kind, u32 id, VX::ParamListHolder* newRow,
                     VX::ParamListHolder* oldRow) {
        told_.push_back(std::string(table) + " " + kind + " " + std::to_string(id) + " " + TextOf(*newRow, "v") + "/" +
                        TextOf(*oldRow, "v"));
        if (onTell_) onTell_(table, kind);
    }
};
