// Sound of which each stretch is known by itself, and the comparison of what was heard with what was played.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace PublishTest {

// Bytes of which no stretch of four equals another within the first 64 Ki samples, none of them silent.
inline std::string Sound(std::size_t bytes, unsigned first = 1) {
    std::string sound;
    for (unsigned sample = first; sound.size() < bytes; ++sample) {
        sound += static_cast<char>(sample & 0xFF);
        sound += static_cast<char>(sample >> 8 & 0xFF);
    }
    sound.resize(bytes);
    return sound;
}

// Whether two stretches of sound are equal, told without their bytes.
inline testing::AssertionResult Same(const std::string& heard, const std::string& expected) {
    if (heard == expected) return testing::AssertionSuccess();
    const auto common = std::min(heard.size(), expected.size());
    std::size_t at = 0;
    while (at < common && heard[at] == expected[at]) ++at;
    return testing::AssertionFailure() << heard.size() << " bytes heard, " << expected.size()
                                       << " expected, which differ from byte " << at << " on";
}

}  // namespace PublishTest
