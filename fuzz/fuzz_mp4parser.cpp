// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Parses an MP4 file and asks the parser for all that it knows. The first byte chooses the options, the rest
// is the file. Besides crashes, it checks that every finding is in the catalogue, memory stays in proportion
// to the file, the size of the read-ahead changes nothing, and a warning that counts as an error ends the
// parse.

#include "fuzz/fuzzing.h"
#include "modules/streams/mp4/mp4.h"
#include "modules/streams/mp4/mp4fileio.h"
#include "tests/support/findingcollector.h"
#include "tests/support/memoryfileio.h"
#include "util/SRBuffer.h"

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using krx::mp4::Mp4Config;
using krx::mp4::MP4File;
using krx::streams::StreamParseError;

/// Memory that a parsed file may take for each of its bytes: the smallest records of a file become the
/// largest ones in memory.
constexpr std::size_t kMemoryPerByte = 48;
constexpr std::size_t kMemoryFloor = 200000;

bool inCatalogue(int status)
{
    return krx::streams::catalogueText(static_cast<krx::streams::ParseStatus>(status)) != nullptr;
}

/// Takes numbers so that reading them is not optimised away.
volatile unsigned long long g_sum = 0;

template <typename T>
void take(const T& value)
{
    g_sum = g_sum + std::hash<std::string_view>()({reinterpret_cast<const char*>(&value), sizeof value});
}

/// Reads the table whole, then in pages.
template <typename T>
void readTable(krx::mp4::PageableArray<T>& table)
{
    for (unsigned i = 0; i < table.size(); ++i)
        take(table[i]);
    table.split({table.size() / 3, table.size() / 3, table.size() / 3 * 2});
    for (std::size_t page = 0; page < table.pageCount(); ++page) {
        table.setCurPage(page);
        for (unsigned i = table.curStart(); i < table.curEnd(); ++i)
            take(table[i]);
        table.clearPage(page);
    }
}

void readFragment(krx::mp4::TrackFragment& fragment)
{
    for (std::size_t r = 0; r < fragment.getRunCount(); ++r) {
        const krx::mp4::TrackFragmentRun& run = fragment.getRun(r);
        using Run = krx::mp4::TrackFragmentRun;
        for (const auto field : {Run::kDuration, Run::kSize, Run::kFlags, Run::kCompositionOffset})
            if (const krx::mp4::WordColumn column = run.column(field))
                for (unsigned i = 0; i < run.sampleCount; ++i)
                    take(column[i]);
    }
    fragment.unload();
}

void readTrack(krx::mp4::TrackInfo& track)
{
    readTable(track.sampleToChunk);
    readTable(track.sampleSizes);
    readTable(track.chunkOffsets);
    readTable(track.timeToSample);
    readTable(track.compositionOffsets);
    readTable(track.syncSamples);
    readTable(track.sampleFlags);
    for (krx::mp4::TrackFragment& fragment : track.fragments)
        readFragment(fragment);
    for (std::size_t d = 0; d < track.sampleDescriptions.size(); ++d) {
        const krx::mp4::SampleEntry& entry = track.sampleDescriptions[d];
        for (unsigned i = 0; i < entry.configLength; ++i)
            take(entry.config[i]);
        if (entry.style)
            entry.style->fonts.forEach([](unsigned, std::string_view name) {
                for (const char character : name)
                    take(character);
            });
    }
    take(track.getContentLength());
    take(track.drm.zolLicense.size() + track.drm.wdxsMetadata.size());
}

void readMovie(MP4File& mp4)
{
    for (const MP4File::TagEntry& tag : mp4.getTags()) {
        for (unsigned i = 0; i < tag.integerCount(); ++i)
            take(tag.integer(i));
        for (const char byte : tag.content)
            take(byte);
    }
    for (const MP4File::ChapterEntry& chapter : mp4.getChapters())
        for (const char byte : chapter.title)
            take(byte);
    require(!mp4.hasXMPData() || mp4.getXMP()->data()[mp4.getXMP()->getUsed()] == 0);
    long long pos = 0;
    long long remaining = 0;
    while (mp4.consumeFreeBoxInMoov(16, pos, remaining))
        take(remaining);
    take(mp4.isAppendable());
}

struct Result
{
    int error = 0;
    std::vector<int> warnings;
};

Result parse(const std::string& bytes, const Mp4Config& config, bool warningsAsErrors)
{
    Result result;
    krx::test::MemoryFileIo io(bytes);
    krx::mp4::Mp4FileIO file("fuzz.mp4", &io, 0, config);
    MP4File mp4(config, nullptr);
    mp4.setIO(&file);
    mp4.setWarningsAsErrors(warningsAsErrors);
    krx::test::FindingCollector sink;
    mp4.setFindingSink(&sink);
    file.Open();
    try {
        mp4.parse(0);
    } catch (const StreamParseError& e) {
        result.error = e.getStatus();
    }
    mp4.setFindingSink(nullptr);
    result.warnings = sink.statuses();
    require(inCatalogue(result.error));
    require(std::all_of(result.warnings.begin(), result.warnings.end(), inCatalogue));
    require(mp4.reportMemorySize() <= kMemoryFloor + kMemoryPerByte * bytes.size());

    for (krx::mp4::TrackInfo* track : mp4.getTrackVec()) {
        try {
            readTrack(*track);
        } catch (const StreamParseError& e) {
            // A table whose loading failed in the parse.
            require(result.error != 0 && inCatalogue(e.getStatus()));
        }
    }
    readMovie(mp4);
    return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const unsigned mode = data[0];
    const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    Mp4Config config;
    config.AllowAnyAVCProfile = (mode & 1) != 0;
    config.AllowAnyAACProfile = (mode & 2) != 0;
    config.MaxTracks = mode & 4 ? 2 : 64;
    config.MaxSampleSize = mode & 8 ? 100 : 4194304;

    const Result result = parse(bytes, config, false);
    const Result strict = parse(bytes, config, true);
    require(strict.error == (strict.warnings.empty() ? result.error : strict.warnings.back()));
    config.otherReadAheadSize = 1 + (mode >> 4);
    const Result unbuffered = parse(bytes, config, false);
    require(unbuffered.error == result.error && unbuffered.warnings == result.warnings);
    return 0;
}
