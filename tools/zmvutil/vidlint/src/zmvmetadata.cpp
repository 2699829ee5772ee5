// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/SRCSerializer.h"
#include "tools/zmvutil/vidlint/src/zmvfile.h"
#include "tools/zmvutil/vidlint/src/zmvformat.h"
#include "util/SRException.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <utility>

using krx::streams::ParseStatus;
using krx::streams::StreamParseError;

namespace {

constexpr const char* kMetaDataName = "onMetaData";
constexpr const char* kDuration = "duration";
constexpr const char* kCanSeekToEnd = "canSeekToEnd";

SRData newObject()
{
    const SRDataArrayPtr object(new SRDataArray);
    object->setKind(kObjectType);
    return SRData(object, kObjectType);
}

/// Writes the values of an onMetaData with that list. False when they cannot be written wholly. Throws
/// SROutOfMemory.
bool putMetaData(const SRData& list, SRCSerializer& body)
{
    const SRData name(kMetaDataName);
    const bool written = body.PutVar(&name, false) && body.PutVar(&list, false);
    if (body.hasWriteStarved())
        throw SROutOfMemory();
    // The values that it wrote references to are not needed any more.
    body.CleanDirtyFlags();
    return written;
}

}  // namespace

bool ZmvFile::isMetaDataName(const char* name)
{
    return std::strcmp(name, kMetaDataName) == 0;
}

bool ZmvFile::isNamedMetaData(const SRMessagePtr& message)
{
    SRCSerializer reader(message, true);
    SRData name;
    try {
        reader.GetVar(&name, false);
    } catch (const SRBreakConnection&) {
        return false;
    }
    if (reader.hasReadStarved())
        throw SROutOfMemory();
    return isMetaDataName(static_cast<const char*>(name));
}

template <typename Fault>
void ZmvFile::findFaults(const SRDataArray& list, Fault fault) const
{
    bool durationFound = false;
    bool canSeekFound = false;
    for (int i = 0; i < list.getSize(); ++i) {
        const SRMBString& name = list.getPropertyNameConst(i);
        const SRData& value = list.getPropertyValueConst(i);
        if (name.equalsIgnoreCase(kDuration)) {
            durationFound = true;
            if (std::abs(static_cast<double>(value) - m_duration) > m_parameters.durationMargin)
                fault(krx::streams::kMetadataDuration, i);
        } else if (name.equalsIgnoreCase(kCanSeekToEnd)) {
            canSeekFound = true;
            if (!static_cast<bool>(value))
                fault(krx::streams::kMetadataCanSeekToEnd, i);
        }
    }
    if (!durationFound)
        fault(krx::streams::kMetadataDuration, -1);
    if (!canSeekFound)
        fault(krx::streams::kMetadataCanSeekToEnd, -1);
}

std::optional<double> ZmvFile::announcedDuration(const SRDataArray& list)
{
    for (int i = 0; i < list.getSize(); ++i)
        if (list.getPropertyNameConst(i).equalsIgnoreCase(kDuration))
            return static_cast<double>(list.getPropertyValueConst(i));
    return std::nullopt;
}

void ZmvFile::correct(SRDataArray& list, ParseStatus status, int index) const
{
    const bool isDuration = status == krx::streams::kMetadataDuration;
    SRData value = isDuration ? SRData(m_duration) : SRData(true);
    if (index < 0)
        list.append(SRMBString(isDuration ? kDuration : kCanSeekToEnd), std::move(value));
    else
        list.getPropertyValue(index) = std::move(value);
}

bool ZmvFile::validateMetadata(SRDataArray* list, SRCSerializer& replacement)
{
    if (!list) {
        warnInMessage(krx::streams::kMissingMetadata);
        putDefaultMetaData(replacement);
        return true;
    }
    // The list is corrected in place: references to it remain valid. The values of a strict
    // array have no names: none of them is kept.
    const bool staysArray = list->getKind() == kArrayType && !list->empty();
    const SRData corrected = list->getKind() == kStrictArrayType
                                 ? newObject()
                                 : SRData(SRDataArrayPtr(list), staysArray ? kArrayType : kObjectType);
    m_metaDataSeen = true;
    m_hasMetaData = true;
    m_announcedDuration = announcedDuration(*list);
    bool isFaulty = false;
    findFaults(*list, [&](ParseStatus status, int index) {
        warnInMessage(status);
        isFaulty = true;
        m_hasMetaData &= status != krx::streams::kMetadataDuration;
        if (m_parameters.fixMetaData)
            correct(*static_cast<SRDataArray*>(corrected), status, index);
    });
    return m_parameters.fixMetaData && isFaulty && putMetaData(corrected, replacement);
}

void ZmvFile::putDefaultMetaData(SRCSerializer& body) const
{
    SRData list = newObject();
    correct(*static_cast<SRDataArray*>(list), krx::streams::kMetadataDuration, -1);
    correct(*static_cast<SRDataArray*>(list), krx::streams::kMetadataCanSeekToEnd, -1);
    if (!putMetaData(list, body))
        throw SROutOfMemory();
}

bool ZmvFile::isSound(const SRCSerializer& body, unsigned replacedLength) const
{
    SRCSerializer reader(body.getBuffer(), static_cast<int>(body.getPosition()), true);
    // Body, new values, and the holes that the message's values left take no more than those values could.
    const std::uint64_t memory = SRCSerializer::memoryLimitFor(replacedLength) / 4 * 3;
    reader.setMemoryLimit(memory - std::min<std::uint64_t>(memory, body.getPosition()));
    SRData name;
    SRData list;
    try {
        reader.GetVar(&name, false);
        reader.GetVar(&list, false);
    } catch (const SRBreakConnection&) {
        return false;
    }
    if (reader.hasReadStarved())
        throw SROutOfMemory();
    bool isSound = true;
    findFaults(*static_cast<SRDataArray*>(list), [&](ParseStatus, int) { isSound = false; });
    return isSound;
}

void ZmvFile::correctFlag(unsigned flag, bool seen, ParseStatus notSet, ParseStatus setWithoutMessages)
{
    const bool set = (m_flags & flag) != 0;
    if (set == seen)
        return;
    krx::streams::Place place;
    place.offset = kZmvFlagsPosition;
    warnAt(seen ? notSet : setWithoutMessages, std::move(place));
    m_flags ^= flag;
}

void ZmvFile::validateFlags()
{
    const unsigned flags = m_flags;
    correctFlag(kZmvVideoFlag, m_tally.video.count != 0, krx::streams::kVideoFlagNotSet,
                krx::streams::kVideoFlagWithoutVideo);
    correctFlag(kZmvAudioFlag, m_tally.audio.count != 0, krx::streams::kAudioFlagNotSet,
                krx::streams::kAudioFlagWithoutAudio);
    if (m_parameters.fixMetaData && m_flags != flags) {
        FileFix fix(kZmvFlagsPosition, 1, 1);
        fix.reason = "set the flags of the header";
        fix.writeU8(static_cast<unsigned char>(m_flags));
        m_fixes.push_back(std::move(fix));
    }
}

void ZmvFile::verifyHasMetaData()
{
    if (m_hasMetaData)
        return;
    // Wrong metadata that could not be corrected is still there; none is put in front of it.
    if (!m_parameters.fixMetaData || m_metaDataSeen)
        throw StreamParseError(krx::streams::kMissingMetadata);
    logWarning(StreamParseError(krx::streams::kMissingMetadata));
    SRCSerializer body;
    putDefaultMetaData(body);
    addMetaData(body, static_cast<krx::util::FilePos>(m_headerLength) + krx::util::kBackPointerSize);
}
