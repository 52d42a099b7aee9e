// Parameter lists: the one carrier of data between the exchange's programs. Every configuration row, request, reply
// and event is one.
//
// A list is an unordered bag of keyed values behind a counted handle. Counting is safe from any thread. A list is
// changed by the one thread that builds it; once it has been handed on it is only read, by any number of threads.
// Texts and records read from a list live as long as the list, even when their key is set again.
//
// A parameter record: one byte, the distance from the record's start to the value; the key with its NUL; at that
// distance one byte, the type; then the payload, little-endian and unaligned.
#pragma once

#include <string>

#include "Platform/Types.h"

struct VXParamListTag;
using HVXPARAMLIST = VXParamListTag*;  // null is no list
using VXParamRecord = const u8*;

enum VXType : u8 {
    VXTypeString = 1,    // the characters and a NUL
    VXTypeInt32 = 2,     // 4 bytes
    VXTypeInt64 = 3,     // 8 bytes
    VXTypeList = 4,      // 4-byte id, see VXGetHandleById
    VXTypeBinary = 5,    // 4-byte length, then the bytes
    VXTypeArray = 0x80,  // set beside the type of the elements; 4-byte count, then the elements
};

// The longest key that a record can carry. Setting a longer or empty key does nothing.
inline constexpr u32 VXMaxKeyLength = 253;

struct VXInt32Array {
    u32 count;
    const i32* values;  // may lie at an odd address: copy the bytes out
} __attribute__((packed));
struct VXHandleArray {
    u32 count;
    const i32* ids;  // of nested lists, for VXGetHandleById; may lie at an odd address
} __attribute__((packed));

// A new empty list with one reference. Never null.
HVXPARAMLIST VXCreateParamList();
// Adds a reference and returns the handle; null stays null.
HVXPARAMLIST VXReferenceHandle(HVXPARAMLIST list);
// Drops a reference; null is allowed.
void VXCloseHandle(HVXPARAMLIST list);

// Each adds a value or replaces the one of that key. A null list or key does nothing, a null text sets an empty one.
void VXSetStringValue(HVXPARAMLIST list, const char* key, const char* value);
void VXSetInt32Value(HVXPARAMLIST list, const char* key, i32 value);
void VXSetInt64Value(HVXPARAMLIST list, const char* key, i64 value);
void VXSetBinaryValue(HVXPARAMLIST list, const char* key, const void* bytes, u32 length);
void VXSetInt32Array(HVXPARAMLIST list, const char* key, const i32* values, u32 count);
// The list takes references of its own on what is nested in it; null elements become empty lists.
void VXSetHandleValue(HVXPARAMLIST list, const char* key, HVXPARAMLIST value);
void VXSetHandleArray(HVXPARAMLIST list, const char* key, const HVXPARAMLIST* values, u32 count);

// Null when the key is absent or of another type.
const char* VXGetStringValue(HVXPARAMLIST list, const char* key);
// 0 when the key is absent or of another type.
i32 VXGetInt32Value(HVXPARAMLIST list, const char* key);
// Also reads a 32-bit value. 0 when the key is absent or of another type.
i64 VXGetInt64Value(HVXPARAMLIST list, const char* key);
// To the 4-byte length, the bytes behind it. Null when the key is absent or of another type.
const u8* VXGetBinaryValue(HVXPARAMLIST list, const char* key);
// Fill the record and return it; count 0 and null when the key is absent or of another type.
VXInt32Array* VXGetInt32Array(VXInt32Array* record, HVXPARAMLIST list, const char* key);
VXHandleArray* VXGetHandleArray(VXHandleArray* record, HVXPARAMLIST list, const char* key);
// The nested list of that id in `list`, without a reference for the caller. Null when there is none.
HVXPARAMLIST VXGetHandleById(HVXPARAMLIST list, i32 id);

// Null when the key is absent.
VXParamRecord VXParamInfo(HVXPARAMLIST list, const char* key);
u32 VXGetParamCount(HVXPARAMLIST list);
// Walk all parameters, each once, in the order of their first setting. Null at the end.
VXParamRecord VXGetFirstParam(HVXPARAMLIST list);
VXParamRecord VXGetNextParam(HVXPARAMLIST list, VXParamRecord record);

// Reading a record.
inline const char* VXRecordKey(VXParamRecord record) {
    return reinterpret_cast<const char*>(record + 1);
}
inline u8 VXRecordType(VXParamRecord record) {
    return record[record[0]];
}
inline const u8* VXRecordPayload(VXParamRecord record) {
    return record + record[0] + 1;
}
i32 VXReadInt32(const u8* bytes);  // at any address

// The library's heap. Never null: throws std::bad_alloc. Null is freed without harm.
void* VXAllocate(u64 size);
void VXFree(void* memory);

namespace VX {

// Holds one list, or none.
class ParamListHolder {
public:
    ParamListHolder() noexcept = default;
    ParamListHolder(const ParamListHolder& other) noexcept : handle_(VXReferenceHandle(other.handle_)) {}
    ParamListHolder(ParamListHolder&& other) noexcept : handle_(other.handle_) { other.handle_ = nullptr; }
    ParamListHolder& operator=(ParamListHolder other) noexcept {
        Swap(other);
        return *this;
    }
    ~ParamListHolder() { VXCloseHandle(handle_); }

    // Makes a new empty list in the holder; what it held is let go. True.
    bool NewList();
    // The nested list of a key, with a reference of its own; empty when there is none.
    ParamListHolder GetHandle(const char* key) const;
    // A holder of a handle that the caller keeps its own reference to.
    static ParamListHolder FromHandle(HVXPARAMLIST handle) noexcept;
    // A holder that takes over a reference already counted.
    static ParamListHolder FromRefHandle(HVXPARAMLIST handle) noexcept;

    // The handle, still the holder's.
    HVXPARAMLIST Get() const noexcept { return handle_; }
    explicit operator bool() const noexcept { return handle_ != nullptr; }
    void Swap(ParamListHolder& other) noexcept {
        HVXPARAMLIST handle = handle_;
        handle_ = other.handle_;
        other.handle_ = handle;
    }

private:
    HVXPARAMLIST handle_ = nullptr;
};

// The standard allocator on the library's heap.
template <typename T>
struct VXLFHallocator_ {
    using value_type = T;
    VXLFHallocator_() noexcept = default;
    template <typename U>
    VXLFHallocator_(const VXLFHallocator_<U>&) noexcept {}
    T* allocate(std::size_t count) { return static_cast<T*>(VXAllocate(count * sizeof(T))); }
    void deallocate(T* memory, std::size_t) noexcept { VXFree(memory); }
    template <typename U>
    bool operator==(const VXLFHallocator_<U>&) const noexcept {
        return true;
    }
};

}  // namespace VX
