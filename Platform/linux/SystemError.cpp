#include "Platform/SystemError.h"

#include <cstring>

namespace Platform {

std::string SystemErrorText(SystemError error) {
    const char* text = ::strerrordesc_np(static_cast<int>(error));
    return text == nullptr ? std::string() : std::string(text);
}

}  // namespace Platform
