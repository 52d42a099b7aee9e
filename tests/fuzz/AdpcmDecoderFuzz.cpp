// The decoder of compressed audio against another one, written the slow and obvious way. The first two bytes choose the
// size of the frames and how the last block ends: short, or filled up with zeros.
#include <algorithm>
#include <memory>
#include <vector>

#include "Projects/Common/VoIPFileEngine/ADPCMDecoder.h"
#include "tests/fuzz/FuzzTarget.h"

namespace {

constexpr u32 kMaxFrameSamples = 1000;

// Each step is the one before it, a tenth larger, from 7 on; the standard's table differs from that by what its makers
// rounded, so it stands here too.
constexpr i32 kSteps[] = {7,     8,     9,     10,    11,    12,    13,    14,    16,    17,    19,   21,    23,
                          25,    28,    31,    34,    37,    41,    45,    50,    55,    60,    66,   73,    80,
                          88,    97,    107,   118,   130,   143,   157,   173,   190,   209,   230,  253,   279,
                          307,   337,   371,   408,   449,   494,   544,   598,   658,   724,   796,  876,   963,
                          1060,  1166,  1282,  1411,  1552,  1707,  1878,  2066,  2272,  2499,  2749, 3024,  3327,
                          3660,  4026,  4428,  4871,  5358,  5894,  6484,  7132,  7845,  8630,  9493, 10442, 11487,
                          12635, 13899, 15289, 16818, 18500, 20350, 22385, 24623, 27086, 29794, 32767};

class Reference {
public:
    std::vector<i16> Decode(const std::vector<u8>& stream) {
        for (std::size_t block = 0; block < stream.size(); block += 256) {
            const std::size_t end = std::min(stream.size(), block + 256);
            if (end - block < 4) break;
            DecodeBlock(stream.data() + block, end - block);
        }
        return samples_;
    }

private:
    void DecodeBlock(const u8* bytes, std::size_t count) {
        value_ = bytes[0] + 256 * bytes[1];
        if (value_ > 32767) value_ -= 65536;
        index_ = bytes[2];
        const bool bad = index_ > 88;
        samples_.push_back(static_cast<i16>(bad ? 0 : value_));
        for (std::size_t at = 4; at < count; ++at) {
            for (const int nibble : {bytes[at] % 16, bytes[at] / 16}) {
                if (!bad) Step(nibble);
                samples_.push_back(static_cast<i16>(bad ? 0 : value_));
            }
        }
    }
    void Step(int nibble) {
        const i32 step = kSteps[index_];
        i32 difference = step / 8;
        if (nibble / 4 % 2 == 1) difference += step;
        if (nibble / 2 % 2 == 1) difference += step / 2;
        if (nibble % 2 == 1) difference += step / 4;
        value_ += nibble >= 8 ? -difference : difference;
        value_ = std::max(-32768, std::min(32767, value_));
        const int magnitude = nibble % 8;
        index_ += magnitude < 4 ? -1 : 2 * (magnitude - 3);
        index_ = std::max(0, std::min(88, index_));
    }

    std::vector<i16> samples_;
    i32 value_ = 0;
    i32 index_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
    if (size < 2) return 0;
    const u32 frameSamples = 1 + (data[0] * 4u + data[1] / 64u) % kMaxFrameSamples;
    const bool fillUp = data[1] % 2 == 1;
    std::vector<u8> stream(data + 2, data + size);
    if (fillUp) stream.resize((stream.size() + 255) / 256 * 256, 0);

    std::size_t position = 0;
    std::unique_ptr<u8[]> block;  // of the exact size, and new each time
    Orv::ADPCMDecoder decoder(
        [&](const u8** out, u64 bytes) {
            const u64 count = std::min<u64>(bytes, stream.size() - position);
            block = std::make_unique<u8[]>(count);
            std::copy_n(stream.begin() + static_cast<std::ptrdiff_t>(position), count, block.get());
            position += count;
            *out = block.get();
            return count;
        },
        frameSamples * 2);

    const std::vector<i16> expected = Reference().Decode(stream);
    std::size_t at = 0;
    for (;;) {
        const u8* frame = nullptr;
        const u64 got = decoder.Decode(&frame, frameSamples);
        Fuzz::Require(got == std::min<u64>(frameSamples, expected.size() - at), "as many samples as the blocks hold");
        if (got == 0) {
            Fuzz::Require(frame == nullptr, "no frame at the end");
            break;
        }
        for (u64 sample = 0; sample < frameSamples; ++sample) {
            const u32 bits = frame[2 * sample] + 256u * frame[2 * sample + 1];
            const u32 wanted = sample < got ? static_cast<u16>(expected[at + sample]) : 0u;
            Fuzz::Require(bits == wanted, "the samples of the other decoder, and zeros behind them");
        }
        at += got;
    }
    return 0;
}
