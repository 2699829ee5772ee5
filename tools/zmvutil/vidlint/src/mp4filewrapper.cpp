// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/mp4filewrapper.h"

#include "modules/streams/mp4/mp4Data.h"

void MP4FileWrapper::parse()
{
    krx::mp4::Mp4Config config;
    config.EnableAggMsgs = false;
    config.MaxAggMsgSize = 0;
    config.validation = m_parameters;
    SimpleKrxSyncFileIo fileIo;
    krx::mp4::Mp4Data data(m_path.toMultiByte(), nullptr, &fileIo, 0, config);
    const krx::mp4::AutoMp4Open open(data.getFileIO());
    if (!open.isOpen())
        throw krx::streams::StreamParseError(krx::streams::kCannotOpenFile);
    data.subInitPlayback(krx::mp4::kFirstLoad);
    if (isShown(krx::streams::LOG_INFO))
        logInfo("Memory Overhead: " + std::to_string(data.getMemoryOverhead()) + " bytes\n");
}

void MP4FileWrapper::applyFixes() {}
