// What stands behind a list handle. Only the library's own files include this.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string_view>
#include <vector>

#include "VX/ParamList.h"

// One list. References may be taken and dropped on any thread; everything else as told for lists: one builder, then
// readers only.
struct VXParamListTag {
public:
    VXParamListTag() noexcept = default;
    VXParamListTag(const VXParamListTag&) = delete;
    VXParamListTag& operator=(const VXParamListTag&) = delete;

    static void* operator new(std::size_t size) { return VXAllocate(size); }
    static void operator delete(void* memory) { VXFree(memory); }

    void AddReference() noexcept { references_.fetch_add(1, std::memory_order_relaxed); }
    // Drops one reference. With the last one the list is deleted, and so is what was nested in it alone.
    static void Release(VXParamListTag* list) noexcept;

    // Adds a value or replaces the one of that key; the payload is `head` followed by `body`. A key that no record can
    // carry is ignored.
    void Set(const char* key, u8 type, const void* head, u64 headSize, const void* body, u64 bodySize);
    // The same for lists; null ones and the list itself become empty lists.
    void SetHandle(const char* key, VXParamListTag* value);
    void SetHandles(const char* key, VXParamListTag* const* values, u32 count);

    // The record of a key, or null.
    u8* Find(const char* key) const noexcept;
    u8* At(u32 position) const noexcept { return position < records_.size() ? records_[position] : nullptr; }
    u32 Count() const noexcept { return static_cast<u32>(records_.size()); }
    VXParamListTag* Nested(i32 id) const noexcept;
    // Ids go from 1 to this; some may be free.
    i32 NestedCount() const noexcept { return static_cast<i32>(nested_.size()); }
    // Memory that this list takes, without what is nested in it.
    u64 Bytes() const noexcept { return sizeof(VXParamListTag) + bytes_; }

    // Position of a record among the parameters of its list; that of a replaced one is its successor's too.
    static u32 PositionOf(const u8* record) noexcept;
    // To be called before the address of a record, or one inside it, is given out: from then on the record stays as
    // long as the list. Any thread.
    static void MarkSeen(const u8* record) noexcept;

private:
    template <typename T>
    using Vector = std::vector<T, VX::VXLFHallocator_<T>>;
    using Index =
        std::map<std::string_view, u32, std::less<>, VX::VXLFHallocator_<std::pair<const std::string_view, u32>>>;
    struct Prefix;

    ~VXParamListTag();
    static Prefix* PrefixOf(const u8* record) noexcept;
    static void FreeRecord(u8* record) noexcept;
    u8* MakeRecord(const char* key, u64 keyLength, u8 type, u64 payloadSize);
    void Append(u8* record);
    void Replace(u32 position, u8* record);
    void ReleaseNested(const u8* record) noexcept;
    i32 Adopt(VXParamListTag* value);

    std::atomic<u32> references_{1};
    Vector<u8*> records_;
    Vector<VXParamListTag*> nested_;  // id - 1 to list; null where an id is free
    Vector<i32> freeIds_;
    u8* replaced_ = nullptr;               // chain of records that somebody may still read
    VXParamListTag* nextDying_ = nullptr;  // chain of lists whose last reference is gone
    std::unique_ptr<Index> index_;         // key to position, once the list is too long for a linear search
    u64 bytes_ = 0;
};
