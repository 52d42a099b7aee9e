#include "VX/ParamList.h"

#include <cstring>

#include "VX/ParamListStorage.h"

namespace {

// The record of a key if it is of that type, marked as given out.
const u8* FindTyped(HVXPARAMLIST list, const char* key, u8 type) {
    const u8* record = list != nullptr && key != nullptr ? list->Find(key) : nullptr;
    if (record == nullptr || VXRecordType(record) != type) return nullptr;
    VXParamListTag::MarkSeen(record);
    return record;
}

// The same without the mark, for values that are copied out.
const u8* FindPayload(HVXPARAMLIST list, const char* key, u8 type) {
    const u8* record = list != nullptr && key != nullptr ? list->Find(key) : nullptr;
    return record != nullptr && VXRecordType(record) == type ? VXRecordPayload(record) : nullptr;
}

VXParamRecord GiveOut(const u8* record) {
    if (record != nullptr) VXParamListTag::MarkSeen(record);
    return record;
}

// Numbers are little-endian in a record whatever the machine is.
template <typename T>
struct LittleEndian {
    u8 bytes[sizeof(T)];
    explicit LittleEndian(T value) {
        for (u8& byte : bytes) {
            byte = static_cast<u8>(value);
            value = static_cast<T>(value >> 8);
        }
    }
};

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "arrays are handed out as they lie in the record");

}  // namespace

HVXPARAMLIST VXCreateParamList() {
    return new VXParamListTag();
}

HVXPARAMLIST VXReferenceHandle(HVXPARAMLIST list) {
    if (list != nullptr) list->AddReference();
    return list;
}

void VXCloseHandle(HVXPARAMLIST list) {
    if (list != nullptr) VXParamListTag::Release(list);
}

void VXSetStringValue(HVXPARAMLIST list, const char* key, const char* value) {
    if (list == nullptr || key == nullptr) return;
    const char* text = value != nullptr ? value : "";
    list->Set(key, VXTypeString, nullptr, 0, text, std::strlen(text) + 1);
}

void VXSetInt32Value(HVXPARAMLIST list, const char* key, i32 value) {
    if (list == nullptr || key == nullptr) return;
    LittleEndian<u32> number(static_cast<u32>(value));
    list->Set(key, VXTypeInt32, number.bytes, sizeof(number.bytes), nullptr, 0);
}

void VXSetInt64Value(HVXPARAMLIST list, const char* key, i64 value) {
    if (list == nullptr || key == nullptr) return;
    LittleEndian<u64> number(static_cast<u64>(value));
    list->Set(key, VXTypeInt64, number.bytes, sizeof(number.bytes), nullptr, 0);
}

void VXSetBinaryValue(HVXPARAMLIST list, const char* key, const void* bytes, u32 length) {
    if (list == nullptr || key == nullptr) return;
    if (bytes == nullptr) length = 0;
    LittleEndian<u32> size(length);
    list->Set(key, VXTypeBinary, size.bytes, sizeof(size.bytes), bytes, length);
}

void VXSetInt32Array(HVXPARAMLIST list, const char* key, const i32* values, u32 count) {
    if (list == nullptr || key == nullptr) return;
    if (values == nullptr) count = 0;
    LittleEndian<u32> size(count);
    list->Set(key, VXTypeArray | VXTypeInt32, size.bytes, sizeof(size.bytes), values, 4ull * count);
}

void VXSetHandleValue(HVXPARAMLIST list, const char* key, HVXPARAMLIST value) {
    if (list != nullptr && key != nullptr) list->SetHandle(key, value);
}

void VXSetHandleArray(HVXPARAMLIST list, const char* key, const HVXPARAMLIST* values, u32 count) {
    if (list != nullptr && key != nullptr) list->SetHandles(key, values, values != nullptr ? count : 0);
}

const char* VXGetStringValue(HVXPARAMLIST list, const char* key) {
    const u8* record = FindTyped(list, key, VXTypeString);
    return record != nullptr ? reinterpret_cast<const char*>(VXRecordPayload(record)) : nullptr;
}

i32 VXGetInt32Value(HVXPARAMLIST list, const char* key) {
    const u8* payload = FindPayload(list, key, VXTypeInt32);
    return payload != nullptr ? VXReadInt32(payload) : 0;
}

i64 VXGetInt64Value(HVXPARAMLIST list, const char* key) {
    const u8* payload = FindPayload(list, key, VXTypeInt64);
    if (payload == nullptr) return VXGetInt32Value(list, key);
    const u64 low = static_cast<u32>(VXReadInt32(payload));
    const u64 high = static_cast<u32>(VXReadInt32(payload + 4));
    return static_cast<i64>(high << 32 | low);
}

const u8* VXGetBinaryValue(HVXPARAMLIST list, const char* key) {
    const u8* record = FindTyped(list, key, VXTypeBinary);
    return record != nullptr ? VXRecordPayload(record) : nullptr;
}

VXInt32Array* VXGetInt32Array(VXInt32Array* record, HVXPARAMLIST list, const char* key) {
    if (record == nullptr) return nullptr;
    *record = {0, nullptr};
    if (const u8* found = FindTyped(list, key, VXTypeArray | VXTypeInt32)) {
        const u8* payload = VXRecordPayload(found);
        *record = {static_cast<u32>(VXReadInt32(payload)), reinterpret_cast<const i32*>(payload + 4)};
    }
    return record;
}

VXHandleArray* VXGetHandleArray(VXHandleArray* record, HVXPARAMLIST list, const char* key) {
    if (record == nullptr) return nullptr;
    *record = {0, nullptr};
    if (const u8* found = FindTyped(list, key, VXTypeArray | VXTypeList)) {
        const u8* payload = VXRecordPayload(found);
        *record = {static_cast<u32>(VXReadInt32(payload)), reinterpret_cast<const i32*>(payload + 4)};
    }
    return record;
}

HVXPARAMLIST VXGetHandleById(HVXPARAMLIST list, i32 id) {
    return list != nullptr ? list->Nested(id) : nullptr;
}

VXParamRecord VXParamInfo(HVXPARAMLIST list, const char* key) {
    return list != nullptr && key != nullptr ? GiveOut(list->Find(key)) : nullptr;
}

u32 VXGetParamCount(HVXPARAMLIST list) {
    return list != nullptr ? list->Count() : 0;
}

VXParamRecord VXGetFirstParam(HVXPARAMLIST list) {
    return list != nullptr ? GiveOut(list->At(0)) : nullptr;
}

VXParamRecord VXGetNextParam(HVXPARAMLIST list, VXParamRecord record) {
    if (list == nullptr || record == nullptr) return nullptr;
    return GiveOut(list->At(VXParamListTag::PositionOf(record) + 1));
}

i32 VXReadInt32(const u8* bytes) {
    return static_cast<i32>(u32{bytes[0]} | u32{bytes[1]} << 8 | u32{bytes[2]} << 16 | u32{bytes[3]} << 24);
}

void* VXAllocate(u64 size) {
    return ::operator new(size);
}

void VXFree(void* memory) {
    ::operator delete(memory);
}

namespace VX {

bool ParamListHolder::NewList() {
    *this = FromRefHandle(VXCreateParamList());
    return true;
}

ParamListHolder ParamListHolder::GetHandle(const char* key) const {
    const u8* payload = FindPayload(handle_, key, VXTypeList);
    return payload != nullptr ? FromHandle(VXGetHandleById(handle_, VXReadInt32(payload))) : ParamListHolder();
}

ParamListHolder ParamListHolder::FromHandle(HVXPARAMLIST handle) noexcept {
    return FromRefHandle(VXReferenceHandle(handle));
}

ParamListHolder ParamListHolder::FromRefHandle(HVXPARAMLIST handle) noexcept {
    ParamListHolder holder;
    holder.handle_ = handle;
    return holder;
}

}  // namespace VX
