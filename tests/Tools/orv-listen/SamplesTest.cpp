#include "Tools/orv-listen/Samples.h"

#include <gtest/gtest.h>

namespace Orv {
namespace {

TEST(SampleAligner, AByteWithoutItsPartnerWaitsForIt) {
    SampleAligner aligner;
    const u8 bytes[] = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(aligner.Add(bytes, 3), (std::vector<u8>{1, 2}));
    EXPECT_EQ(aligner.Add(bytes + 3, 2), (std::vector<u8>{3, 4}));
    EXPECT_EQ(aligner.Add(bytes + 5, 1), (std::vector<u8>{5, 6}));
}

TEST(SampleAligner, AConnectionThatEndsInTheMiddleOfASampleDoesNotShiftTheNextOne) {
    SampleAligner aligner;
    const u8 bytes[] = {1, 2, 3};
    EXPECT_EQ(aligner.Add(bytes, 3).size(), 2u);
    aligner.Restart();
    EXPECT_EQ(aligner.Add(bytes, 2), (std::vector<u8>{1, 2}));
}

// The values of the table in G.711 for its decision points: segment ends and full scale.
TEST(Ulaw, TheTelephonesCodeIsTheStandards) {
    EXPECT_EQ(EncodeUlaw(0), 0xFF);
    EXPECT_EQ(EncodeUlaw(-4), 0x7E);  // the first step of the negative side
    EXPECT_EQ(EncodeUlaw(4), 0xFE);
    EXPECT_EQ(EncodeUlaw(32767), 0x80);
    EXPECT_EQ(EncodeUlaw(-32768), 0x00);
    EXPECT_EQ(EncodeUlaw(32124), 0x80);  // the largest value that a decoder gives
    EXPECT_EQ(EncodeUlaw(-32124), 0x00);
    EXPECT_EQ(EncodeUlaw(1000), 0xCE);
    EXPECT_EQ(EncodeUlaw(-1000), 0x4E);
}

TEST(Ulaw, ADecodedCodeIsCodedAsItself) {
    for (u32 code = 0; code < 256; ++code) {
        if (code == 0x7F) continue;  // the second name of zero
        const u32 bits = ~code & 0xFF;
        const i32 magnitude = ((static_cast<i32>(bits & 15) * 2 + 33) << ((bits >> 4) & 7)) - 33;
        const auto sample = static_cast<i16>((bits & 0x80 ? -magnitude : magnitude) * 4);
        EXPECT_EQ(EncodeUlaw(sample), code) << sample;
    }
}

}  // namespace
}  // namespace Orv
