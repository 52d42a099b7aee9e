#include "tests/sim/Rows.h"

namespace OrvSim {

i32 Row::Number(const std::string& name) const {
    const auto found = fields.find(name);
    const i32* number = found == fields.end() ? nullptr : std::get_if<i32>(&found->second);
    return number == nullptr ? 0 : *number;
}

std::string Row::Text(const std::string& name) const {
    const auto found = fields.find(name);
    const std::string* text = found == fields.end() ? nullptr : std::get_if<std::string>(&found->second);
    return text == nullptr ? std::string() : *text;
}

VX::ParamListHolder ToList(const Row& row) {
    VX::ParamListHolder list;
    list.NewList();
    for (const auto& [name, value] : row.fields) {
        if (const i32* number = std::get_if<i32>(&value)) {
            VXSetInt32Value(list.Get(), name.c_str(), *number);
        } else {
            VXSetStringValue(list.Get(), name.c_str(), std::get<std::string>(value).c_str());
        }
    }
    return list;
}

Row FromList(HVXPARAMLIST list) {
    Row row;
    if (list == nullptr) return row;
    for (VXParamRecord record = VXGetFirstParam(list); record != nullptr; record = VXGetNextParam(list, record)) {
        const char* key = VXRecordKey(record);
        if (VXRecordType(record) == VXTypeInt32) {
            row.fields[key] = VXReadInt32(VXRecordPayload(record));
        } else if (VXRecordType(record) == VXTypeString) {
            row.fields[key] = std::string(reinterpret_cast<const char*>(VXRecordPayload(record)));
        }
    }
    return row;
}

std::string Describe(const Row& row) {
    std::string text = "{";
    for (const auto& [name, value] : row.fields) {
        const i32* number = std::get_if<i32>(&value);
        text += name + "=" + (number != nullptr ? std::to_string(*number) : std::get<std::string>(value)) + " ";
    }
    return text + "}";
}

}  // namespace OrvSim
