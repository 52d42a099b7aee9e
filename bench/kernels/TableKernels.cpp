// What a change of the configuration costs: parameter lists, indexes, the settings file.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <vector>

#include "ConfigClient/Index.h"
#include "Platform/Files.h"
#include "ServiceProcess/CommonSettings.h"
#include "VX/ListCodec.h"
#include "VX/ParamList.h"

namespace OrvBench {
namespace {

using benchmark::State;

// A row of AUDIOFEED as the Configuration service sends it.
VX::ParamListHolder FeedRow(i32 id) {
    VX::ParamListHolder row;
    row.NewList();
    VXSetInt32Value(row.Get(), "idaudiofeed", id);
    VXSetStringValue(row.Get(), "pipename", ("feed" + std::to_string(id)).c_str());
    VXSetStringValue(row.Get(), "thename", "jazz");
    VXSetInt32Value(row.Get(), "feedtype", 3);
    VXSetInt32Value(row.Get(), "nonstop", 0);
    VXSetInt32Value(row.Get(), "playannouncements", 1);
    VXSetInt32Value(row.Get(), "minannouncementpause", 20);
    VXSetInt32Value(row.Get(), "maxannouncementpause", 60);
    VXSetInt32Value(row.Get(), "maxvolume", 50);
    VXSetInt32Value(row.Get(), "autogain", 1);
    return row;
}

void CountItems(State& state, i64 perRound) {
    state.SetItemsProcessed(static_cast<i64>(state.iterations()) * perRound);
}

void BuildRow(State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(FeedRow(7).Get());
    CountItems(state, 1);
}
BENCHMARK(BuildRow);

void ReadField(State& state) {
    const VX::ParamListHolder row = FeedRow(7);
    for (auto _ : state) benchmark::DoNotOptimize(VXGetInt32Value(row.Get(), "maxvolume"));
    CountItems(state, 1);
}
BENCHMARK(ReadField);

// A reply with as many rows, as it travels.
VX::ParamListHolder Reply(i32 rows) {
    std::vector<VX::ParamListHolder> holders;
    std::vector<HVXPARAMLIST> handles;
    for (i32 id = 1; id <= rows; ++id) handles.push_back(holders.emplace_back(FeedRow(id)).Get());
    VX::ParamListHolder reply;
    reply.NewList();
    VXSetHandleArray(reply.Get(), "OD", handles.data(), static_cast<u32>(handles.size()));
    return reply;
}

void EncodeRows(State& state) {
    const VX::ParamListHolder reply = Reply(static_cast<i32>(state.range(0)));
    std::string bytes;
    for (auto _ : state) {
        bytes.clear();
        if (!VX::EncodeParamList(reply.Get(), bytes)) state.SkipWithError("not encoded");
    }
    CountItems(state, state.range(0));
    state.SetBytesProcessed(static_cast<i64>(state.iterations() * bytes.size()));
}
BENCHMARK(EncodeRows)->Arg(1)->Arg(5000);

void DecodeRows(State& state) {
    std::string bytes;
    if (!VX::EncodeParamList(Reply(static_cast<i32>(state.range(0))).Get(), bytes)) state.SkipWithError("not encoded");
    for (auto _ : state) {
        VX::ParamListHolder list;
        if (!VX::DecodeParamList(bytes, list)) state.SkipWithError("not decoded");
    }
    CountItems(state, state.range(0));
    state.SetBytesProcessed(static_cast<i64>(state.iterations() * bytes.size()));
}
BENCHMARK(DecodeRows)->Arg(1)->Arg(5000);

std::vector<std::string> Names(i64 count) {
    std::vector<std::string> names;
    for (i64 i = 0; i < count; ++i) names.push_back("feed" + std::to_string(i));
    return names;
}

void FindInTextIndex(State& state) {
    const auto names = Names(state.range(0));
    ConfigConnection::ConcreteIndex<ConfigConnection::char_pointer> index("pipename");
    for (std::size_t i = 0; i < names.size(); ++i) index.Add(names[i].c_str(), static_cast<i32>(i + 1));
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(index.FindOne(ConfigConnection::char_pointer(names[next].c_str()), 0));
        next = (next + 7919) % names.size();
    }
    CountItems(state, 1);
}
BENCHMARK(FindInTextIndex)->Arg(100)->Arg(5000);

void FindInNumberIndex(State& state) {
    ConfigConnection::ConcreteIndex<i32> index("idaudiofeed");
    for (i32 i = 1; i <= state.range(0); ++i) index.Add(i, i);
    i32 next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(index.FindOne(next + 1, 0));
        next = static_cast<i32>((next + 7919) % state.range(0));
    }
    CountItems(state, 1);
}
BENCHMARK(FindInNumberIndex)->Arg(100)->Arg(5000);

void FillTextIndex(State& state) {
    const auto names = Names(state.range(0));
    for (auto _ : state) {
        ConfigConnection::ConcreteIndex<ConfigConnection::char_pointer> index("pipename");
        for (std::size_t i = 0; i < names.size(); ++i) index.Add(names[i].c_str(), static_cast<i32>(i + 1));
        benchmark::DoNotOptimize(index.Count());
    }
    CountItems(state, state.range(0));
}
BENCHMARK(FillTextIndex)->Arg(5000);

// The whole file with opening it, from the page cache.
void LoadSettings(State& state) {
    std::string text = "[General]\nAppDataPath=/var/lib/Orv/\n[ConfService]\nconfNIC=127.0.0.1\nConfPort=5485\n";
    for (int i = 0; i < state.range(0); ++i) {
        text += "[Section" + std::to_string(i) +
                "]\nkey = \"first\" \"second\" ; a comment\nother = " + std::to_string(i) + "\n";
    }
    const std::string path = "/tmp/orv-bench-settings." + std::to_string(state.range(0)) + ".ini";
    Platform::SystemError error = 0;
    const auto file = Platform::CreateWriteFile(path, error);
    if (file == nullptr || !file->Write(text.data(), text.size())) state.SkipWithError("no settings file");
    for (auto _ : state) {
        Orv::CommonSettings settings;
        if (!settings.Load(path.c_str())) state.SkipWithError("not loaded");
        benchmark::DoNotOptimize(settings.lineNumber);
    }
    std::remove(path.c_str());
    state.SetBytesProcessed(static_cast<i64>(state.iterations() * text.size()));
}
BENCHMARK(LoadSettings)->Arg(0)->Arg(100);

}  // namespace
}  // namespace OrvBench
