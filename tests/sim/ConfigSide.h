// The Configuration service at the other end of the in-process link: the tables, and what is told of their changes.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "VX/VX.h"
#include "tests/sim/Checker.h"
#include "tests/sim/Rows.h"

namespace OrvSim {

class ConfigSide : public VX::ILinkService {
public:
    explicit ConfigSide(Checker& checker) : checker_(checker), exchange_(*this) {}

    struct Change {
        std::string table;
        i32 id = 0;
        std::optional<Row> row;  // none: deleted
    };

    // At the start, told to nobody.
    void Put(const std::string& table, i32 id, const Row& row) { tables_[table][id] = row; }
    // One row, told as "UPDOf<table>".
    void Commit(const Change& change);
    // Several rows, told as one "BATCHUPDATE".
    void CommitBatch(const std::vector<Change>& changes);
    const Table& Rows(const std::string& table) { return tables_[table]; }
    const Tables& All() const { return tables_; }

    VX::InProcessExchange& Exchange() { return exchange_; }
    // Called in each call before it is answered; may sleep.
    std::function<void()> beforeAnswer;

    std::string PeerType() const override { return "DBProvider"; }
    bool Authenticate(const std::string& given, const std::string&, std::string& user) override {
        user = given.substr(0, given.find(':'));
        return true;
    }
    void OnConnected(VX::SessionId, const std::string&, const std::string&) override {}
    void OnDisconnected(VX::SessionId) override {}
    VX::ParamListHolder OnCall(VX::SessionId session, u32 number, const VX::ParamListHolder& request) override;

private:
    Row RowOf(const std::string& table, i32 id) const;
    void Store(const Change& change);

    Checker& checker_;
    Tables tables_;
    i32 transaction_ = 0;
    VX::InProcessExchange exchange_;
};

}  // namespace OrvSim
