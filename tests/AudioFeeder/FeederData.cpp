#include "tests/AudioFeeder/FeederData.h"

#include <cstring>

namespace FeederTest {

namespace {

void Set(HVXPARAMLIST list, const Field& field) {
    if (const i32* number = std::get_if<i32>(&field.second)) {
        VXSetInt32Value(list, field.first, *number);
    } else {
        VXSetStringValue(list, field.first, std::get<const char*>(field.second));
    }
}

void Append32(std::string& bytes, u32 value) {
    for (int shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<char>(value >> shift));
}

void Append16(std::string& bytes, u16 value) {
    bytes.push_back(static_cast<char>(value));
    bytes.push_back(static_cast<char>(value >> 8));
}

}  // namespace

VX::ParamListHolder MakeList(std::initializer_list<Field> fields) {
    VX::ParamListHolder list;
    list.NewList();
    for (const Field& field : fields) Set(list.Get(), field);
    return list;
}

Orv::FeedRow MakeRow(std::initializer_list<Field> fields) {
    return Orv::FeedRow(MakeList(fields));
}

Orv::FeedRow MakeFeed(std::initializer_list<Field> fields) {
    Orv::FeedRow row = MakeRow({{"idaudiofeed", 1}, {"pipename", "p"}, {"thename", "x"}});
    for (const Field& field : fields) Set(row.base.Get(), field);
    return row;
}

Orv::FeedRow MakeAnnouncement(const char* name, i32 type, const char* file) {
    return MakeRow({{"idannouncement", 1}, {"thename", name}, {"thetype", type}, {"thefile", file}});
}

std::string RawBytes(const Samples& samples) {
    std::string bytes;
    for (const i16 sample : samples) Append16(bytes, static_cast<u16>(sample));
    return bytes;
}

std::string WavBytes(const Samples& samples) {
    const std::string sound = RawBytes(samples);
    std::string bytes = "RIFF";
    Append32(bytes, static_cast<u32>(36 + sound.size()));
    bytes += "WAVEfmt ";
    Append32(bytes, 16);
    Append16(bytes, 1);      // PCM
    Append16(bytes, 1);      // mono
    Append32(bytes, 8000);   // samples a second
    Append32(bytes, 16000);  // bytes a second
    Append16(bytes, 2);
    Append16(bytes, 16);
    bytes += "data";
    Append32(bytes, static_cast<u32>(sound.size()));
    return bytes + sound;
}

Samples Constant(std::size_t count, i16 value) {
    return Samples(count, value);
}

Samples Noise(std::size_t count, u32 seed) {
    Samples samples;
    u32 state = seed * 2654435761U + 12345;
    for (std::size_t index = 0; index < count; ++index) {
        state = state * 1664525U + 1013904223U;
        samples.push_back(static_cast<i16>(static_cast<i32>(state >> 16) % 8001 - 4000));
    }
    return samples;
}

Samples FromBytes(const std::string& bytes) {
    Samples samples(bytes.size() / 2);
    if (!samples.empty()) std::memcpy(samples.data(), bytes.data(), samples.size() * 2);
    return samples;
}

Samples Part(const Samples& samples, std::size_t position, std::size_t count) {
    Samples part;
    for (std::size_t index = position; index < position + count && index < samples.size(); ++index) {
        part.push_back(samples[index]);
    }
    return part;
}

Samples Join(std::initializer_list<Samples> parts) {
    Samples joined;
    for (const Samples& part : parts) joined.insert(joined.end(), part.begin(), part.end());
    return joined;
}

}  // namespace FeederTest
