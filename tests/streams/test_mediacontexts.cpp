// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mediacontexts.h"
#include "tests/support/hextext.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <string>
#include <vector>

namespace krx::test {
namespace {

SRBuffer bufferOf(std::string_view bytes)
{
    SRBuffer buffer(static_cast<unsigned>(bytes.size()));
    if (!bytes.empty())
        std::memcpy(buffer.base(), bytes.data(), bytes.size());
    buffer.setEnd(static_cast<unsigned>(bytes.size()));
    return buffer;
}

ContextMessage message(unsigned track, ContextType_t type, long long position, std::string_view bytes = "x")
{
    ContextMessage m;
    m.trackId = track;
    m.contextType = type;
    m.position = position;
    m.messageType = 9;
    m.time = 40;
    m.memory = bufferOf(bytes).memory();
    m.length = static_cast<unsigned>(bytes.size());
    return m;
}

/// Keeps "track:type@position" of every context handed over.
class NoteHolder : public IContextHolder, public IAllContextHolder
{
public:
    void add(unsigned char type, void* data, unsigned length, unsigned time, long long position,
             unsigned trackId, ContextType_t contextType) override
    {
        EXPECT_EQ(type, 9);
        EXPECT_EQ(time, 40U);
        EXPECT_EQ(std::string(static_cast<char*>(data), length), "x");
        notes.push_back(std::to_string(trackId) + ':' + std::to_string(contextType) + '@' +
                        std::to_string(position));
    }
    void add(void*, unsigned) override { notes.emplace_back("all"); }

    std::vector<std::string> notes;
};

MediaContexts twoTracks()
{
    MediaContexts contexts;
    contexts.cacheContext(message(7, kContextHeader, 0));
    contexts.cacheContext(message(3, kContextHeader, -1));
    contexts.cacheContext(message(7, kContextHeader, 500));
    contexts.cacheContext(message(7, kContextHeader, 500));
    contexts.cacheContext(message(7, kContextEnder, 600));
    contexts.cacheContext(message(7, kContextEnder, 700));
    return contexts;
}

}  // namespace

TEST(MediaContexts, FindsContextsByPosition)
{
    struct Case
    {
        ContextType_t type;
        long long position;
        bool atPosition;
        std::vector<std::string> found;
    };
    const Case cases[] = {
        {kContextHeader, -1, false, {}},
        {kContextHeader, 0, false, {"3:1@-1"}},
        {kContextHeader, 1, false, {"7:1@0", "3:1@-1"}},
        {kContextHeader, 500, false, {"7:1@0", "3:1@-1"}},
        {kContextHeader, 501, false, {"7:1@500", "3:1@-1"}},
        {kContextHeader, 601, false, {"3:1@-1"}},  // an ender came after the header
        {kContextEnder, 599, false, {"7:2@600"}},
        {kContextEnder, 600, false, {"7:2@700"}},
        {kContextEnder, 499, false, {}},  // a header comes before the ender
        {kContextEnder, 700, false, {}},
        {kContextHeader, 500, true, {"7:1@500", "7:1@500"}},
        {kContextHeader, 501, true, {}},
        {kContextEnder, 700, true, {"7:2@700"}},
        {static_cast<ContextType_t>(3), 500, false, {}},
        {static_cast<ContextType_t>(3), 500, true, {}},
    };
    MediaContexts contexts = twoTracks();
    for (const Case& c : cases) {
        NoteHolder holder;
        EXPECT_EQ(contexts.tellContexts(c.type, c.position, &holder, c.atPosition), !c.found.empty());
        EXPECT_EQ(holder.notes, c.found) << c.type << " at " << c.position;
    }

    unsigned changed = 0;
    EXPECT_TRUE(contexts.getMediaContexts(kContextHeader, 501, [&](ContextMessage& m) {
        m.time = 41;
        ++changed;
    }));
    EXPECT_EQ(changed, 2U);
    EXPECT_EQ(contexts.findTrack(3)->messages()[0].time, 41U);
}

TEST(MediaContexts, ImportsOrRefusesForeignFiles)
{
    struct Case
    {
        const char* name;
        std::string bytes;
        bool taken;
        std::size_t contexts;
    };
    const Case cases[] = {
        {"empty file", "", true, 0},
        {"empty ECMA array", hexText("08 00000000 0000 09"), true, 0},
        {"object as outer value, int64 position, foreign property, bytes after it",
         hexText("03 0000 03 0008 'position' 22 0000000000000009 0001 'z' 01 01 0000 09 0000 09 FF"), true,
         1},
        {"strict array, kinds that do not fit", hexText("0A 00000001 03 0006 'buffer' 02 0001 'b' 0000 09"),
         true, 1},
        {"the same object twice", hexText("0A 00000002 03 0000 09 07 0001"), true, 2},
        {"an array in itself", hexText("0A 00000001 07 0000"), true, 1},
        {"an element that is no array", hexText("0A 00000002 03 0000 09 00 0000000000000000"), false, 0},
        {"a number", hexText("00 0000000000000000"), false, 0},
        {"ends early", hexText("08 00000000 0000 03 0004 'time'"), false, 0},
        {"blob beyond the end", hexText("08 00000000 0000 03 0006 'buffer' 20 7FFFFFFF 'a'"), false, 0},
        {"count beyond the end", hexText("0A FFFFFFFF"), false, 0},
        {"no such marker", hexText("0E"), false, 0},
    };
    for (const Case& c : cases) {
        MediaContexts contexts = twoTracks();
        EXPECT_EQ(contexts.importContexts(bufferOf(c.bytes)), c.taken) << c.name;
        EXPECT_EQ(contexts.numContexts(), c.contexts) << c.name;
    }
}

/// An AMF3 array of count + 1 objects with the only member trackID, five bytes each.
std::string shortObjects(const char* sizeOfArray, unsigned count, unsigned tracks)
{
    std::string bytes = hexText("11 09") + hexText(sizeOfArray) + hexText("01 0A 13 01 0F 'trackID' 04 01");
    for (unsigned i = 0; i < count; ++i) {
        bytes += hexText("0A 01 04");
        bytes += static_cast<char>(0x81 + i % tracks / 128);
        bytes += static_cast<char>(i % tracks % 128);
    }
    return bytes;
}

/// The contexts kept and the time taken grow with the bytes of the file.
TEST(MediaContexts, ImportsManyContextsInProportion)
{
    std::string sameObject = hexText("0A 000186A1 03");
    for (int i = 0; i < 10'000; ++i)
        sameObject += hexText("0001 'a' 05");
    sameObject += hexText("0000 09");
    for (int i = 0; i < 100'000; ++i)
        sameObject += hexText("07 0001");
    const struct
    {
        std::string bytes;
        std::size_t contexts;  ///< 0: more than the file may take
    } cases[] = {
        {sameObject, 100'001},
        {shortObjects("8C9A43", 100'000, 100), 100'001},
        {shortObjects("819C23", 10'000, 10'000), 0},
    };
    for (const auto& c : cases) {
        MediaContexts contexts;
        const std::clock_t start = std::clock();
        EXPECT_EQ(contexts.importContexts(bufferOf(c.bytes)), c.contexts != 0);
        EXPECT_LT(std::clock() - start, 5 * CLOCKS_PER_SEC);
        EXPECT_EQ(contexts.numContexts(), c.contexts);
    }
}

}  // namespace krx::test
