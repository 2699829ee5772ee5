// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/streamparseerror.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>

namespace krx::streams {
namespace {

constexpr CatalogueEntry kCatalogue[] = {
    {kSuccess, L"0\tSuccess."},
    {kUnknownError, L"-1\tUnknown Error."},
    {kInvalidPath, L"-2\tInvalid file system path specified."},
    {kFileNotFound, L"-3\tFile not found."},
    {kCannotOpenFile, L"-4\tCannot open file."},
    {kFileReadError, L"-5\tFile read error."},
    {kCannotCreateFile, L"-6\tCannot create corrected file."},
    {kInvalidZmvSignature, L"-7\tInvalid ZMV signature."},
    {kInvalidZmvDataPosition, L"-8\tInvalid ZMV data position."},
    {kInvalidZmvFooter, L"-9\tInvalid ZMV message footer."},
    {kUnrecognizedMsgType, L"-10\tUnrecognized msg type."},
    {kBackwardTimestamp, L"-11\tFound backward timestamp."},
    {kUnparsableDataMessage, L"-12\tUnparsable data message."},
    {kNoMovieBox, L"-13\tNo movie box in file."},
    {kNoValidTracks, L"-14\tNo valid tracks in file."},
    {kTooManyTracks, L"-15\tToo many tracks.  Max is 64"},
    {kOneSampleTypePerTrack, L"-16\tOnly one sample type allowed per track."},
    {kBoxTooLarge, L"-17\tBox too large."},
    {kTruncatedBox, L"-18\tTruncated box."},
    {kDuplicateBox, L"-19\tDuplicate box."},
    {kInvalidBoxVersion, L"-20\tInvalid box version."},
    {kInvalidTimescale, L"-21\tInvalid movie timescale."},
    {kInvalidEntryCount, L"-22\tInvalid number of data entries in box."},
    {kInvalidSampleSize, L"-23\tInvalid sample size."},
    {kInvalidChapterTime, L"-24\tInvalid chapter time."},
    {kTooManyTags, L"-25\tToo many tag boxes.  Max is 256"},
    {kZmvWithWrongExtension, L"-26\tFile appears to be ZMV with wrong extension."},
    {kUnsupportedDrmScheme, L"-27\tUnsuported DRM scheme."},
    {kTableReadError, L"-28\tError reading MP4 tables."},
    {kUnexpectedFragments, L"-29\tFile contains unexpected movie fragments."},
    {kOutOfOrderFragments, L"-30\tFile contains out-of-order movie fragments."},
    {kBadBoxHierarchy, L"-31\tBad box hierarchy.  Found a track child box before track."},
    {kIndexOrContextsCorrupted, L"-32\tIndex or Contexts file missing or corrupted."},
    {kIndexVersionNotSupported, L"-33\tIndex File Version %x Not Supported.  KRX Requires Version %x."},
    {kSegmentReadFailed, L"-34\tFailed read in segment file %s.  File missing or corrupted."},
    {kSegmentTruncatedMessage, L"-35\tTruncated message in segment file %s."},
    {kSegmentUnrecognizedType, L"-36\tUnrecognized message type in segment file %s."},
    {kSegmentInvalidFooter, L"-37\tInvalid message footer in segment file %s."},
    {kSegmentMismatch, L"-38\tSegment file %s does not match index file."},
    {kMetadataDuration, L"-100\tMetadata duration is either missing or incorrect"},
    {kMetadataCanSeekToEnd, L"-101\tMetadata field 'canSeekToEnd' is either missing or set to false"},
    {kUnrecognizedBox, L"-102\tUnrecognized box: %s"},
    {kIncompleteTrack, L"-103\tFound incomplete track."},
    {kDuplicateVideoTrack, L"-104\tFound duplicate video track.  Ignoring..."},
    {kDuplicateAudioTrack, L"-105\tFound duplicate audio track.  Ignoring..."},
    {kDuplicateDataTrack, L"-106\tFound duplicate data track.  Ignoring..."},
    {kUnsupportedSampleType, L"-107\tTrack has unsupported sample type."},
    {kInvalidVideoCodec, L"-108\tInvalid video codec."},
    {kInvalidAudioCodec, L"-109\tInvalid audio codec."},
    {kVideoStall, L"-110\tVideo may appear stalled due to lack of audio data."},
    {kUnsupportedMetadata, L"-111\tFile has unsupported metadata format."},
    {kExtraneousBytes, L"-112\tBox has extraneous bytes at end."},
    {kVideoFlagNotSet, L"-113\tVideo messages found but video flag not set."},
    {kAudioFlagNotSet, L"-114\tAudio messages found but audio flag not set."},
    {kVideoFlagWithoutVideo, L"-115\tVideo flag set but no video messages found."},
    {kAudioFlagWithoutAudio, L"-116\tAudio flag set but no messages but none found."},
    {kTruncatedFile, L"-117\tFile is truncated.  Will only be partially playable."},
    {kUnsupportedEditList, L"-118\tTrack contains unsupported edit list."},
    {kMissingMetadata, L"-119\tMissing ZMV metadata."},
    {kBadNellymoserFrequency, L"-120\tBad NellyMoser Frequency.  Sample(s) skipped...."},
    {kInvalidTrackExtends, L"-121\tInvalid Track Extends Box."},
    {kUnsupportedSampleFlags, L"-122\tTrack contains unsupported sample flags."},
    {kUnrecognizedBoxVersion, L"-123\tUnrecognized box version: %s"},
    {kNoSyncSamples, L"-124\tNo sync sample box in video track!  KRX cannot generate keyframes."},
    {kInvalidSampleDuration, L"-125\tFound sample with invalid duration!  Treating as duration 0..."},
    {kSegmentBackwardTimestamp, L"-126\tFound backward timestamp in segment file %s."},
    {kIndexWriteFailed, L"Couldn't write Index or Contexts file."},
    {kSegmentWriteFailed, L"Couldn't write segment file %s."},
};

}  // namespace

const CatalogueEntry* catalogueBegin()
{
    return std::begin(kCatalogue);
}

const CatalogueEntry* catalogueEnd()
{
    return std::end(kCatalogue);
}

const wchar_t* catalogueText(ParseStatus status)
{
    const CatalogueEntry* entry =
        std::lower_bound(catalogueBegin(), catalogueEnd(), status,
                         [](const CatalogueEntry& e, ParseStatus s) { return e.status < s; });
    return entry != catalogueEnd() && entry->status == status ? entry->text : nullptr;
}

StreamParseError::StreamParseError(ParseStatus status)
    : StreamParseError(status, SRString(catalogueText(status)))
{
}

StreamParseError::StreamParseError(ParseStatus status, const SRString& message)
    : SRException(message), m_status(status)
{
}

Finding makeFinding(const StreamParseError& error, FindingLevel level)
{
    const SRMBString message = error.getMessage().toMultiByte();
    std::string_view text = message.view();
    // Texts begin with the number and a tab. Those of failures of writing have neither.
    const std::size_t tab = text.find('\t');
    const bool isNumbered = tab != std::string_view::npos && error.getStatus() < kIndexWriteFailed;
    if (isNumbered)
        text.remove_prefix(tab + 1);
    return {isNumbered ? -error.getStatus() : 0, level, std::string(text), error.place(), 0};
}

}  // namespace krx::streams
