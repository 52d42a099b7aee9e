// Any bytes as a parameter list of the link. What is taken for a list is the list that the contract's own parser reads,
// it comes back from its own encoding byte for byte, and it holds just the parameters that were counted against the
// limit; what is refused leaves the receiver's list alone.
#include <string>

#include "VX/Link.pb.h"
#include "VX/ListCodec.h"
#include "tests/fuzz/FuzzTarget.h"

namespace {

// Each parameter, and each list of an array, at whatever depth.
u32 CountParameters(HVXPARAMLIST list) {
    u32 count = 0;
    for (VXParamRecord record = VXGetFirstParam(list); record != nullptr; record = VXGetNextParam(list, record)) {
        const u8* payload = VXRecordPayload(record);
        const u8 type = VXRecordType(record);
        ++count;
        if (type == VXTypeList) count += CountParameters(VXGetHandleById(list, VXReadInt32(payload)));
        if (type != (VXTypeArray | VXTypeList)) continue;
        const u32 lists = static_cast<u32>(VXReadInt32(payload));
        for (u32 i = 0; i < lists; ++i) {
            count += 1 + CountParameters(VXGetHandleById(list, VXReadInt32(payload + 4 + 4ull * i)));
        }
    }
    return count;
}

std::string Encode(const VX::ParamListHolder& list) {
    std::string bytes;
    Fuzz::Require(VX::EncodeParamList(list.Get(), bytes), "what was decoded can be encoded");
    return bytes;
}

// The generated parser is stricter about how long a number may be written; where it reads the bytes, it reads the same.
void CompareWithContract(const std::string& bytes, const std::string& encoded) {
    orv::vx::ParamList message;
    if (!message.ParseFromString(bytes)) return;
    message.DiscardUnknownFields();
    Fuzz::Require(message.SerializeAsString() == encoded, "the contract's parser reads the same list");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
    const std::string bytes(Fuzz::AsText(data, size));
    VX::ParamListHolder list;
    if (!VX::DecodeParamList(bytes, list)) {
        Fuzz::Require(!list, "a refused list leaves the receiver's alone");
        return 0;
    }
    const u32 count = CountParameters(list.Get());
    Fuzz::Require(count <= size, "a parameter takes a byte at least");
    VX::ParamListHolder again;
    Fuzz::Require(VX::DecodeParamList(bytes, again, count), "a limit that is just kept is kept");
    Fuzz::Require(count == 0 || !VX::DecodeParamList(bytes, again, count - 1), "a limit that is passed is seen");

    const std::string encoded = Encode(list);
    Fuzz::Require(encoded.size() <= 4 * size, "an encoding is about as long as what was read");
    Fuzz::Require(VX::DecodeParamList(encoded, again) && Encode(again) == encoded, "a list comes back from its bytes");
    CompareWithContract(bytes, encoded);
    return 0;
}
