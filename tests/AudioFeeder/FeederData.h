// Rows and sound for the feeder's tests.
#pragma once

#include <initializer_list>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "AudioFeeder/FeedRow.h"

namespace FeederTest {

using Samples = std::vector<i16>;

// --- rows -----------------------------------------------------------------------------------------------------------

using Field = std::pair<const char*, std::variant<i32, const char*>>;
VX::ParamListHolder MakeList(std::initializer_list<Field> fields);
Orv::FeedRow MakeRow(std::initializer_list<Field> fields);
// A feed "x" on pipe "p" with `idaudiofeed`; later fields replace earlier ones.
Orv::FeedRow MakeFeed(std::initializer_list<Field> fields);
// An announcement with `idannouncement`.
Orv::FeedRow MakeAnnouncement(const char* name, i32 type, const char* file);

// --- sound ----------------------------------------------------------------------------------------------------------

std::string RawBytes(const Samples& samples);
std::string WavBytes(const Samples& samples);
Samples Constant(std::size_t count, i16 value);
// Samples that differ from their neighbours and from other seeds', within -4000 to 4000.
Samples Noise(std::size_t count, u32 seed);
Samples FromBytes(const std::string& bytes);
// `count` samples from `position`.
Samples Part(const Samples& samples, std::size_t position, std::size_t count);
Samples Join(std::initializer_list<Samples> parts);

}  // namespace FeederTest
