// What every fuzz target is made of. A target is one function that takes any bytes and must come back; it is linked
// either with libFuzzer, which invents the bytes, or with ReplayMain.cpp, which runs the kept ones.
#pragma once

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "Platform/Types.h"

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size);

namespace Fuzz {

// A promise that the code under test has broken, whatever the bytes were.
inline void Require(bool kept, const char* promise) {
    if (kept) return;
    std::fprintf(stderr, "broken: %s\n", promise);
    std::abort();
}

inline std::string_view AsText(const u8* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

}  // namespace Fuzz
