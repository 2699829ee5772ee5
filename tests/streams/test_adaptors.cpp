// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// The rules of every stream module, whatever it reads.

#include "modules/streams/mediacontexts.h"
#include "modules/streams/mp4/mp4module.h"
#include "modules/streams/raw/rawModule.h"
#include "tests/support/assertrecorder.h"
#include "tests/support/memoryfileio.h"
#include "tests/support/mp4builder.h"
#include "tests/support/rawbuilder.h"
#include "tests/support/recordingcontext.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

namespace krx::test {
namespace {

struct Kind
{
    const char* name;
    unsigned duration;
    long long messages;
    unsigned permission;
};

constexpr Kind kKinds[] = {{"Movie", 2002, 140, 22}, {"Recording", 61, 6, 6}};

/// A module with one stream in memory.
class Adaptors : public testing::TestWithParam<Kind>
{
protected:
    Adaptors()
    {
        if (isMovie()) {
            m_io.files["in"] = buildMovie(soundMovie()).bytes;
        } else {
            RawBuilder builder = smallRecording();
            builder.context({9, 1, "header", 0, 1, 1});
            for (const auto& [name, content] : builder.files())
                m_io.files["in/" + name] = content;
        }
        m_io.modifiedTimes = {{"in", {77, 5}}, {"in/index", {77, 5}}};
        open(true);
    }
    ~Adaptors() override { m_adaptor->close(m_handle); }

    bool isMovie() const { return GetParam().duration == kKinds[0].duration; }

    std::unique_ptr<IQVStreamAdaptor> make(IQVStreamContext* context) const
    {
        if (isMovie())
            return std::make_unique<mp4::Mp4Module>(context);
        return std::make_unique<raw::RawAdaptor>(context);
    }
    void open(bool aggregates)
    {
        if (m_adaptor)
            m_adaptor->close(m_handle);
        m_handle = nullptr;
        const char* const text = aggregates ? "true" : "false";
        m_context.settings = {{"Mp4/Playback/EnableAggMsgs", text}, {"Raw/EnableAggMsgs", text}};
        m_adaptor = make(&m_context);
        ASSERT_EQ(m_adaptor->open(nullptr, "in", 0, nullptr, m_handle), 0);
        ASSERT_NE(m_handle, nullptr);
    }
    /// Whether the attribute fits into room bytes; size receives the size reported.
    bool get(unsigned type, unsigned room, std::string& bytes, unsigned& size) const
    {
        bytes.assign(4096, '\0');
        size = room;
        return m_adaptor->getAttribute(m_handle, static_cast<AttrType_t>(type), bytes.data(), size);
    }

    MemoryFileIo m_io;
    RecordingContext m_context{&m_io};
    std::unique_ptr<IQVStreamAdaptor> m_adaptor;
    void* m_handle = nullptr;
};

/// Counts what lookups hand over, and keeps the contexts file.
class ContextsHolder : public IContextHolder, public IAllContextHolder
{
public:
    unsigned contexts = 0;
    std::string all;

    void add(unsigned char, void*, unsigned, unsigned, long long, unsigned, ContextType_t) override
    {
        ++contexts;
    }
    void add(void* data, unsigned length) override { all.assign(static_cast<char*>(data), length); }
};

TEST_P(Adaptors, WalkTheWholeStream)
{
    for (const bool aggregates : {true, false}) {
        open(aggregates);
        EXPECT_FALSE(m_io.isOpen());
        EXPECT_EQ(m_adaptor->getDuration(m_handle), GetParam().duration);
        EXPECT_EQ(m_adaptor->getType(m_handle), 5);
        EXPECT_GT(m_adaptor->getMemoryOverhead(m_handle), 0U);
        const long long end = m_adaptor->getEndPosition(m_handle);
        ASSERT_EQ(end, GetParam().messages);
        RecordingHolder holder;
        SegmentBounds bounds;
        for (long long i = 0; i < end; i = bounds.end + 1) {
            ASSERT_TRUE(m_adaptor->findSegmentByIndex(m_handle, i, &bounds));
            SegmentBounds byTime;
            EXPECT_TRUE(m_adaptor->findSegmentByTime(m_handle, bounds.endTime - 1, &byTime));
            EXPECT_EQ(bounds, byTime);
            for (int again = 0; again < 2; ++again) {
                holder.messages.resize(aggregates ? holder.messages.size() : static_cast<std::size_t>(i));
                ASSERT_TRUE(m_adaptor->loadSegment(m_handle, &bounds, &holder));
                m_adaptor->onFreeSegment(m_handle, 0);
            }
        }
        EXPECT_TRUE(aggregates ? holder.messages.size() < 10U : std::ssize(holder.messages) == end);
        EXPECT_FALSE(m_adaptor->findSegmentByIndex(m_handle, end, &bounds));
        EXPECT_TRUE(m_context.takeFindings().empty());
    }
}

TEST_P(Adaptors, GiveAttributesThatFit)
{
    const std::uint64_t values[] = {77, GetParam().duration,
                                    static_cast<std::uint64_t>(m_adaptor->getSize(m_handle))};
    EXPECT_EQ(values[2], isMovie() ? m_io.files["in"].size() : 120U);
    std::string bytes;
    unsigned size = 0;
    for (const unsigned type : {kAttrModifiedTime, kAttrDuration, kAttrSize}) {
        const unsigned width = type == kAttrSize ? 8 : 4;
        for (const unsigned room : {width - 1, width, width + 10}) {
            EXPECT_EQ(get(type, room, bytes, size), room >= width) << type;
            EXPECT_EQ(size, width) << type;
            std::uint64_t value = 0;
            std::memcpy(&value, bytes.data(), sizeof value);
            EXPECT_EQ(value, room >= width ? values[type - 1] : 0) << type;
        }
    }
    ASSERT_TRUE(get(kAttrMetadata, 4096, bytes, size));
    EXPECT_EQ(bytes.substr(0, 14), std::string("\x02\0\x0AonMetaData\x08", 14));
    const unsigned whole = size;
    EXPECT_TRUE(get(kAttrMetadata, whole, bytes, size));
    EXPECT_FALSE(get(kAttrMetadata, whole - 1, bytes, size));
    EXPECT_EQ(size, 0U);
    EXPECT_FALSE(get(5, 16, bytes, size));
    EXPECT_EQ(size, 16U);
}

TEST_P(Adaptors, GiveTheirContexts)
{
    ContextsHolder holder;
    EXPECT_TRUE(m_adaptor->getMediaContexts(m_handle, kContextHeader, 5, &holder, false));
    EXPECT_GE(holder.contexts, 2U);
    EXPECT_TRUE(m_adaptor->getAllMediaContexts(m_handle, &holder));
    SRBuffer buffer(static_cast<unsigned>(holder.all.size()));
    std::memcpy(buffer.base(), holder.all.data(), holder.all.size());
    buffer.setEnd(buffer.capacity());
    MediaContexts contexts;
    EXPECT_TRUE(contexts.importContexts(buffer));
    EXPECT_GE(contexts.numContexts(), holder.contexts);
}

TEST_P(Adaptors, OpenOnlyWhatTheyCanPlayAndRecordNothing)
{
    void* handle = nullptr;
    EXPECT_NE(make(nullptr)->open(nullptr, "in", 0, nullptr, handle), 0);
    m_io.allowOpen(false);
    EXPECT_NE(make(&m_context)->open(nullptr, "in", 0, nullptr, handle), 0);
    EXPECT_EQ(handle, nullptr);

    SegmentBounds bounds;
    AssertRecorder asserts;
    ASSERT_TRUE(m_adaptor->findSegmentByIndex(m_handle, 0, &bounds));
    EXPECT_FALSE(m_adaptor->loadSegment(m_handle, &bounds, nullptr));
    EXPECT_FALSE(m_adaptor->getMediaContexts(m_handle, kContextHeader, 5, nullptr, false));
    EXPECT_FALSE(m_adaptor->getAllMediaContexts(m_handle, nullptr));
    EXPECT_EQ(asserts.take().size(), 3U);

    EXPECT_EQ(m_adaptor->getVersion(), 256U);
    EXPECT_EQ(m_adaptor->getPermission(), GetParam().permission);
    EXPECT_FALSE(m_adaptor->record(m_handle, 8, "x", 1, 0));
    EXPECT_FALSE(m_adaptor->flushSegment(m_handle, &bounds));
    EXPECT_FALSE(m_adaptor->stopRecord(m_handle));
    EXPECT_FALSE(m_adaptor->updateMediaContext(m_handle, kContextHeader, 8, 0, nullptr, 0));
}

INSTANTIATE_TEST_SUITE_P(OfEachKind, Adaptors, testing::ValuesIn(kKinds),
                         [](const auto& kind) { return std::string(kind.param.name); });

}  // namespace
}  // namespace krx::test
