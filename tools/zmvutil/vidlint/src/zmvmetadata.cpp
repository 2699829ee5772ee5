// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/SRCommand.h"
#include "tools/zmvutil/vidlint/src/zmvfile.h"
#include "tools/zmvutil/vidlint/src/zmvformat.h"

#include <array>
#include <cmath>
#include <cstring>

using krx::streams::ParseStatus;
using krx::streams::StreamParseError;

namespace {

constexpr const char* kMetaDataName = "onMetaData";
constexpr const char* kDuration = "duration";
constexpr const char* kCanSeekToEnd = "canSeekToEnd";

/// A metadata command without properties.
void beginMetaData(SRCommand& command)
{
    command.setMethodName(SRMBString(kMetaDataName));
    command.setTrxID(SRData(0.0));
}

/// The command as a message. A property list that a message cannot hold is as bad as one that cannot be read.
SRMessagePtr encodeMetaData(SRCommand& command)
{
    const auto* list = static_cast<SRDataArray*>(command.getArg(0));
    if (list && list->containsCircle())
        throw StreamParseError(krx::streams::kUnparsableDataMessage);
    SRMessagePtr message = command.getDataResponse();
    if (!message)
        throw StreamParseError(krx::streams::kUnparsableDataMessage);
    return message;
}

}  // namespace

bool ZmvFile::isMetaDataName(const char* name)
{
    return std::strcmp(name, kMetaDataName) == 0;
}

void ZmvFile::validateMetadata(const SRMessageHeader& header, const SRDataArray* list, int argType)
{
    if (!list) {
        fixMetaData(getDefaultMetaData(), header);
        m_hasMetaData = true;
        return;
    }

    SRCommand corrected;
    beginMetaData(corrected);
    bool durationFound = false;
    bool durationCorrected = false;
    bool canSeekFound = false;
    bool canSeekCorrected = false;

    for (int i = 0; i < list->getSize(); ++i) {
        const SRMBString& name = list->getPropertyNameConst(i);
        SRData value = list->getPropertyValueConst(i);
        if (name.equalsIgnoreCase(kDuration)) {
            durationFound = true;
            if (std::abs(static_cast<double>(value) - m_duration) > m_parameters.durationMargin) {
                logWarning(StreamParseError(krx::streams::kMetadataDuration));
                value.init(m_duration);
                durationCorrected = true;
            }
        } else if (name.equalsIgnoreCase(kCanSeekToEnd)) {
            canSeekFound = true;
            if (!static_cast<bool>(value)) {
                logWarning(StreamParseError(krx::streams::kMetadataCanSeekToEnd));
                value.init(true);
                canSeekCorrected = true;
            }
        }
        if (argType == kArrayType)
            corrected.setOnMetaDataProperty(name, value);
        else if (argType != kStrictArrayType)
            corrected.setInfoProperty(name, value);
    }
    if (!durationFound) {
        logWarning(StreamParseError(krx::streams::kMetadataDuration));
        corrected.setInfoProperty(SRMBString(kDuration), SRData(m_duration));
        durationCorrected = true;
    }
    if (!canSeekFound) {
        logWarning(StreamParseError(krx::streams::kMetadataCanSeekToEnd));
        corrected.setInfoProperty(SRMBString(kCanSeekToEnd), SRData(true));
        canSeekCorrected = true;
    }

    if (m_parameters.fixMetaData) {
        if (durationCorrected || canSeekCorrected)
            fixMetaData(encodeMetaData(corrected), header);
        m_hasMetaData = true;
    } else {
        m_hasMetaData = !durationCorrected;
    }
}

SRMessagePtr ZmvFile::getDefaultMetaData()
{
    logWarning(StreamParseError(krx::streams::kMissingMetadata));
    SRCommand command;
    beginMetaData(command);
    command.setInfoProperty(SRMBString(kDuration), SRData(m_duration));
    command.setInfoProperty(SRMBString(kCanSeekToEnd), SRData(true));
    return encodeMetaData(command);
}

void ZmvFile::correctFlag(unsigned flag, bool seen, ParseStatus notSet, ParseStatus setWithoutMessages)
{
    const bool set = (m_flags & flag) != 0;
    if (set == seen)
        return;
    logWarning(StreamParseError(seen ? notSet : setWithoutMessages));
    m_flags ^= flag;
}

void ZmvFile::validateFlags()
{
    const unsigned flags = m_flags;
    correctFlag(zmv::kVideoFlag, m_videoSeen, krx::streams::kVideoFlagNotSet,
                krx::streams::kVideoFlagWithoutVideo);
    correctFlag(zmv::kAudioFlag, m_audioSeen, krx::streams::kAudioFlagNotSet,
                krx::streams::kAudioFlagWithoutAudio);
    if (m_parameters.fixMetaData && m_flags != flags) {
        FileFix fix(zmv::kFlagsPosition, 1, 1);
        fix.writeU8(static_cast<unsigned char>(m_flags));
        m_fixes.push_back(std::move(fix));
    }
}

void ZmvFile::verifyHasMetaData()
{
    if (m_hasMetaData)
        return;
    if (!m_parameters.fixMetaData)
        throw StreamParseError(krx::streams::kMissingMetadata);
    addMetaData(getDefaultMetaData(),
                static_cast<krx::util::FilePos>(m_headerLength) + zmv::kBackPointerSize);
}
