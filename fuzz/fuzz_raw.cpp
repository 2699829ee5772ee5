// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "fuzz/fuzzing.h"
#include "modules/streams/mediacontexts.h"
#include "modules/streams/raw/rawModule.h"
#include "modules/streams/streamparseerror.h"
#include "tests/support/memoryfileio.h"
#include "tests/support/rawbuilder.h"
#include "tests/support/recordingcontext.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <set>
#include <string>
#include <tuple>

namespace {

using krx::raw::RawAdaptor;

/// Keeps the adaptor's findings, whose numbers must be in the catalogue.
class Context : public krx::test::RecordingContext
{
public:
    using RecordingContext::RecordingContext;

    /// Of level 2 the errors, of level 3 the warnings.
    auto count(int level) const
    {
        return std::count_if(lines.begin(), lines.end(),
                             [&](const Line& line) { return line.level == level; });
    }
    void log(const char* text, unsigned short level, bool isFormed) override
    {
        RecordingContext::log(text, level, isFormed);
        if (*text == '-')
            require(krx::streams::catalogueText(static_cast<krx::streams::ParseStatus>(-std::atoi(text))) !=
                    nullptr);
    }
};

/// Takes messages and reads every byte of them.
class Holder : public ISegmentHolder, public IContextHolder, public IAllContextHolder
{
public:
    std::uint64_t bytes = 0;
    std::string all;  ///< the contexts, as a file

    bool add(unsigned char, void* data, unsigned length, unsigned) override
    {
        const auto* const body = static_cast<const unsigned char*>(data);
        for (unsigned i = 0; i < length; ++i)
            m_sum = m_sum * 31 + body[i];
        bytes += length;
        return true;
    }
    void add(unsigned char type, void* data, unsigned length, unsigned time, long long, unsigned,
             ContextType_t) override
    {
        add(type, data, length, time);
    }
    void add(void* data, unsigned length) override { all.assign(static_cast<const char*>(data), length); }
    void addDep(unsigned, unsigned) override {}

private:
    volatile unsigned m_sum = 0;
};

/// Cuts the input into pieces, whose lengths come first.
class Input
{
public:
    Input(const std::uint8_t* data, std::size_t size)
        : m_data(reinterpret_cast<const char*>(data)), m_left(size)
    {
    }

    unsigned byte() { return m_left ? static_cast<unsigned char>(piece(1)[0]) : 0; }
    std::string piece(std::size_t n)
    {
        n = std::min(n, m_left);
        std::string bytes(m_data, n);
        m_data += n;
        m_left -= n;
        return bytes;
    }
    std::string rest() { return piece(m_left); }

private:
    const char* m_data;
    std::size_t m_left;
};

void checkContexts(const RawAdaptor& adaptor, void* handle, Holder& holder)
{
    for (const ContextType_t type : {kContextHeader, kContextEnder})
        for (const long long position : {-1LL, 0LL, 5LL})
            for (const bool atPosition : {false, true})
                adaptor.getMediaContexts(handle, type, position, &holder, atPosition);
    if (adaptor.getAllMediaContexts(handle, &holder)) {
        SRBuffer buffer(static_cast<unsigned>(holder.all.size()));
        std::memcpy(buffer.base(), holder.all.data(), holder.all.size());
        buffer.setEnd(buffer.capacity());
        require(krx::MediaContexts().importContexts(buffer));
    }
    std::array<char, 16384> out{};
    for (unsigned type = 0; type < 6; ++type) {
        unsigned size = out.size();
        if (adaptor.getAttribute(handle, static_cast<AttrType_t>(type), out.data(), size))
            require(size <= out.size());
    }
}

/// Walks the stream as a validator does. Returns whether all of it is sound. The input holds at most two
/// segment files.
bool walk(RawAdaptor& adaptor, void* handle, const Context& context, krx::test::MemoryFileIo& io,
          const std::array<std::string, 2>& content, Holder& holder)
{
    const long long end = adaptor.getEndPosition(handle);
    std::size_t segment = 0;
    for (long long i = 0; i < end; ++segment) {
        SegmentBounds bounds;
        if (!adaptor.findSegmentByIndex(handle, i, &bounds) || bounds.start > i || bounds.end < i)
            return false;
        SegmentBounds other;
        adaptor.findSegmentByTime(handle, bounds.startTime, &other);
        io.files["r/" + krx::test::RawBuilder::fileName(bounds.start)] = content[segment % 2];
        const auto errors = context.count(2);
        const bool sound = adaptor.loadSegment(handle, &bounds, &holder);
        require(sound == (context.count(2) == errors));
        if (!sound)
            return false;
        i = bounds.end + 1;
    }
    return true;
}

}  // namespace

/// Byte 0: bit 0 warnings count as errors, the rest the largest aggregate in units of 16 bytes. Then the
/// lengths of the index, the contexts and the first segment file (2 bytes each, big-endian) and the files
/// themselves; what is left is the second segment file.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const unsigned mode = input.byte();
    std::array<std::size_t, 3> lengths{};
    for (std::size_t& length : lengths) {
        length = input.byte() << 8;
        length += input.byte();
    }
    krx::test::MemoryFileIo io;
    io.files["r/index"] = input.piece(lengths[0]);
    io.files["r/contexts"] = input.piece(lengths[1]);
    const std::string first = input.piece(lengths[2]);
    const std::array<std::string, 2> segments{first, input.rest()};

    // Whether messages are packed into aggregates must not change what is found.
    std::set<std::tuple<bool, long, long>> results;
    for (const bool aggregates : {false, true}) {
        Context context(&io, {{"Raw/EnableAggMsgs", aggregates ? "true" : "false"},
                              {"Raw/WarningsAsErrors", (mode & 1) != 0 ? "true" : "false"},
                              {"Raw/MaxAggMsgSize", std::to_string((mode >> 1) * 16)}});
        RawAdaptor adaptor(&context);
        void* handle = nullptr;
        bool sound = adaptor.open(nullptr, "r", 0, nullptr, handle) == 0;
        require(sound == (context.count(2) == 0));
        if (sound) {
            Holder holder;
            checkContexts(adaptor, handle, holder);
            sound = walk(adaptor, handle, context, io, segments, holder);
        }
        adaptor.close(handle);
        results.emplace(sound, context.count(2), context.count(3));
    }
    require(results.size() == 1);
    return 0;
}
