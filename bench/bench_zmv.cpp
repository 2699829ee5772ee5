// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "bench/largezmv.h"
#include "bench/tempinput.h"
#include "tools/zmvutil/vidlint/src/report.h"
#include "tools/zmvutil/vidlint/src/validationjob.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>
#include <vector>

namespace {

using krx::bench::LargeZmv;
using krx::bench::LargeZmvFacts;

/// The inputs: media-sized messages, and small ones.
LargeZmv inputOf(const benchmark::State& state)
{
    LargeZmv zmv;
    zmv.minLength = static_cast<std::uint32_t>(state.range(0));
    zmv.maxLength = static_cast<std::uint32_t>(state.range(1));
    zmv.targetBytes = 256 << 20;
    return zmv;
}

void count(benchmark::State& state, const LargeZmvFacts& facts)
{
    const auto runs = static_cast<std::int64_t>(state.iterations());
    state.SetBytesProcessed(runs * static_cast<std::int64_t>(facts.bytes));
    state.SetItemsProcessed(runs * static_cast<std::int64_t>(facts.messages));
}

/// The whole check of a ZMV file whose pages are in the page cache.
void checkZmv(benchmark::State& state)
{
    const krx::bench::TempInput input("input.zmv");
    const LargeZmvFacts facts = writeLargeZmv(input.path(), inputOf(state));
    ReportWriter nobody([](std::string_view) { return true; });
    VideoValidationJob job(nobody);
    job.files = {input.path()};
    for ([[maybe_unused]] auto _ : state)
        if (job.validateAllFiles() != 0)
            state.SkipWithError("the input was rejected");
    count(state, facts);
}

/// What reading the same file once costs.
void readZmv(benchmark::State& state)
{
    const krx::bench::TempInput input("input.zmv");
    const LargeZmvFacts facts = writeLargeZmv(input.path(), inputOf(state));
    std::vector<char> buffer(128 * 1024);
    for ([[maybe_unused]] auto _ : state) {
        const int fd = ::open(input.path().c_str(), O_RDONLY | O_CLOEXEC);
        while (::read(fd, buffer.data(), buffer.size()) > 0) {
        }
        ::close(fd);
    }
    count(state, facts);
}

BENCHMARK(checkZmv)->Args({200, 40960})->Args({100, 100})->Unit(benchmark::kMillisecond);
BENCHMARK(readZmv)->Args({200, 40960})->Args({100, 100})->Unit(benchmark::kMillisecond);

}  // namespace
