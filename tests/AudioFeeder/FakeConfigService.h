// A Configuration service inside the test's process: tables in memory, answered and signalled over the library.
#pragma once

#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "VX/VX.h"
#include "tests/AudioFeeder/FeederWorld.h"

namespace FeederTest {

class FakeConfigService : public VX::ILinkService {
public:
    using Table = std::map<i32, VX::ParamListHolder>;

    FakeConfigService() : exchange_(*this) {}

    // Rows. No signal goes out.
    void Put(const std::string& table, i32 id, std::initializer_list<Field> fields);
    void PutParameter(i32 id, const char* name, const char* value);
    void Erase(const std::string& table, i32 id) { tables_[table].erase(id); }
    // Tells the change of one row: "Inserted", "Updated" or "Deleted".
    void Tell(const std::string& table, const char* kind, i32 id);
    // Tells a transaction that concerns one table.
    void TellTransaction(i64 number, const std::string& table, const std::vector<i32>& deleted,
                         const std::vector<i32>& updated);

    const Table& Rows(const std::string& table) { return tables_[table]; }

    VX::InProcessExchange& Exchange() { return exchange_; }
    // While set, nobody may connect.
    bool refuse = false;
    // What was asked for, in order: the credentials of each try with their terminating zero, and "<call> <table>".
    std::vector<std::string> credentials;
    std::vector<std::string> calls;

    // As the host does it: connects the library and the tables, makes the indexes, reads the rows.
    void ConnectTables();
    static void DisconnectTables();

    std::string PeerType() const override { return "DBProvider"; }
    bool Authenticate(const std::string& given, const std::string& remote, std::string& user) override;
    void OnConnected(VX::SessionId, const std::string&, const std::string&) override {}
    void OnDisconnected(VX::SessionId) override {}
    VX::ParamListHolder OnCall(VX::SessionId session, u32 number, const VX::ParamListHolder& request) override;

private:
    std::map<std::string, Table> tables_;
    VX::InProcessExchange exchange_;
};

}  // namespace FeederTest
