// A simulated world with a channel that plays a folder.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>

#include "AudioFeeder/PipeFeed.h"
#include "tests/AudioFeeder/FeederWorld.h"

namespace FeederTest {

using FeedHolder = MTObjects::THolder<Orv::IPipeFeed>;

class PipeFeedFixture : public testing::Test {
protected:
    // A raw file whose end is far away.
    Samples AddLongFile(u32 blocks = 400) {
        const Samples sound = Noise(blocks * 1000 + 500, 1);
        world_.Files().AddFile("/root/Playlist/x/long.raw", RawBytes(sound));
        return sound;
    }
    static FeedHolder Sorted(std::initializer_list<Field> fields = {}) {
        Orv::FeedRow row = MakeFeed(fields);
        VXSetInt32Value(row.base.Get(), "feedtype", 3);
        return new Orv::IPipeFeed(row);
    }

    FeederWorld world_;
};

}  // namespace FeederTest
