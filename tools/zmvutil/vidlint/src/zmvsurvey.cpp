// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/zmvsurvey.h"

#include "tools/zmvutil/vidlint/src/zmvformat.h"
#include "tools/zmvutil/vidlint/src/zmvreader.h"
#include "util/fileholes.h"
#include "util/messagerecord.h"

#include <algorithm>
#include <cstddef>

using krx::util::FilePos;
using krx::util::kBackPointerSize;
using krx::util::RecordHeader;

ZmvSurvey surveyZmv(ZmvReader& file, krx::util::FileHoles& holes)
{
    ZmvSurvey survey;
    const FilePos end = file.length();
    // What is missing shows as a stretch that is no data.
    const auto isThere = [&](FilePos position, FilePos n) {
        return n <= end - position && holes.isData(position, n);
    };
    const FilePos signatureSize = std::min<FilePos>(kZmvSignature.size(), end);
    file.seek(0);
    if (!std::equal(kZmvSignature.begin(), kZmvSignature.begin() + signatureSize,
                    file.take(static_cast<std::size_t>(signatureSize))) &&
        holes.isData(0, signatureSize))
        return survey;
    if (!isThere(0, kZmvHeaderFields)) {
        survey.isCutShort = true;
        return survey;
    }
    file.seek(kZmvHeaderLengthPosition);
    FilePos next = krx::util::loadBig32(file.take(4)) + static_cast<FilePos>(kBackPointerSize);
    survey.isCutShort = next > end;
    while (next < end) {
        if (!isThere(next, RecordHeader::kSize)) {
            survey.isCutShort = true;
            break;
        }
        file.seek(next);
        const RecordHeader header = RecordHeader::load(file.take(RecordHeader::kSize));
        if (!isZmvType(header.type))
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
