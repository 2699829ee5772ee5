// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "interfaces/IQVStreamAdaptor.h"
#include "interfaces/IQVStreamContext.h"
#include "interfaces/ISegmentHolder.h"
#include "modules/streams/mediacontexts.h"
#include "modules/streams/mp4/mp4module.h"
#include "modules/streams/raw/rawModule.h"
#include "server/KRXSyncFileIo.h"
#include "util/SRBuffer.h"
#include "util/messagerecord.h"

#include <boost/crc.hpp>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace {

/// What is listed.
enum class Listing
{
    kMessages,
    kAggregates,
    kContexts,
};

/// Answers the two settings that decide between single messages and aggregates; what is logged goes to the
/// standard error.
class ListContext : public IQVStreamContext
{
public:
    explicit ListContext(bool aggregates) : m_aggregates(aggregates ? "true" : "false") {}

    unsigned getVersion() const override { return 1; }
    int getConfig(const char* key, char** value, int size) override
    {
        if (std::strcmp(key, "Mp4/Playback/EnableAggMsgs") != 0 && std::strcmp(key, "Raw/EnableAggMsgs") != 0)
            return -1;
        const int length = static_cast<int>(m_aggregates.size());
        if (size < length)
            return length;
        std::memcpy(*value, m_aggregates.data(), m_aggregates.size());
        return 0;
    }
    void log(const char* text, unsigned short, bool) override
    {
        const std::size_t length = std::strlen(text);
        std::fprintf(stderr, "%s%s", text, length > 0 && text[length - 1] == '\n' ? "" : "\n");
    }
    IKrxFileIo* getFileIo() override { return &m_fileIo; }

private:
    std::string_view m_aggregates;
    SimpleKrxSyncFileIo m_fileIo;
};

class NoProperties : public IQVStreamOpenContext
{
public:
    int getProperty(const char*, const char*, char*, int) override { return -1; }
};

/// Prints the end of a line, which describes a body: "length", "head" (its first bytes) and "crc32".
void printBody(const void* data, unsigned length)
{
    constexpr unsigned kHeadBytes = 16;
    const auto* body = static_cast<const unsigned char*>(data);
    char head[2 * kHeadBytes + 1] = "";
    const unsigned shown = std::min(length, kHeadBytes);
    for (unsigned i = 0; i < shown; ++i)
        std::snprintf(head + std::size_t{2} * i, 3, "%02x", static_cast<unsigned>(body[i]));
    boost::crc_32_type crc;
    if (length > 0)
        crc.process_bytes(body, length);
    std::printf(R"("length": %u, "head": "%s", "crc32": "%08x"})"
                "\n",
                length, head, crc.checksum());
}

/// Prints a line for each message that a segment delivers. "index" is the message's place in the order of
/// delivery: the segment's first position and the number of messages delivered before it, those inside of
/// aggregates included. Samples that the module leaves out have no place.
class LinePrinter : public ISegmentHolder
{
public:
    void startSegment(long long index) { m_index = index; }

    bool add(unsigned char type, void* data, unsigned length, unsigned time) override
    {
        std::printf(R"({"index": %lld, "time": %u, "type": %u, )", m_index, time,
                    static_cast<unsigned>(type));
        printBody(data, length);
        m_index += type == kMsgAggregate ? recordCount(static_cast<unsigned char*>(data), length) : 1;
        return true;
    }
    void addDep(unsigned, unsigned) override {}

private:
    static long long recordCount(const unsigned char* body, unsigned length)
    {
        // By the lengths alone, as positions are counted, also where a record is unsound.
        long long count = 0;
        for (unsigned long long at = 0; at + krx::util::kRecordOverhead <= length; ++count)
            at += krx::util::RecordHeader::load(body + at).length + krx::util::kRecordOverhead;
        return count;
    }

    long long m_index = 0;
};

bool isDirectory(const char* path)
{
    struct stat status
    {
    };
    return ::stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

/// Lists the segments of an open stream; false when one of them cannot be loaded whole.
bool listSegments(IQVStreamAdaptor& adaptor, void* handle)
{
    LinePrinter printer;
    const long long end = adaptor.getEndPosition(handle);
    long long position = 0;
    for (unsigned long long k = 0; position < end; ++k) {
        SegmentBounds bounds;
        if (!adaptor.findSegmentByIndex(handle, position, &bounds) || bounds.end < position) {
            std::fprintf(stderr, "list_messages: no segment holds message %lld\n", position);
            return false;
        }
        std::printf(R"({"segment": %llu, "start": %lld, "end": %lld, "startTime": %u, "endTime": %u})"
                    "\n",
                    k, bounds.start, bounds.end, bounds.startTime, bounds.endTime);
        printer.startSegment(bounds.start);
        if (!adaptor.loadSegment(handle, &bounds, &printer)) {
            std::fprintf(stderr, "list_messages: segment %llu cannot be loaded\n", k);
            return false;
        }
        position = bounds.end + 1;
    }
    return true;
}

/// Prints a line for each context message that a stream hands over.
class ContextPrinter : public IAllContextHolder
{
public:
    void add(void* data, unsigned length) override
    {
        SRBuffer encoded(length);
        std::memcpy(encoded.base(), data, length);
        encoded.setEnd(length);
        krx::MediaContexts contexts;
        m_decoded = contexts.importContexts(encoded);
        contexts.applyMessages([](const krx::ContextMessage& message) {
            std::printf(R"({"contextType": %u, "type": %u, "track": %u, "position": %lld, "time": %u, )",
                        static_cast<unsigned>(message.contextType),
                        static_cast<unsigned>(message.messageType), message.trackId, message.position,
                        message.time);
            printBody(message.data(), message.length);
        });
    }
    bool hasDecoded() const { return m_decoded; }

private:
    bool m_decoded = true;
};

/// Lists all context messages of an open stream, track by track; a stream may have none.
bool listContexts(const IQVStreamAdaptor& adaptor, void* handle)
{
    ContextPrinter printer;
    adaptor.getAllMediaContexts(handle, &printer);
    if (!printer.hasDecoded())
        std::fputs("list_messages: the context messages cannot be read\n", stderr);
    return printer.hasDecoded();
}

/// False for arguments that the program does not take.
bool parseArguments(int argc, char** argv, Listing& listing, const char*& input)
{
    const auto isOption = [](const char* argument) { return std::string_view(argument).starts_with("--"); };
    if (argc < 2 || argc > 3 || isOption(argv[argc - 1]))
        return false;
    input = argv[argc - 1];
    if (argc == 2)
        return true;
    const std::string_view option = argv[1];
    listing = option == "--aggregates" ? Listing::kAggregates : Listing::kContexts;
    return option == "--aggregates" || option == "--contexts";
}

}  // namespace

/// Lists as JSON lines what a player of an MP4 file or a recorded stream would be sent: the segments and
/// messages, or the context messages that a player joining in the middle gets first. Ends with 1 when the
/// list is not whole.
int main(int argc, char** argv)
{
    Listing listing = Listing::kMessages;
    const char* input = nullptr;
    if (!parseArguments(argc, argv, listing, input)) {
        std::fputs("Usage: list_messages [--aggregates | --contexts] INPUT\n", stderr);
        return 1;
    }

    ListContext context(listing == Listing::kAggregates);
    std::unique_ptr<IQVStreamAdaptor> adaptor;
    if (isDirectory(input))
        adaptor = std::make_unique<krx::raw::RawAdaptor>(&context);
    else
        adaptor = std::make_unique<krx::mp4::Mp4Module>(&context);

    NoProperties properties;
    void* handle = nullptr;
    if (adaptor->open(&properties, input, 0, nullptr, handle) != 0) {
        std::fprintf(stderr, "list_messages: %s does not open\n", input);
        return 1;
    }
    const bool complete =
        listing == Listing::kContexts ? listContexts(*adaptor, handle) : listSegments(*adaptor, handle);
    adaptor->close(handle);
    if (std::fflush(stdout) != 0) {
        std::fputs("list_messages: cannot write the list\n", stderr);
        return 1;
    }
    return complete ? 0 : 1;
}
