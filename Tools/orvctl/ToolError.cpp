#include "Tools/orvctl/ToolError.h"

#include <algorithm>
#include <cstdio>

#include "Tools/orvctl/Columns.h"

namespace Orv {

void TellError(const std::string& text, ExitCode code, bool json) {
    std::string line;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        line += "orvctl: " + text.substr(begin, end - begin) + "\n";
        begin = end + 1;
    }
    std::fputs(line.c_str(), stderr);
    if (!json) return;
    const Json error = {{"error", TextToJson(text)}, {"exitcode", static_cast<int>(code)}};
    std::puts(error.dump(2).c_str());
}

}  // namespace Orv
