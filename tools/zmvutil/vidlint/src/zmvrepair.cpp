// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/report.h"
#include "tools/zmvutil/vidlint/src/zmvfile.h"
#include "tools/zmvutil/vidlint/src/zmvformat.h"

#include <algorithm>
#include <span>
#include <utility>

using krx::streams::StreamParseError;
using krx::util::FilePos;

void ZmvFile::applyFixes()
{
    if (m_fixes.empty())
        return;
    logAlert(SRMBString::format("\tCreating new file: %s\n", m_newFilePath).c_str());
    m_copy = std::make_unique<CorrectedCopy>(m_newFilePath, m_file);
    skipTo(0);

    // An insertion in front of a message comes before the replacement of that message, or the copy would have
    // to go back. Insertions at one place keep the order of their requests.
    std::stable_sort(m_fixes.begin(), m_fixes.end(), [](const FileFix& a, const FileFix& b) {
        return a < b || (!(b < a) && a.replaceLength == 0 && b.replaceLength != 0);
    });
    for (const FileFix& fix : m_fixes) {
        copyTo(fix.position);
        m_copy->write(fix.data.get(), fix.size);
        skip(fix.replaceLength);
    }
    copyTo(m_fileLength);
    m_copy->finish();
}

void ZmvFile::logSuccess()
{
    logPassed(m_copy ? m_newFilePath : m_path);
    // The copy stays locked until the line is out.
    if (m_copy)
        ReportWriter::instance().flush();
}

void ZmvFile::copyTo(FilePos end)
{
    FilePos n = end - curPos();
    if (n > kMaxReadSize)
        throw StreamParseError(krx::streams::kBoxTooLarge);
    while (n > 0) {
        const std::span<const unsigned char> bytes = m_file.takeSome(n);
        m_copy->write(bytes.data(), bytes.size());
        n -= static_cast<FilePos>(bytes.size());
    }
}

void ZmvFile::settleSilence(std::optional<unsigned> nextAudioTime)
{
    if (!m_silence)
        return;
    const Silence silence = *m_silence;
    m_silence.reset();
    if (nextAudioTime && *nextAudioTime < silence.timestamp)
        logWarning(StreamParseError(krx::streams::kVideoStall));
    else
        fixAddSilenceMessage(silence.position, silence.timestamp);
}

void ZmvFile::fixAddSilenceMessage(FilePos position, unsigned timestamp)
{
    SRMessageHeader header;
    header.type = kMsgAudio;
    header.timestamp = timestamp;
    addMessageFix(position, 0, header, SRCSerializer());
}

void ZmvFile::fixMetaData(const SRCSerializer& body, const SRMessageHeader& header)
{
    addMessageFix(m_messagePos, static_cast<FilePos>(header.length) + krx::util::kRecordOverhead, header,
                  body);
}

void ZmvFile::addMetaData(const SRCSerializer& body, FilePos position)
{
    SRMessageHeader header;
    header.type = kMsgData;
    addMessageFix(position, 0, header, body);
}

void ZmvFile::addMessageFix(FilePos position, FilePos replaceLength, SRMessageHeader header,
                            const SRCSerializer& body)
{
    const bool hasLeadingByte = header.type == kMsgDataEx;
    header.length = body.getPosition() + (hasLeadingByte ? 1 : 0);
    FileFix fix(position, replaceLength, header.length + krx::util::kRecordOverhead);
    krx::util::writeRecord(fix.data.get(), header, nullptr);
    unsigned char* out = fix.data.get() + SRMessageHeader::kSize;
    if (hasLeadingByte)
        *out++ = 0;
    std::copy_n(body.getBuffer(), body.getPosition(), out);
    m_fixes.push_back(std::move(fix));
}
