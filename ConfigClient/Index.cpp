#include "ConfigClient/Index.h"

#include <string>

namespace ConfigConnection {

namespace {

std::string CutName(const char* name) {
    return std::string(name).substr(0, kMaxNameLength);
}

}  // namespace

IndexImpl::IndexImpl(bool simple, const char* name) : simple_(simple), name_(CutName(name)) {}
IndexImpl::~IndexImpl() = default;

i32 IndexImpl::FindOne(const combined_key&, i32) const {
    return 0;
}
i32 IndexImpl::FindOne(i32, i32) const {
    return 0;
}
i32 IndexImpl::FindOne(const char_pointer&, i32) const {
    return 0;
}
void IndexImpl::FindAll(std::vector<i32>&, const combined_key&) const {}
void IndexImpl::FindAll(std::vector<i32>&, const char_pointer&) const {}
void IndexImpl::FindAll(std::vector<i32>&, i32) const {}
void IndexImpl::Add(const combined_key&, i32) {}
void IndexImpl::Add(i32, i32) {}
void IndexImpl::Add(const char_pointer&, i32) {}
void IndexImpl::Remove(const combined_key&, i32) {}
void IndexImpl::Remove(i32, i32) {}
void IndexImpl::Remove(const char_pointer&, i32) {}
combined_key IndexImpl::MakeKey(HVXPARAMLIST) const {
    return {};
}

IndexFields<combined_key>::IndexFields(const char* firstField, const char* secondField)
    : firstField_(CutName(firstField)), secondField_(CutName(secondField)) {}

combined_key IndexFields<combined_key>::KeyOf(HVXPARAMLIST row) const {
    combined_key key;
    const VXParamRecord first = VXParamInfo(row, firstField_.c_str());
    const VXParamRecord second = VXParamInfo(row, secondField_.c_str());
    if (first == nullptr || VXRecordType(first) != VXTypeInt32) return key;
    if (second == nullptr || VXRecordType(second) != VXTypeString) return key;
    key.number = VXReadInt32(VXRecordPayload(first));
    key.text = reinterpret_cast<const char*>(VXRecordPayload(second));
    return key;
}

}  // namespace ConfigConnection
