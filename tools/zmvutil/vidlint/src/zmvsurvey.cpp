// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/zmvsurvey.h"

#include "tools/zmvutil/vidlint/src/zmvformat.h"
#include "tools/zmvutil/vidlint/src/zmvreader.h"
#include "util/fileholes.h"
#include "util/messagerecord.h"

using krx::util::FilePos;
using krx::util::kBackPointerSize;
using krx::util::RecordHeader;

namespace {

/// Offset of the header length, which is the last field of the header.
constexpr FilePos kHeaderLengthPosition = 5;
constexpr FilePos kHeaderSize = kHeaderLengthPosition + 4;

bool isKnownType(unsigned type)
{
    type &= ~static_cast<unsigned>(kEncryptedFlag);
    return type == kMsgAudio || type == kMsgVideo || type == kMsgData || type == kMsgDataEx;
}

}  // namespace

ZmvSurvey surveyZmv(ZmvReader& file, krx::util::FileHoles& holes)
{
    ZmvSurvey survey;
    const FilePos end = file.length();
    // What is missing shows as a stretch that is no data.
    const auto isThere = [&](FilePos position, FilePos n) {
        return n <= end - position && holes.isData(position, n);
    };
    if (!isThere(0, kHeaderSize)) {
        survey.isCutShort = true;
        return survey;
    }
    file.seek(kHeaderLengthPosition);
    FilePos next = krx::util::loadBig32(file.take(4)) + static_cast<FilePos>(kBackPointerSize);
    while (next < end) {
        if (!isThere(next, RecordHeader::kSize)) {
            survey.isCutShort = true;
            break;
        }
        file.seek(next);
        const RecordHeader header = RecordHeader::load(file.take(RecordHeader::kSize));
        if (!isKnownType(header.type))
            break;
        const FilePos size = static_cast<FilePos>(header.length) + krx::util::kRecordOverhead;
        if (!isThere(next, size)) {
            survey.isCutShort = true;
            break;
        }
        file.seek(next + size - static_cast<FilePos>(kBackPointerSize));
        if (krx::util::loadBig32(file.take(kBackPointerSize)) != krx::util::backPointerOf(header.length))
            break;
        survey.tally.of(header.type).add(header.timestamp);
        next += size;
    }
    return survey;
}
