// Sound files made byte by byte, and what they give when they play.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Platform/Types.h"

namespace Orv::TestData {

inline std::string Le16(u32 value) {
    return {static_cast<char>(value), static_cast<char>(value >> 8)};
}
inline std::string Le32(u32 value) {
    return Le16(value & 0xFFFF) + Le16(value >> 16);
}

inline std::string Chunk(const std::string& tag, const std::string& body) {
    return tag + Le32(static_cast<u32>(body.size())) + body;
}

// The body of a "fmt " chunk.
inline std::string Format(u32 tag, u32 channels, u32 rate, u32 bits, u32 blockAlign) {
    return Le16(tag) + Le16(channels) + Le32(rate) + Le32(rate * blockAlign) + Le16(blockAlign) + Le16(bits);
}
inline std::string PcmFormat() {
    return Format(1, 1, 8000, 16, 2);
}
inline std::string AdpcmFormat() {
    return Format(17, 1, 8000, 4, 256) + Le16(2) + Le16(505);
}

// A whole file around its chunks, with a true RIFF length.
inline std::string Riff(const std::string& chunks) {
    return Chunk("RIFF", "WAVE" + chunks);
}
inline std::string PcmWave(const std::string& audio) {
    return Riff(Chunk("fmt ", PcmFormat()) + Chunk("data", audio));
}
inline std::string AdpcmWave(const std::string& audio) {
    return Riff(Chunk("fmt ", AdpcmFormat()) + Chunk("data", audio));
}

// Bytes without a zero among them, none like its neighbours, so that a lost, doubled or invented run shows.
inline std::string Audio(u64 bytes, u32 seed = 1) {
    std::string audio(bytes, '\0');
    u32 state = seed;
    for (char& byte : audio) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<char>((state >> 24) % 255 + 1);
    }
    return audio;
}

// What a file's audio gives, frame by frame, from a disk that is never late. The tail is filled up with zeros. One more
// frame, of zeros, comes when the end of the file is met only after the last byte has gone out: when the length is a
// multiple of the frame, and when the last frame begins at or before a multiple of 8192 and ends behind it.
inline std::vector<std::string> ExpectedFrames(const std::string& audio, u64 frameBytes) {
    std::vector<std::string> frames;
    for (u64 position = 0; position < audio.size(); position += frameBytes) {
        frames.push_back(audio.substr(position, frameBytes));
        frames.back().resize(frameBytes, '\0');
    }
    if (frames.empty()) return frames;
    const u64 lastBegins = (frames.size() - 1) * frameBytes;
    // The first multiple, other than 0, that does not lie before it.
    const u64 nextMultiple = lastBegins == 0 ? 8192 : (lastBegins + 8191) / 8192 * 8192;
    const bool crosses = audio.size() > nextMultiple;
    if (audio.size() % frameBytes == 0 || crosses) frames.emplace_back(frameBytes, '\0');
    return frames;
}

// Equality of two runs of bytes, with a message that people can read.
inline testing::AssertionResult SameBytes(const std::string& actual, const std::string& expected) {
    if (actual == expected) return testing::AssertionSuccess();
    const u64 common = std::min(actual.size(), expected.size());
    u64 at = 0;
    while (at < common && actual[at] == expected[at]) ++at;
    const auto show = [at](const std::string& bytes) { return testing::PrintToString(bytes.substr(at, 16)); };
    return testing::AssertionFailure() << actual.size() << " bytes instead of " << expected.size()
                                       << ", different from " << at << " on: " << show(actual) << " instead of "
                                       << show(expected);
}
inline testing::AssertionResult SameBytes(const std::vector<std::string>& actual,
                                          const std::vector<std::string>& expected) {
    for (u64 i = 0; i < std::min(actual.size(), expected.size()); ++i) {
        if (const auto same = SameBytes(actual[i], expected[i]); !same) {
            return testing::AssertionFailure() << "frame " << i << ": " << same.message();
        }
    }
    if (actual.size() == expected.size()) return testing::AssertionSuccess();
    return testing::AssertionFailure() << actual.size() << " frames instead of " << expected.size();
}

}  // namespace Orv::TestData
