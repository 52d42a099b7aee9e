// A Configuration service on a real database, with clients joined to it inside the test.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ConfigService/AdminProtocol.h"
#include "ConfigService/Service.h"
#include "ConfigService/Wire.h"
#include "tests/support/Process.h"

namespace Orv {

// One client, with every signal that it was told. Signals come on the thread that raises them.
class Client : public VX::ILinkEvents {
public:
    void OnSignal(const std::string& name, VX::ParamListHolder event) override {
        Platform::LockGuard<Platform::Mutex> guard(mutex_);
        signals_.emplace_back(name, std::move(event));
    }
    void OnClosed() override {}

    std::vector<std::pair<std::string, VX::ParamListHolder>> Signals() {
        Platform::LockGuard<Platform::Mutex> guard(mutex_);
        return signals_;
    }
    VX::ParamListHolder Call(u32 number, const VX::ParamListHolder& request) {
        VX::ParamListHolder reply;
        EXPECT_TRUE(link->Call(number, request, reply));
        return reply;
    }
    ApplyResult Apply(const std::vector<Change>& changes) {
        return ResultFromList(Call(AdminProtocol::CallApply, ChangesToList(changes)), result);
    }

    std::unique_ptr<VX::ILink> link;
    VX::PeerInfo peer;
    std::string result;  // the word of the last Apply()

private:
    Platform::Mutex mutex_;
    std::vector<std::pair<std::string, VX::ParamListHolder>> signals_;
};

class ServiceFixture : public ::testing::Test {
protected:
    void SetUp() override {
        std::string reason;
        store_ = Store::Open(database_, reason);
        ASSERT_NE(store_, nullptr) << reason;
        users_ = Users::Open(database_, reason);
        ASSERT_NE(users_, nullptr) << reason;
        ASSERT_EQ(users_->Add("root", Role::Admin, "secret").outcome, UserOutcome::Done);
        ASSERT_EQ(users_->Add("feeder", Role::Reader, "secret").outcome, UserOutcome::Done);
        service_ = std::make_unique<ConfigService>(*store_, *users_, log_, "1.2.3", database_);
        exchange_ = std::make_unique<VX::InProcessExchange>(*service_);
        service_->Attach(exchange_.get());
    }
    std::unique_ptr<Client> Connect(const std::string& user = "root") {
        auto client = std::make_unique<Client>();
        bool authFailed = false;
        client->link = exchange_->Connect("127.0.0.1", 1, user + ":secret", *client, client->peer, authFailed);
        EXPECT_NE(client->link, nullptr);
        return client;
    }

    static VX::ParamListHolder Request(const std::vector<std::pair<const char*, std::string>>& texts) {
        VX::ParamListHolder list;
        list.NewList();
        for (const auto& [key, text] : texts) VXSetStringValue(list.Get(), key, text.c_str());
        return list;
    }
    static Change Feed(Action action, const std::string& pipe, std::vector<std::pair<std::string, Value>> values = {}) {
        return {"AUDIOFEED", action, 0, pipe, std::move(values)};
    }
    static Change Set(const std::string& name, const std::string& value) {
        return {"PARAMETER", Action::Put, 0, name, {{"value", value}}};
    }

    OrvTest::TempFolder folder_;
    const std::string database_ = folder_ / "config.db";
    std::vector<std::string> lines_;
    ServiceLog log_{[this](const std::string& line) { lines_.push_back(line); }};
    std::unique_ptr<Store> store_;
    std::unique_ptr<Users> users_;
    std::unique_ptr<ConfigService> service_;
    std::unique_ptr<VX::InProcessExchange> exchange_;
};

}  // namespace Orv
