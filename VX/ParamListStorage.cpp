#include "VX/ParamListStorage.h"

#include <cstring>
#include <new>

namespace {

constexpr u32 LinearSearchLimit = 16;

bool IsNumber(u8 type) {
    return type == VXTypeInt32 || type == VXTypeInt64;
}

}  // namespace

// Stands in memory in front of each record.
struct VXParamListTag::Prefix {
    u8* nextReplaced;
    u64 recordSize;
    u32 position;
    std::atomic<bool> seen;
};

VXParamListTag::Prefix* VXParamListTag::PrefixOf(const u8* record) noexcept {
    return reinterpret_cast<Prefix*>(const_cast<u8*>(record) - sizeof(Prefix));
}

u32 VXParamListTag::PositionOf(const u8* record) noexcept {
    return PrefixOf(record)->position;
}

void VXParamListTag::MarkSeen(const u8* record) noexcept {
    std::atomic<bool>& seen = PrefixOf(record)->seen;
    // Tested first, so that readers on many processors do not fight for the line.
    if (!seen.load(std::memory_order_relaxed)) seen.store(true, std::memory_order_relaxed);
}

void VXParamListTag::FreeRecord(u8* record) noexcept {
    Prefix* prefix = PrefixOf(record);
    prefix->~Prefix();
    VXFree(prefix);
}

u8* VXParamListTag::MakeRecord(const char* key, u64 keyLength, u8 type, u64 payloadSize) {
    const u64 distance = 1 + keyLength + 1;
    const u64 recordSize = distance + 1 + payloadSize;
    u8* memory = static_cast<u8*>(VXAllocate(sizeof(Prefix) + recordSize));
    new (memory) Prefix{nullptr, recordSize, 0, false};
    u8* record = memory + sizeof(Prefix);
    record[0] = static_cast<u8>(distance);
    std::memcpy(record + 1, key, keyLength + 1);
    record[distance] = type;
    return record;
}

VXParamListTag::~VXParamListTag() {
    for (u8* record : records_) FreeRecord(record);
    while (replaced_ != nullptr) {
        u8* next = PrefixOf(replaced_)->nextReplaced;
        FreeRecord(replaced_);
        replaced_ = next;
    }
}

void VXParamListTag::Release(VXParamListTag* list) noexcept {
    if (list->references_.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    // A chain instead of recursion: the depth of the nesting must not become that of the stack.
    VXParamListTag* dying = list;
    while (dying != nullptr) {
        VXParamListTag* current = dying;
        dying = current->nextDying_;
        for (VXParamListTag* nested : current->nested_) {
            if (nested == nullptr || nested->references_.fetch_sub(1, std::memory_order_acq_rel) != 1) continue;
            nested->nextDying_ = dying;
            dying = nested;
        }
        delete current;
    }
}

u8* VXParamListTag::Find(const char* key) const noexcept {
    if (index_ != nullptr) {
        auto found = index_->find(std::string_view(key));
        return found == index_->end() ? nullptr : records_[found->second];
    }
    for (u8* record : records_) {
        if (std::strcmp(VXRecordKey(record), key) == 0) return record;
    }
    return nullptr;
}

VXParamListTag* VXParamListTag::Nested(i32 id) const noexcept {
    if (id < 1 || static_cast<u64>(id) > nested_.size()) return nullptr;
    return nested_[static_cast<u64>(id) - 1];
}

void VXParamListTag::Append(u8* record) {
    const u32 position = Count();
    PrefixOf(record)->position = position;
    records_.push_back(record);
    bytes_ += sizeof(Prefix) + PrefixOf(record)->recordSize;
    if (index_ != nullptr) {
        index_->emplace(VXRecordKey(record), position);
    } else if (records_.size() > LinearSearchLimit) {
        index_ = std::make_unique<Index>();
        for (u8* each : records_) index_->emplace(VXRecordKey(each), PositionOf(each));
    }
}

void VXParamListTag::Replace(u32 position, u8* record) {
    u8* old = records_[position];
    PrefixOf(record)->position = position;
    records_[position] = record;
    bytes_ += sizeof(Prefix) + PrefixOf(record)->recordSize;
    if (index_ != nullptr) {
        // The index's key is the text inside the record.
        auto node = index_->extract(std::string_view(VXRecordKey(record)));
        node.key() = VXRecordKey(record);
        index_->insert(std::move(node));
    }
    if (PrefixOf(old)->seen.load(std::memory_order_relaxed)) {
        PrefixOf(old)->nextReplaced = replaced_;
        replaced_ = old;
        return;
    }
    ReleaseNested(old);
    bytes_ -= sizeof(Prefix) + PrefixOf(old)->recordSize;
    FreeRecord(old);
}

void VXParamListTag::ReleaseNested(const u8* record) noexcept {
    const u8* payload = VXRecordPayload(record);
    u32 count = 1;
    if (VXRecordType(record) == (VXTypeArray | VXTypeList)) {
        count = static_cast<u32>(VXReadInt32(payload));
        payload += 4;
    } else if (VXRecordType(record) != VXTypeList) {
        return;
    }
    for (u32 i = 0; i < count; i++) {
        const i32 id = VXReadInt32(payload + 4ull * i);
        Release(nested_[static_cast<u64>(id) - 1]);
        nested_[static_cast<u64>(id) - 1] = nullptr;
        freeIds_.push_back(id);
    }
}

i32 VXParamListTag::Adopt(VXParamListTag* value) {
    if (value == nullptr || value == this) {
        value = new VXParamListTag();
    } else {
        value->AddReference();
    }
    if (!freeIds_.empty()) {
        const i32 id = freeIds_.back();
        freeIds_.pop_back();
        nested_[static_cast<u64>(id) - 1] = value;
        return id;
    }
    nested_.push_back(value);
    freeIds_.reserve(nested_.capacity());  // so that giving ids back never allocates
    return static_cast<i32>(nested_.size());
}

void VXParamListTag::Set(const char* key, u8 type, const void* head, u64 headSize, const void* body, u64 bodySize) {
    const u64 keyLength = std::strlen(key);
    if (keyLength == 0 || keyLength > VXMaxKeyLength) return;
    u8* old = Find(key);
    const u64 payloadSize = headSize + bodySize;
    if (old != nullptr && VXRecordType(old) == type &&
        PrefixOf(old)->recordSize == 1 + keyLength + 1 + 1 + payloadSize) {
        u8* payload = old + old[0] + 1;
        // A number takes the place of the one before; anything else only if nothing changes.
        if (IsNumber(type)) {
            std::memcpy(payload, head, headSize);
            return;
        }
        if ((headSize == 0 || std::memcmp(payload, head, headSize) == 0) &&
            (bodySize == 0 || std::memcmp(payload + headSize, body, bodySize) == 0)) {
            return;
        }
    }
    u8* record = MakeRecord(key, keyLength, type, payloadSize);
    u8* payload = record + record[0] + 1;
    if (headSize != 0) std::memcpy(payload, head, headSize);
    if (bodySize != 0) std::memcpy(payload + headSize, body, bodySize);
    if (old != nullptr) {
        Replace(PositionOf(old), record);
    } else {
        Append(record);
    }
}

void VXParamListTag::SetHandle(const char* key, VXParamListTag* value) {
    const u64 keyLength = std::strlen(key);
    if (keyLength == 0 || keyLength > VXMaxKeyLength) return;
    const i32 id = Adopt(value);
    Set(key, VXTypeList, &id, sizeof(id), nullptr, 0);
}

void VXParamListTag::SetHandles(const char* key, VXParamListTag* const* values, u32 count) {
    const u64 keyLength = std::strlen(key);
    if (keyLength == 0 || keyLength > VXMaxKeyLength) return;
    Vector<i32> ids;
    ids.reserve(count);
    for (u32 i = 0; i < count; i++) ids.push_back(Adopt(values[i]));
    Set(key, VXTypeArray | VXTypeList, &count, sizeof(count), ids.data(), 4ull * count);
}
