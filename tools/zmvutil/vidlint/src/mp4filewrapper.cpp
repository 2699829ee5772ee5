// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/mp4filewrapper.h"

#include "modules/streams/mp4/mp4Data.h"

namespace krx::mp4 {

void MP4FileWrapper::parse()
{
    Mp4Config config;
    config.EnableAggMsgs = false;
    config.MaxAggMsgSize = 0;
    config.validation = m_parameters;
    SimpleKrxSyncFileIo fileIo;
    Mp4Data data(m_path.toMultiByte(), nullptr, &fileIo, 0, config);
    const AutoMp4Open open(data.getFileIO());
    if (!open.isOpen())
        throw streams::StreamParseError(streams::kCannotOpenFile);
    data.subInitPlayback(kFirstLoad);
    if (isShown(streams::LOG_INFO))
        logInfo("Memory Overhead: " + std::to_string(data.getMemoryOverhead()) + " bytes\n");
}

void MP4FileWrapper::applyFixes() {}

}  // namespace krx::mp4
