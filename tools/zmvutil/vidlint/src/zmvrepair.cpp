// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/correctedcopy.h"
#include "tools/zmvutil/vidlint/src/zmvfile.h"
#include "tools/zmvutil/vidlint/src/zmvformat.h"

#include <algorithm>
#include <array>
#include <span>
#include <tuple>

using krx::streams::StreamParseError;
using krx::util::FilePos;

void ZmvFile::applyFixes()
{
    if (m_fixes.empty())
        return;
    logAlert(SRMBString::format("\tCreating new file: %s\n", m_newFilePath).c_str());
    CorrectedCopy copy(m_newFilePath, m_file);
    skipTo(0);

    // An insertion in front of a message comes before the replacement of that message, or the copy would have
    // to go back. Insertions at one place keep the order of their requests.
    std::stable_sort(m_fixes.begin(), m_fixes.end(), [](const FileFix& a, const FileFix& b) {
        return a < b || (!(b < a) && a.replaceLength == 0 && b.replaceLength != 0);
    });
    for (const FileFix& fix : m_fixes) {
        copyTo(fix.position, copy);
        copy.write(fix.data.get(), fix.size);
        skip(fix.replaceLength);
    }
    copyTo(m_fileLength, copy);
    copy.finish();
    m_newFileWritten = true;
}

void ZmvFile::logSuccess()
{
    logPassed(m_newFileWritten ? m_newFilePath : m_path);
}

void ZmvFile::copyTo(FilePos end, CorrectedCopy& copy)
{
    FilePos n = end - curPos();
    if (n > kMaxReadSize)
        throw StreamParseError(krx::streams::kBoxTooLarge);
    while (n > 0) {
        const std::span<const unsigned char> bytes = m_file.takeSome(n);
        copy.write(bytes.data(), bytes.size());
        n -= static_cast<FilePos>(bytes.size());
    }
}

void ZmvFile::fixAddSilenceMessage(unsigned timestamp)
{
    SRMessageHeader header;
    header.type = kMsgAudio;
    header.timestamp = timestamp;
    addMessageFix(m_messagePos, 0, header, nullptr);
}

void ZmvFile::fixMetaData(const SRMessagePtr& message, SRMessageHeader header)
{
    const FilePos replaceLength = static_cast<FilePos>(header.length) + zmv::kMessageOverhead;
    header.length = message->getMsgLen();
    addMessageFix(m_messagePos, replaceLength, header, message->getBody());
}

void ZmvFile::addMetaData(const SRMessagePtr& message, FilePos position)
{
    SRMessageHeader header;
    header.type = kMsgData;
    header.length = message->getMsgLen();
    addMessageFix(position, 0, header, message->getBody());
}

void ZmvFile::addMessageFix(FilePos position, FilePos replaceLength, const SRMessageHeader& header,
                            const unsigned char* payload)
{
    std::array<unsigned char, SRMessageHeader::kSize> headerBytes{};
    header.serialize(headerBytes.data());
    FileFix fix(position, replaceLength, header.length + zmv::kMessageOverhead);
    fix.write(headerBytes.data(), SRMessageHeader::kSize);
    fix.write(payload, header.length);
    fix.writeU32(header.length + SRMessageHeader::kSize);
    m_fixes.push_back(std::move(fix));
}
