// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "bench/largemp4.h"
#include "bench/tempinput.h"
#include "modules/streams/mp4/mp4Data.h"
#include "server/KRXSyncFileIo.h"

#include <benchmark/benchmark.h>

#include <string>

namespace {

using krx::bench::LargeMp4Facts;

/// Opening a movie: boxes and tables read, every sample walked, segments and table pages cut.
void openMp4(benchmark::State& state, const std::string& name)
{
    const krx::bench::TempInput input(name + ".mp4");
    const LargeMp4Facts facts = writeLargeMp4(input.path(), krx::bench::largeMp4(name));
    SimpleKrxSyncFileIo fileIo;
    for ([[maybe_unused]] auto _ : state) {
        krx::mp4::Mp4Data data(SRMBString(input.path().c_str()), nullptr, &fileIo, 0, krx::mp4::Mp4Config());
        if (data.init() != krx::mp4::kLoadOk)
            state.SkipWithError("the movie did not open");
        benchmark::DoNotOptimize(data.getEndPosition());
    }
    const auto runs = static_cast<std::int64_t>(state.iterations());
    state.SetItemsProcessed(runs * static_cast<std::int64_t>(facts.samples));
    state.SetBytesProcessed(runs * static_cast<std::int64_t>(facts.tableBytes));
}

/// Reading the boxes and tables alone.
void parseMp4(benchmark::State& state, const std::string& name)
{
    const krx::bench::TempInput input(name + ".mp4");
    const LargeMp4Facts facts = writeLargeMp4(input.path(), krx::bench::largeMp4(name));
    SimpleKrxSyncFileIo fileIo;
    const krx::mp4::Mp4Config config;
    for ([[maybe_unused]] auto _ : state) {
        krx::mp4::Mp4FileIO io(SRMBString(input.path().c_str()), &fileIo, 0, config);
        const krx::mp4::AutoMp4Open open(&io);
        krx::mp4::MP4File file(config, nullptr);
        file.setIO(&io);
        file.parse(0);
        benchmark::DoNotOptimize(file.getTrackCount());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(facts.tableBytes));
}

BENCHMARK_CAPTURE(openMp4, hour, std::string("hour"))->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(openMp4, samples, std::string("samples"))->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(openMp4, tracks, std::string("tracks"))->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(openMp4, fragments, std::string("fragments"))->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(parseMp4, samples, std::string("samples"))->Unit(benchmark::kMillisecond);

}  // namespace
