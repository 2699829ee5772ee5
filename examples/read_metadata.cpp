// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Takes apart what a player of an MP4 file or a recorded stream would be sent:
//
//     read_metadata INPUT
//
// Prints the messages inside the first aggregate, and the names and values of "onMetaData".

#include "interfaces/IQVStreamAdaptor.h"
#include "interfaces/IQVStreamContext.h"
#include "interfaces/ISegmentHolder.h"
#include "modules/streams/mp4/mp4module.h"
#include "modules/streams/raw/rawModule.h"
#include "modules/streams/streamloadstatus.h"
#include "modules/streams/videovalidationparameters.h"
#include "printable.h"
#include "server/KRXSyncFileIo.h"
#include "server/SRCommand.h"
#include "server/compositemessage.h"

#include <cstdio>
#include <filesystem>
#include <memory>

namespace {

/// What an adaptor may ask for. No setting is configured, so all have their defaults.
class Context : public IQVStreamContext
{
public:
    unsigned getVersion() const override { return 1; }
    int getConfig(const char*, char**, int) override { return -1; }
    void log(const char* text, unsigned short level, bool) override
    {
        if (level <= krx::streams::LOG_WARNING)
            std::fprintf(stderr, "%s\n", printable(text).c_str());
    }
    IKrxFileIo* getFileIo() override { return &m_fileIo; }

private:
    SimpleKrxSyncFileIo m_fileIo;
};

/// Prints the messages of the first aggregate.
class AggregatePrinter : public ISegmentHolder
{
public:
    bool add(unsigned char type, void* data, unsigned length, unsigned) override
    {
        if (isDone || (type & kTypeMask) != kMsgAggregate)
            return true;
        isDone = true;
        // The bytes stay the adaptor's, so the aggregate must be gone when the call returns.
        const SRMemoryPtr body(new SRMemory(static_cast<unsigned char*>(data), length, nullptr));
        const krx::CompositeMessagePtr aggregate(new krx::CompositeMessage(body, length));
        for (unsigned i = 0; i < aggregate->getMessageCount(); ++i) {
            const krx::SubMessage& message = *aggregate->getMessage(i);
            std::printf("%u ms: type %u, %u bytes\n", message.getTime(), message.getPlainType() + 0U,
                        message.getBodyLength());
        }
        return true;
    }
    void addDep(unsigned, unsigned) override {}

    bool isDone = false;
};

void printFirstAggregate(IQVStreamAdaptor& adaptor, void* handle)
{
    AggregatePrinter printer;
    const long long end = adaptor.getEndPosition(handle);
    SegmentBounds bounds;
    for (long long position = 0; position < end && !printer.isDone; position = bounds.end + 1) {
        if (!adaptor.findSegmentByIndex(handle, position, &bounds) || bounds.end < position)
            return;
        adaptor.loadSegment(handle, &bounds, &printer);
    }
}

void printMetadata(const IQVStreamAdaptor& adaptor, void* handle)
{
    unsigned size = kMaxMessageLength;
    const auto body = std::make_unique_for_overwrite<unsigned char[]>(size);
    if (!adaptor.getAttribute(handle, kAttrMetadata, body.get(), size) || size == 0)
        return;
    // The body of type 15 is that of type 18 after a zero byte.
    const unsigned skip = body[0] == 0 ? 1 : 0;
    const SRCommand message(kMsgData, body.get() + skip, static_cast<int>(size - skip), false);
    const auto* const values = static_cast<SRDataArray*>(message.getArg(0));
    for (int i = 0; values && i < values->getSize(); ++i)
        std::printf("%s: %s\n", printable(values->getPropertyNameConst(i)).c_str(),
                    printable(values->getPropertyValueConst(i).toText()).c_str());
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fputs("Usage: read_metadata INPUT\n", stderr);
        return 1;
    }
    Context context;
    std::unique_ptr<IQVStreamAdaptor> adaptor;
    if (std::filesystem::is_directory(argv[1]))
        adaptor = std::make_unique<krx::raw::RawAdaptor>(&context);
    else
        adaptor = std::make_unique<krx::mp4::Mp4Module>(&context);
    void* handle = nullptr;
    if (adaptor->open(nullptr, argv[1], 0, nullptr, handle) != krx::streams::kLoadOk) {
        std::fprintf(stderr, "%s does not open\n", printable(argv[1]).c_str());
        return 1;
    }
    printFirstAggregate(*adaptor, handle);
    printMetadata(*adaptor, handle);
    adaptor->close(handle);
    return 0;
}
