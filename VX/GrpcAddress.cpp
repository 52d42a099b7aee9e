#include "VX/GrpcOptions.h"

namespace VX {

std::string JoinAddress(const std::string& host, u32 port) {
    const bool bare6 = host.find(':') != std::string::npos && host.front() != '[';
    return (bare6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

std::string PeerAddress(const std::string& peer) {
    std::string text = peer;
    if (text.compare(0, 5, "ipv4:") == 0 || text.compare(0, 5, "ipv6:") == 0) text.erase(0, 5);
    for (const auto& [code, character] : {std::pair("%5B", "["), std::pair("%5D", "]")}) {
        const auto at = text.find(code);
        if (at != std::string::npos) text.replace(at, 3, character);
    }
    return text;
}

}  // namespace VX
