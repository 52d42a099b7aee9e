#include "AudioFeeder/FeedRow.h"

namespace Orv {

HVXPARAMLIST FeedRow::Holding(const char* field) const {
    return VXParamInfo(overrides.Get(), field) != nullptr ? overrides.Get() : base.Get();
}

bool FeedRow::Has(const char* field) const {
    return VXParamInfo(Holding(field), field) != nullptr;
}

const char* FeedRow::Text(const char* field) const {
    const char* text = VXGetStringValue(Holding(field), field);
    return text != nullptr ? text : "";
}

i32 FeedRow::Number(const char* field) const {
    return VXGetInt32Value(Holding(field), field);
}

}  // namespace Orv
