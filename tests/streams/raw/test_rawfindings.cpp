// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/raw/rawModule.h"
#include "tests/streams/raw/rawfixture.h"
#include "tests/support/rawsamples.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <set>

namespace krx::test {
namespace {

using streams::Finding;
using streams::FindingLevel;
using Lines = std::vector<RecordingContext::Line>;

/// Goes through a stream as a validator does, and returns the lines of the log. sink may be null.
Lines walk(const std::map<std::string, std::string>& files, bool strict, streams::FindingSink* sink)
{
    MemoryFileIo io;
    for (const auto& [name, content] : files)
        io.files["rec/" + name] = content;
    RecordingContext context(&io, {{"Raw/WarningsAsErrors", strict ? "true" : "false"}});
    raw::RawAdaptor adaptor(&context);
    adaptor.setFindingSink(sink);
    void* handle = nullptr;
    if (adaptor.open(nullptr, "rec", 0, nullptr, handle) != 0)
        return context.lines;
    RecordingHolder holder;
    SegmentBounds bounds;
    for (long long at = 0; at < adaptor.getEndPosition(handle); at = bounds.end + 1)
        if (!adaptor.findSegmentByIndex(handle, at, &bounds) ||
            !adaptor.loadSegment(handle, &bounds, &holder))
            break;
    adaptor.close(handle);
    return context.lines;
}

/// The line that stands for a finding.
RecordingContext::Line lineOf(const Finding& finding)
{
    const std::string number = finding.number != 0 ? std::to_string(finding.number) + '\t' : "";
    return {finding.level == FindingLevel::kWarning ? 3 : 2, number + finding.text + "\trec"};
}

TEST(RawFindings, AreTheLinesOfTheLogAndHavePlaces)
{
    // Files that are missing have no offset.
    const std::set<std::string> missing = {"faults/32-no-contexts", "faults/34-no-segment"};
    std::size_t seen = 0;
    for (const RawSample& sample : rawSamples()) {
        for (const bool strict : {false, true}) {
            SCOPED_TRACE(sample.name + (strict ? " strict" : ""));
            KeptFindings sink;
            Lines lines = walk(sample.files, strict, &sink);
            for (const Finding& finding : sink.findings) {
                lines.push_back(lineOf(finding));
                EXPECT_FALSE(finding.place.file.empty());
                EXPECT_EQ(finding.place.offset < 0, missing.contains(sample.name));
            }
            EXPECT_EQ(lines, walk(sample.files, strict, nullptr));
            EXPECT_EQ(sink.asked, sample.name == "faults/126-backward" && !strict ? 1U : 0U);
            seen += sink.findings.size();
        }
    }
    EXPECT_GE(seen, 20U);
}

TEST(RawFindings, NameTheRecord)
{
    const std::string second = "000000000000000C";
    const struct
    {
        std::string sample;
        streams::Place place;
    } cases[] = {
        {"faults/32-gap", {41, "", 0, "index", 0, -1, -1}},
        {"faults/32-no-contexts", {-1, "", 0, "contexts", 0, -1, -1}},
        {"faults/33-version", {0, "", 0, "index", 0, -1, -1}},
        {"faults/34-no-segment", {-1, "", 0, second, 0, -1, -1}},
        {"faults/35-truncated", {221, "", 0, second, 0, 23, 440}},
        {"faults/36-type", {0, "", 0, second, 0, 12, 240}},
        {"faults/37-footer", {221, "", 0, second, 0, 23, 440}},
        {"faults/38-mismatch", {221, "", 0, second, 0, 23, -1}},
        {"faults/126-backward", {0, "", 0, second, 0, 12, 0}},
    };
    const std::vector<RawSample> samples = rawSamples();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.sample);
        const auto sample = std::find_if(samples.begin(), samples.end(), [&](const RawSample& candidate) {
            return candidate.name == c.sample;
        });
        ASSERT_NE(sample, samples.end());
        KeptFindings sink;
        walk(sample->files, true, &sink);
        ASSERT_FALSE(sink.findings.empty());
        const streams::Place& place = sink.findings.back().place;
        EXPECT_EQ(place.file, c.place.file);
        EXPECT_EQ(place.offset, c.place.offset);
        EXPECT_EQ(place.message, c.place.message);
        EXPECT_EQ(place.time, c.place.time);
    }
}

TEST(RawFindings, WarningsAreCountedAndOnlyMadeWhereAdmitted)
{
    const auto record = static_cast<long long>(messageBytes(rawAudio(5)).size());
    std::string content;
    for (unsigned i = 0; i < 100; ++i)
        content += messageBytes(rawAudio(1000 - i));
    const long long most = std::numeric_limits<long long>::max();
    for (const long long start : {0LL, most - 101, most - 50, -50LL}) {  // positions that cannot be are none
        SCOPED_TRACE(start);
        const std::map<std::string, std::string> files = {{RawBuilder::fileName(start), content}};
        RawFixture raw(files);
        KeptFindings sink;
        sink.mostWarnings = 60;
        raw.data.setFindingSink(&sink);
        const SegmentBounds bounds{start, start < most - 99 ? start + 99 : most, 1000, 1001};
        EXPECT_EQ(raw.data.loadSegment(&raw.context, &bounds, &raw.holder), start != most - 50);
        EXPECT_EQ(sink.asked, 99U);
        ASSERT_GE(sink.findings.size(), 60U);
        for (unsigned i = 0; i < 60; ++i) {
            const streams::Place& place = sink.findings[i].place;
            const bool isPosition = start >= 0 && start <= most - (i + 1);
            EXPECT_EQ(place.offset, (i + 1) * record);
            EXPECT_EQ(place.message, isPosition ? start + i + 1 : -1);
            EXPECT_EQ(place.time, 1000 - (i + 1));
        }
    }
}

}  // namespace
}  // namespace krx::test
