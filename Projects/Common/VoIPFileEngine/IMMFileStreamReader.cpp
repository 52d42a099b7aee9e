#include "Projects/Common/VoIPFileEngine/IMMFileStreamReader.h"

namespace Orv {

u64 IMMFileStreamReader::ReadSamples(const u8** frame) {
    *frame = nullptr;
    return 0;
}

bool IMMFileStreamReader::IsFile() {
    return false;
}

u32 IMMFileStreamReader::GetContentId() {
    return id_;
}

MTObjects::THolder<MTObjects::MTReferencedTypeBase> IMMFileStreamReader::FrameOwner() {
    return this;
}

}  // namespace Orv
