#include "bench/orv-load/ServiceLog.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace OrvLoad {
namespace {

// Zeros at the end of a file have another reason, or none.
constexpr char kZeros[] = "Zeroing out ";
constexpr const char* kLateReasons[] = {"Operation is in progress...", "Back buffer is not ready..."};

void CountLine(const std::string& line, LateReads& late) {
    const std::size_t place = line.find(kZeros);
    if (place == std::string::npos) return;
    for (const char* reason : kLateReasons) {
        if (!line.ends_with(reason)) continue;
        ++late.reads;
        late.wholeBlocks +=
            std::atoi(line.c_str() + place + sizeof kZeros - 1) >= static_cast<int>(kBlockBytes) ? 1 : 0;
    }
}

}  // namespace

LateReads ServiceLog::CountLateReads() const {
    LateReads late;
    std::error_code error;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_, error)) {
        std::ifstream file(entry.path());
        for (std::string line; std::getline(file, line);) CountLine(line, late);
    }
    return late;
}

}  // namespace OrvLoad
