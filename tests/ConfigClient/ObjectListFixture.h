// One table against a service in the same process. The calls that reached the service are the witness.
#pragma once

#include <string>
#include <vector>

#include "ConfigClient/ObjectList.h"
#include "ConfigWorld.h"

using Ids = std::vector<i32>;

class ObjectListTest : public ConfigWorld {
protected:
    void SetUp() override {
        ConfigWorld::SetUp();
        service_.tables["AUDIOFEED"] = {{1, MakeRow({{"pipename", "one"}, {"v", "1"}, {"number", 11}})},
                                        {2, MakeRow({{"pipename", "two"}, {"v", "2"}, {"number", 22}})},
                                        {5, MakeRow({{"pipename", "one"}, {"v", "5"}, {"number", 55}})}};
    }
    // Connects with a text index on pipename, before any row is read.
    ListHolder Open(const char* field = "pipename") {
        const ListHolder list = ConnectTo("AUDIOFEED");
        ConfigConnection::CreateIndex("AUDIOFEED", field, nullptr);
        return list;
    }
    ListHolder OpenAndLoad() {
        const ListHolder list = Open();
        list->LoadRows(IdsOf(list));
        service_.calls.clear();
        return list;
    }
    static std::string Found(const ListHolder& list, const char* field, const char* value, i32 n = 0) {
        return TextOf(list->FindRow(field, value, n), "v");
    }
    // "table kind id new/old" of each.
    static Texts Told(const ConfigConnection::PendingChanges& pending) {
        Texts texts;
        for (const auto& change : pending) {
            texts.push_back(change.table + " " + change.kind + " " + std::to_string(change.id) + " " +
                            TextOf(change.newRow, "v") + "/" + TextOf(change.oldRow, "v"));
        }
        return texts;
    }
};
