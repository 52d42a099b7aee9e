#include "VX/ListCopy.h"

#include <vector>

#include "VX/ParamListStorage.h"

namespace VX {

namespace {

// One copy under way, with what it may still take.
class Copier {
public:
    bool Copy(HVXPARAMLIST from, HVXPARAMLIST to, u32 depth) {
        if (depth > MaxNesting) return false;
        for (VXParamRecord record = VXGetFirstParam(from); record != nullptr; record = VXGetNextParam(from, record)) {
            if (!CopyParam(from, record, to, depth)) return false;
        }
        return true;
    }

private:
    bool Take(u64 bytes) {
        if (bytes > left_) return false;
        left_ -= bytes;
        return true;
    }

    bool CopyParam(HVXPARAMLIST from, VXParamRecord record, HVXPARAMLIST to, u32 depth) {
        const char* key = VXRecordKey(record);
        const u8* payload = VXRecordPayload(record);
        if (!Take(record[0])) return false;
        switch (VXRecordType(record)) {
            case VXTypeString:
                VXSetStringValue(to, key, reinterpret_cast<const char*>(payload));
                return Take(std::char_traits<char>::length(reinterpret_cast<const char*>(payload)));
            case VXTypeInt32:
                VXSetInt32Value(to, key, VXReadInt32(payload));
                return Take(4);
            case VXTypeInt64:
                VXSetInt64Value(to, key, VXGetInt64Value(from, key));
                return Take(8);
            case VXTypeBinary:
                VXSetBinaryValue(to, key, payload + 4, Count(payload));
                return Take(Count(payload));
            case VXTypeArray | VXTypeInt32:
                to->Set(key, VXTypeArray | VXTypeInt32, payload, 4, payload + 4, 4ull * Count(payload));
                return Take(4ull * Count(payload));
            case VXTypeList:
                return CopyNested(from, key, payload, 1, to, depth, false);
            case VXTypeArray | VXTypeList:
                return CopyNested(from, key, payload + 4, Count(payload), to, depth, true);
            default:
                return false;
        }
    }

    bool CopyNested(HVXPARAMLIST from, const char* key, const u8* ids, u32 count, HVXPARAMLIST to, u32 depth,
                    bool asArray) {
        std::vector<ParamListHolder> copies(count);
        std::vector<HVXPARAMLIST> handles;
        handles.reserve(count);
        for (u32 i = 0; i < count; i++) {
            copies[i].NewList();
            if (!Take(1) || !Copy(VXGetHandleById(from, VXReadInt32(ids + 4ull * i)), copies[i].Get(), depth + 1)) {
                return false;
            }
            handles.push_back(copies[i].Get());
        }
        if (asArray) {
            VXSetHandleArray(to, key, handles.data(), count);
        } else {
            VXSetHandleValue(to, key, handles[0]);
        }
        return true;
    }

    static u32 Count(const u8* payload) { return static_cast<u32>(VXReadInt32(payload)); }

    u64 left_ = MaxMessageBytes;
};

}  // namespace

u64 ParamListBytes(HVXPARAMLIST list) {
    if (list == nullptr) return 0;
    u64 bytes = list->Bytes();
    for (i32 id = 1; id <= list->NestedCount(); id++) bytes += ParamListBytes(list->Nested(id));
    return bytes;
}

bool CopyParamList(HVXPARAMLIST list, ParamListHolder& copy) {
    ParamListHolder made;
    made.NewList();
    if (!Copier().Copy(list, made.Get(), 1)) return false;
    copy = std::move(made);
    return true;
}

}  // namespace VX
