// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/zmvfile.h"
#include "tools/zmvutil/vidlint/src/zmvformat.h"

#include <algorithm>
#include <utility>

using krx::util::FilePos;

void ZmvFile::applyFixes()
{
    if (m_fixes.empty())
        return;
    m_copy = std::make_unique<CorrectedCopy>(copyPath(), m_file);
    m_copy->splice(m_file, m_fixes);
}

void ZmvFile::settleSilence(std::optional<unsigned> nextAudioTime)
{
    if (!m_silence)
        return;
    const Silence silence = *m_silence;
    m_silence.reset();
    if (nextAudioTime && *nextAudioTime < silence.timestamp)
        warnAt(krx::streams::kVideoStall, silence.place);
    else
        fixAddSilenceMessage(silence.place.offset, silence.timestamp);
}

void ZmvFile::fixAddSilenceMessage(FilePos position, unsigned timestamp)
{
    SRMessageHeader header;
    header.type = kMsgAudio;
    header.timestamp = timestamp;
    addMessageFix(position, 0, header, SRCSerializer(), "insert silence");
}

void ZmvFile::fixMetaData(const SRCSerializer& body, const SRMessageHeader& header)
{
    addMessageFix(m_messagePos, static_cast<FilePos>(header.length) + krx::util::kRecordOverhead, header,
                  body, "replace onMetaData");
}

void ZmvFile::addMetaData(const SRCSerializer& body, FilePos position)
{
    SRMessageHeader header;
    header.type = kMsgData;
    addMessageFix(position, 0, header, body, "insert onMetaData");
}

void ZmvFile::addMessageFix(FilePos position, FilePos replaceLength, SRMessageHeader header,
                            const SRCSerializer& body, const char* reason)
{
    const bool hasLeadingByte = header.type == kMsgDataEx;
    header.length = body.getPosition() + (hasLeadingByte ? 1 : 0);
    FileFix fix(position, replaceLength, header.length + krx::util::kRecordOverhead);
    fix.reason = reason;
    krx::util::writeRecord(fix.data.get(), header, nullptr);
    unsigned char* out = fix.data.get() + SRMessageHeader::kSize;
    if (hasLeadingByte)
        *out++ = 0;
    std::copy_n(body.getBuffer(), body.getPosition(), out);
    m_fixes.push_back(std::move(fix));
}
