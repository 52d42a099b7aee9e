#include <google/protobuf/arena.h>

#include "VX/Link.pb.h"
#include "VX/ListCodec.h"

namespace VX {

namespace {

u32 CountOf(const u8* payload) {
    return static_cast<u32>(VXReadInt32(payload));
}

bool FillList(HVXPARAMLIST list, orv::vx::ParamList& message, u32 depth);

bool FillParam(HVXPARAMLIST list, VXParamRecord record, orv::vx::Param& param, u32 depth) {
    const u8* payload = VXRecordPayload(record);
    param.set_key(VXRecordKey(record));
    switch (VXRecordType(record)) {
        case VXTypeString:
            param.set_text(reinterpret_cast<const char*>(payload));
            return true;
        case VXTypeInt32:
            param.set_number(VXReadInt32(payload));
            return true;
        case VXTypeInt64:
            param.set_long_number(VXGetInt64Value(list, VXRecordKey(record)));
            return true;
        case VXTypeBinary:
            param.set_binary(payload + 4, CountOf(payload));
            return true;
        case VXTypeList:
            return FillList(VXGetHandleById(list, VXReadInt32(payload)), *param.mutable_list(), depth + 1);
        case VXTypeArray | VXTypeInt32: {
            auto& values = *param.mutable_numbers()->mutable_values();
            for (u32 i = 0; i < CountOf(payload); i++) values.Add(VXReadInt32(payload + 4 + 4ull * i));
            return true;
        }
        case VXTypeArray | VXTypeList: {
            auto& lists = *param.mutable_lists()->mutable_lists();
            for (u32 i = 0; i < CountOf(payload); i++) {
                const i32 id = VXReadInt32(payload + 4 + 4ull * i);
                if (!FillList(VXGetHandleById(list, id), *lists.Add(), depth + 1)) return false;
            }
            return true;
        }
        default:
            return false;
    }
}

bool FillList(HVXPARAMLIST list, orv::vx::ParamList& message, u32 depth) {
    if (depth > MaxNesting) return false;
    for (VXParamRecord record = VXGetFirstParam(list); record != nullptr; record = VXGetNextParam(list, record)) {
        if (!FillParam(list, record, *message.add_params(), depth)) return false;
    }
    return true;
}

}  // namespace

bool EncodeParamList(HVXPARAMLIST list, std::string& bytes) {
    google::protobuf::Arena arena;
    auto& message = *google::protobuf::Arena::CreateMessage<orv::vx::ParamList>(&arena);
    if (!FillList(list, message, 1) || message.ByteSizeLong() > MaxMessageBytes) return false;
    return message.SerializeToString(&bytes);
}

}  // namespace VX
