// A Configuration service in memory that tells which calls reached it.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Platform/Path.h"
#include "Rows.h"
#include "VX/Link.h"

class FakeConfigService : public VX::ILinkService {
public:
    std::map<std::string, std::map<i32, VX::ParamListHolder>> tables;
    std::vector<std::string> calls;
    std::string credentials;  // of the last try
    bool refuse = false;
    // Called before a reply goes out, which it may change.
    std::function<void(u32 number, VX::ParamListHolder& reply)> onReply;

    std::string PeerType() const override { return "DBProvider"; }
    bool Authenticate(const std::string& given, const std::string&, std::string&) override {
        credentials = given;
        return !refuse;
    }
    void OnConnected(VX::SessionId, const std::string&, const std::string&) override {}
    void OnDisconnected(VX::SessionId) override {}
    VX::ParamListHolder OnCall(VX::SessionId, u32 number, const VX::ParamListHolder& request) override {
        VX::ParamListHolder reply = MakeRow({});
        const std::string table = TextOf(request, "OC");
        if (number == 6) AnswerRow(table, VXGetInt32Value(request.Get(), "ID"), reply);
        if (number == 7) AnswerRows(table, ReadIds(request), reply);
        if (number == 8) AnswerSearch(request, reply);
        if (number == 9) AnswerIds(table, reply);
        if (onReply) onReply(number, reply);
        return reply;
    }

private:
    static std::vector<i32> ReadIds(const VX::ParamListHolder& request) {
        std::vector<i32> ids;
        const u8* bytes = VXGetBinaryValue(request.Get(), "ids");
        for (i32 at = 0; bytes != nullptr && at < VXReadInt32(bytes); at += 4)
            ids.push_back(VXReadInt32(bytes + 4 + at));
        return ids;
    }
    VX::ParamListHolder RowOrEmpty(const std::string& table, i32 id) {
        const auto found = tables[table].find(id);
        return found != tables[table].end() ? found->second : MakeRow({});
    }
    void AnswerRow(const std::string& table, i32 id, VX::ParamListHolder& reply) {
        calls.push_back("6 " + table + " " + std::to_string(id));
        VXSetHandleValue(reply.Get(), "OD", RowOrEmpty(table, id).Get());
    }
    void AnswerRows(const std::string& table, const std::vector<i32>& ids, VX::ParamListHolder& reply) {
        std::string text = "7 " + table;
        std::vector<VX::ParamListHolder> rows;
        std::vector<HVXPARAMLIST> handles;
        for (const i32 id : ids) {
            text += " " + std::to_string(id);
            rows.push_back(RowOrEmpty(table, id));
            handles.push_back(rows.back().Get());
        }
        calls.push_back(text);
        VXSetHandleArray(reply.Get(), "OD", handles.data(), static_cast<u32>(handles.size()));
    }
    void AnswerSearch(const VX::ParamListHolder& request, VX::ParamListHolder& reply) {
        const std::string name = TextOf(request, "TN");
        const std::string field = TextOf(request, "FF");
        const std::string value = TextOf(request, "FS");
        calls.push_back("8 " + name + " " + field + "=" + value);
        std::vector<i32> ids;
        for (const auto& [table, rows] : tables) {
            if (Platform::LowerAscii(table) != name) continue;
            for (const auto& [id, row] : rows) {
                if (VXGetStringValue(row.Get(), field.c_str()) != nullptr && TextOf(row, field.c_str()) == value) {
                    ids.push_back(id);
                }
            }
        }
        SetIds(reply, "ids", ids);
    }
    void AnswerIds(const std::string& table, VX::ParamListHolder& reply) {
        calls.push_back("9 " + table);
        std::vector<i32> ids;
        for (const auto& [id, row] : tables[table]) ids.push_back(id);
        SetIds(reply, "ids", ids);
    }
};
