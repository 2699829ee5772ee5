// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/streams/mp4/parserfixture.h"

#include <gtest/gtest.h>

#include <functional>

namespace krx::test {
namespace {

using mp4::PageableArray;

std::string with(const std::function<void(TrackBoxes&)>& change)
{
    TrackBoxes track;
    change(track);
    return trackFile(track);
}

/// A file whose table box has this box last, in place of others of its type.
std::string withTable(const std::string& table)
{
    return with([&](TrackBoxes& t) { t.more = table; });
}

std::string withSizes(const std::string& sizes, const std::string& more = {})
{
    return with([&](TrackBoxes& t) {
        t.sizes = sizes;
        t.more = more;
    });
}

std::string withEdits(const std::string& edits)
{
    return with([&](TrackBoxes& t) { t.inTrack = box("edts", edits); });
}

TEST(Mp4Tables, Faults)
{
    const std::string empty = tableBox("stts", 0, {});
    const std::string flags(1, '\0');
    expectFaults({
        {"outside a track", movieFile(empty), 31},
        {"second 'stts'", withTable(tableBox("stts", 0, {})), 19},
        {"second 'stts' after an empty one", with([&](TrackBoxes& t) { t.times = empty + t.times; })},
        {"second 'ctts'", withTable(tableBox("ctts", 1, {1, 0}) + tableBox("ctts", 1, {1, 0})), 19},
        {"second 'stsc'", withTable(tableBox("stsc", 1, {1, 1, 1})), 19},
        {"'co64' after 'stco'", withTable(tableBox("co64", 1, {0, 100})), 19},
        {"second 'stss'", withTable(tableBox("stss", 1, {1}) + tableBox("stss", 0, {})), 19},
        {"second 'stsz' after a constant size", withSizes(stsz(10, 1) + stsz(0, 1, {9}))},
        {"second 'stsz'", withSizes(stsz(0, 1, {9}) + stsz(10, 1)), 19},
        {"second 'sdtp'", withTable(fullBox("sdtp", flags) + fullBox("sdtp", flags)), 19},
        {"duplicates come before versions", withTable(fullBox("stsc", {}, 1)), 19},
        {"version", withTable(fullBox("ctts", {}, 1)), 0, {123}},
        {"negative delta, reported once",
         with([](TrackBoxes& t) {
             t.times = tableBox("stts", 3, {1, 1, 1, 0x80000000U, 1, 0xFFFFFFFFU});
         }),
         0,
         {125}},
        {"largest delta", with([](TrackBoxes& t) {
             t.times = tableBox("stts", 1, {1, 0x7FFFFFFF});
         })},
        {"flags without count", withSizes(fullBox("sdtp", flags) + stsz(10, 1)), 0, {122}},
        {"flags too short", withSizes(stsz(10, 2), fullBox("sdtp", flags)), 22},
        {"sizes too short", withSizes(stsz(0, 2, {1})), 22},
        {"sizes whose bytes wrap", withSizes(stsz(0, 0x40000000, {1})), 28},
    });

    // Counts beyond any file, and counts beyond the box but within the file.
    std::vector<FaultCase> cases;
    for (const char* type : {"stts", "ctts", "stsc", "stco", "co64", "stss"})
        cases.push_back({type, movieFile(box("trak", tkhd(1) + tableBox(type, 0xFFFFFFFFU, {}))), 28});
    cases.push_back({"'stsz'", withSizes(stsz(0, 0xFFFFFFFFU)), 22});
    cases.push_back({"beyond the box", with([](TrackBoxes& t) { t.times = tableBox("stts", 2, {1, 1}); })});
    expectFaults(cases);
}

TEST(Mp4Tables, SizeLimits)
{
    const std::string file = withSizes(stsz(10, 1));
    const auto fileSize = static_cast<std::uint32_t>(file.size());
    const auto tableFileSize = fileSize + 4;
    mp4::Mp4Config small;
    small.MaxSampleSize = 50;
    expectFaults({
        {"constant, the file's size", withSizes(stsz(fileSize, 1)), 23},
        {"constant, below", withSizes(stsz(fileSize - 1, 1))},
        {"constant, the configured limit", withSizes(stsz(50, 1)), 23, {}, small},
        {"constant, below the configured limit", withSizes(stsz(49, 1)), 0, {}, small},
        {"entry, the file's size", withSizes(stsz(0, 1, {tableFileSize})), 23},
        {"entry, below", withSizes(stsz(0, 1, {tableFileSize - 1}))},
        {"last entry", withSizes(stsz(0, 3, {1, 2, 50})), 23, {}, small},
        {"no entries", withSizes(stsz(0, 0))},
    });
}

TEST(Mp4Tables, EditLists)
{
    struct
    {
        const char* name;
        std::string box;
        std::size_t entries;  ///< 0: refused
        long long freeSize = 0;
    } const cases[] = {
        {"one", elst({{1000, 0}}), 1},
        {"gap and media", elst({{500, -1}, {1000, 0}}), 2},
        {"gaps between", elst({{1, 5}, {2, -1}, {3, 5}, {4, -1}, {5, 6}}, 1), 5},
        {"room after it", elst({{1, 0}}, 0, box("free", std::string(992, 0))), 1, 992},
        {"other box after it", elst({{1, 0}}, 0, box("abcd", "x")), 1},
        {"eight bytes after it", elst({{1, 0}}, 0, box("free")), 1},
        {"truncated box after it", elst({{1, 0}}, 0, sizedBox(100, "free", "x")), 0},
        {"version 2", elst({{1, 0}}, 2), 0},
        {"two media", elst({{1, 0}, {1, 0}}), 0},
        {"gap at the end", elst({{1, 0}, {1, -1}}), 0},
        {"falling media time", elst({{1, 5}, {1, -1}, {1, 4}}), 0},
        {"negative media time", elst({{1, -2}}), 0},
        {"no rate", elst({{1, 0, 0}}), 0},
        {"endless", fullBox("elst", Fields().u32(0xFFFFFFFFU)), 0},
    };
    for (const auto& c : cases) {
        const auto parsed = parseFile(withEdits(c.box));
        EXPECT_EQ(parsed->error, 0) << c.name;
        const mp4::TrackInfo& track = *parsed->track();
        EXPECT_EQ(parsed->warnings, c.entries ? std::vector<int>{} : std::vector<int>{118}) << c.name;
        ASSERT_EQ(track.editList != nullptr, c.entries != 0) << c.name;
        if (track.editList) {
            EXPECT_EQ(track.editList->entries.size(), c.entries) << c.name;
            EXPECT_EQ(track.editList->freeSize, c.freeSize) << c.name;
        }
    }
    expectFaults({
        {"second", withEdits(elst({{1, 0}}) + elst({{1, 0}})), 19},
        {"second after a refused one", withEdits(elst({{1, 0, 0}}) + elst({{1, 0}})), 0, {118}},
        {"outside a track", movieFile(elst({{1, 0}})), 31},
    });

    const auto parsed = parseFile(withEdits(elst({{300, -1}, {1000, 0}})));
    EXPECT_EQ(parsed->track()->getContentLength(), 700);
}

/// A table over the bytes of a file, with its reader.
struct TableFile
{
    explicit TableFile(std::string bytes) : io(std::move(bytes)), file("table", &io, 0, {}) { file.Open(); }
    MemoryFileIo io;
    mp4::Mp4FileIO file;
};

std::string numbers(unsigned count)
{
    Fields fields;
    for (unsigned i = 0; i < count; ++i)
        fields.u32(i);
    return fields.bytes();
}

TEST(PageableArray, Pages)
{
    TableFile source("head" + numbers(10));
    source.file.Seek(2, mp4::Mp4FileIO::kFromStart);
    PageableArray<unsigned> table;
    EXPECT_NO_THROW(table.setCurPage(7));
    table.init(10, 4, &source.file, 4);
    EXPECT_EQ(source.file.Tell(), 2);
    EXPECT_EQ(table[9], 9U);

    table.setCurPage(0);
    table.split({0, 3, 3, 8});
    ASSERT_EQ(table.pageCount(), 5U);
    const std::size_t sizes[] = {0, 12, 0, 20, 8};
    for (std::size_t i = 0; i < 5; ++i)
        EXPECT_EQ(table.getPageSize(i), sizes[i]);
    EXPECT_EQ(table[2], 2U);
    EXPECT_THROW((void)table[3], streams::StreamParseError);
    table.setCurPage(3);
    EXPECT_EQ(table[3], 3U);
    EXPECT_EQ(table[7], 7U);
    EXPECT_THROW((void)table[2], streams::StreamParseError);
    EXPECT_EQ(source.file.Tell(), 2);

    const PageableArray<unsigned> copy = table;
    table.clearPage(3);
    EXPECT_THROW((void)table[3], streams::StreamParseError);
    EXPECT_EQ(table.at(4), nullptr);
    EXPECT_EQ(copy[7], 7U);
    table.setCurPage(3);
    EXPECT_EQ(table[7], 7U);
    table.split({5});
    EXPECT_EQ(table[4], 4U);

    EXPECT_THROW(table.setCurPage(2), streams::StreamParseError);
    EXPECT_THROW(table.clearPage(2), streams::StreamParseError);
    EXPECT_THROW(table.split({4, 2}), streams::StreamParseError);
    EXPECT_THROW(table.split({11}), streams::StreamParseError);
    table.clear();
    EXPECT_TRUE(table.isInit());
    EXPECT_EQ(table.size(), 10U);
    EXPECT_EQ(table.reportMemorySize(), 0U);
    EXPECT_THROW(table.setCurPage(0), streams::StreamParseError);
    EXPECT_THROW((void)table[4], streams::StreamParseError);
    table.split({});
    EXPECT_EQ(table[4], 4U);
}

TEST(PageableArray, WhatTheFileCannotHold)
{
    TableFile source(numbers(4));
    PageableArray<unsigned> table;
    EXPECT_NO_THROW(table.init(4, 0, &source.file, 4));
    EXPECT_NO_THROW(table.init(0, 16, &source.file, 4));
    EXPECT_TRUE(table.isInit());
    for (const long long pos : {1LL, 17LL, -1LL, 0x7FFFFFFFFFFFFFFFLL})
        EXPECT_THROW(table.init(4, pos, &source.file, 4), streams::StreamParseError);
    EXPECT_THROW(table.init(2, 0, &source.file, 8), streams::StreamParseError);
    EXPECT_FALSE(table.isInit());

    // A file that shrinks after the table was found in it.
    table.init(4, 0, &source.file, 4);
    table.clearPage(0);
    source.io.bytes().resize(10);
    source.file.FlushMemory();
    EXPECT_THROW(table.setCurPage(0), streams::StreamParseError);
    EXPECT_THROW((void)table[0], streams::StreamParseError);
}

}  // namespace
}  // namespace krx::test
