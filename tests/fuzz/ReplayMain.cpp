// Runs a fuzz target over kept files: each argument is a file or a folder of files.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "tests/fuzz/FuzzTarget.h"

namespace fs = std::filesystem;

int main(int count, char** arguments) {
    std::vector<fs::path> files;
    for (int index = 1; index < count; ++index) {
        if (!fs::is_directory(arguments[index])) {
            files.emplace_back(arguments[index]);
            continue;
        }
        for (const auto& entry : fs::directory_iterator(arguments[index])) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    for (const fs::path& path : files) {
        std::ifstream file(path, std::ios::binary);
        if (!file) {
            std::fprintf(stderr, "cannot read %s\n", path.c_str());
            return 1;
        }
        const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        std::printf("%s, %zu bytes\n", path.filename().c_str(), text.size());
        std::fflush(stdout);
        // An allocation of the exact size, so that a step past its end is seen.
        const auto bytes = std::make_unique<u8[]>(text.size());
        std::copy(text.begin(), text.end(), bytes.get());
        LLVMFuzzerTestOneInput(bytes.get(), text.size());
    }
    std::printf("%zu files\n", files.size());
    return files.empty() ? 1 : 0;  // nothing replayed proves nothing
}
