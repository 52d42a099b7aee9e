// Reads a descriptor without ever waiting longer than asked. Inside Platform/linux only.
#pragma once

#include "Platform/InputStream.h"
#include "Platform/linux/Descriptor.h"

namespace Platform {

class DescriptorStream final : public IInputStream {
public:
    // Does not close it.
    explicit DescriptorStream(int descriptor) : descriptor_(descriptor) {}
    explicit DescriptorStream(Descriptor owned) : owned_(std::move(owned)), descriptor_(owned_.Get()) {}

    Outcome Read(void* destination, u64 size, u32 timeoutMilliseconds, u64& taken, SystemError& error) override;

private:
    const Descriptor owned_;
    const int descriptor_;
};

}  // namespace Platform
