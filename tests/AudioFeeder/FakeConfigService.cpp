#include "tests/AudioFeeder/FakeConfigService.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstring>

#include "ConfigClient/ConfigConnection.h"
#include "ConfigClient/ObjectList.h"

namespace FeederTest {

namespace {

constexpr const char* kTables[] = {"AUDIOFEED", "AUDIOFEEDCONTENT", "ANNOUNCEMENT", "PARAMETER"};

std::string Upper(std::string text) {
    for (char& letter : text) letter = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
    return text;
}

}  // namespace

void FakeConfigService::Put(const std::string& table, i32 id, std::initializer_list<Field> fields) {
    tables_[table][id] = MakeList(fields);
}

void FakeConfigService::PutParameter(i32 id, const char* name, const char* value) {
    Put("PARAMETER", id, {{"idparameter", id}, {"name", name}, {"value", value}});
}

void FakeConfigService::Tell(const std::string& table, const char* kind, i32 id) {
    VX::ParamListHolder event;
    event.NewList();
    VXSetStringValue(event.Get(), "OC", table.c_str());
    VXSetStringValue(event.Get(), "TO", kind);
    VXSetInt32Array(event.Get(), "IDA", &id, 1);
    exchange_.Raise("UPDOf" + table, event);
}

void FakeConfigService::TellTransaction(i64 number, const std::string& table, const std::vector<i32>& deleted,
                                        const std::vector<i32>& updated) {
    VX::ParamListHolder event;
    event.NewList();
    VXSetInt64Value(event.Get(), "__TRN", number);
    VX::ParamListHolder changes;
    changes.NewList();
    if (!deleted.empty())
        VXSetBinaryValue(changes.Get(), "DELETED", deleted.data(), static_cast<u32>(deleted.size() * 4));
    if (!updated.empty())
        VXSetBinaryValue(changes.Get(), "UPDATED", updated.data(), static_cast<u32>(updated.size() * 4));
    VXSetHandleValue(event.Get(), table.c_str(), changes.Get());
    exchange_.Raise("BATCHUPDATE", event);
}

bool FakeConfigService::Authenticate(const std::string& given, const std::string&, std::string& user) {
    credentials.push_back(given);
    user = given.substr(0, given.find(':'));
    return !refuse;
}

VX::ParamListHolder FakeConfigService::OnCall(VX::SessionId, u32 number, const VX::ParamListHolder& request) {
    VX::ParamListHolder reply;
    reply.NewList();
    const char* name = VXGetStringValue(request.Get(), number == 8 ? "TN" : "OC");
    const std::string table = Upper(name != nullptr ? name : "");
    calls.push_back(std::to_string(number) + " " + table);
    const Table& rows = tables_[table];
    VX::ParamListHolder none;
    none.NewList();
    if (number == 6) {
        const auto row = rows.find(VXGetInt32Value(request.Get(), "ID"));
        VXSetHandleValue(reply.Get(), "OD", row != rows.end() ? row->second.Get() : none.Get());
    } else if (number == 7) {
        const u8* binary = VXGetBinaryValue(request.Get(), "ids");
        std::vector<HVXPARAMLIST> found;
        for (i32 offset = 0; offset < VXReadInt32(binary); offset += 4) {
            const auto row = rows.find(VXReadInt32(binary + 4 + offset));
            found.push_back(row != rows.end() ? row->second.Get() : none.Get());
        }
        VXSetHandleArray(reply.Get(), "OD", found.data(), static_cast<u32>(found.size()));
    } else if (number == 8 || number == 9) {
        std::vector<i32> ids;
        for (const auto& [id, row] : rows) {
            const char* value = number == 8 ? VXGetStringValue(row.Get(), VXGetStringValue(request.Get(), "FF")) : "";
            const char* wanted = number == 8 ? VXGetStringValue(request.Get(), "FS") : "";
            if (value != nullptr && std::strcmp(value, wanted) == 0) ids.push_back(id);
        }
        VXSetBinaryValue(reply.Get(), "ids", ids.data(), static_cast<u32>(ids.size() * sizeof(i32)));
    }
    return reply;
}

void FakeConfigService::ConnectTables() {
    VXSetConnector(&exchange_);
    VXInitialize("AudioProvider", 0, 0);
    const std::string credentialsText = "user:password";
    ASSERT_TRUE(ConfigConnection::Connect("127.0.0.1", 1, kTables, 4, credentialsText.c_str(),
                                          static_cast<u32>(credentialsText.size() + 1)));
    ConfigConnection::CreateIndex("AUDIOFEED", "pipename", nullptr);
    ConfigConnection::CreateIndex("ANNOUNCEMENT", "thename", nullptr);
    ConfigConnection::CreateIndex("PARAMETER", "name", nullptr);
    for (const char* table : kTables) {
        std::vector<i32> ids;
        ConfigConnection::GetList(table)->GetIds(ids);
        ConfigConnection::GetList(table)->LoadRows(ids);
    }
}

void FakeConfigService::DisconnectTables() {
    ConfigConnection::Disconnect();
    VXShutdown(0);
}

}  // namespace FeederTest
