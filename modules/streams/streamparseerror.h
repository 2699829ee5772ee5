// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/finding.h"
#include "util/SRException.h"

#include <utility>

namespace krx::streams {

/// The numbered findings. The number that a report shows is the status negated.
enum ParseStatus : int
{
    kSuccess = 0,

    // Errors: thrown, they end the input.
    kUnknownError = 1,
    kInvalidPath = 2,
    kFileNotFound = 3,
    kCannotOpenFile = 4,
    kFileReadError = 5,
    kCannotCreateFile = 6,
    kInvalidZmvSignature = 7,
    kInvalidZmvDataPosition = 8,
    kInvalidZmvFooter = 9,
    kUnrecognizedMsgType = 10,
    kBackwardTimestamp = 11,
    kUnparsableDataMessage = 12,
    kNoMovieBox = 13,
    kNoValidTracks = 14,
    kTooManyTracks = 15,
    kOneSampleTypePerTrack = 16,
    kBoxTooLarge = 17,
    kTruncatedBox = 18,
    kDuplicateBox = 19,
    kInvalidBoxVersion = 20,
    kInvalidTimescale = 21,
    kInvalidEntryCount = 22,
    kInvalidSampleSize = 23,
    kInvalidChapterTime = 24,
    kTooManyTags = 25,
    kZmvWithWrongExtension = 26,
    kUnsupportedDrmScheme = 27,
    kTableReadError = 28,
    kUnexpectedFragments = 29,
    kOutOfOrderFragments = 30,
    kBadBoxHierarchy = 31,
    kIndexOrContextsCorrupted = 32,
    kIndexVersionNotSupported = 33,
    kSegmentReadFailed = 34,
    kSegmentTruncatedMessage = 35,
    kSegmentUnrecognizedType = 36,
    kSegmentInvalidFooter = 37,
    kSegmentMismatch = 38,

    // Warnings: reported, and the work goes on unless warnings count as errors.
    kMetadataDuration = 100,
    kMetadataCanSeekToEnd = 101,
    kUnrecognizedBox = 102,
    kIncompleteTrack = 103,
    kDuplicateVideoTrack = 104,
    kDuplicateAudioTrack = 105,
    kDuplicateDataTrack = 106,
    kUnsupportedSampleType = 107,
    kInvalidVideoCodec = 108,
    kInvalidAudioCodec = 109,
    kVideoStall = 110,
    kUnsupportedMetadata = 111,
    kExtraneousBytes = 112,
    kVideoFlagNotSet = 113,
    kAudioFlagNotSet = 114,
    kVideoFlagWithoutVideo = 115,
    kAudioFlagWithoutAudio = 116,
    kTruncatedFile = 117,
    kUnsupportedEditList = 118,
    kMissingMetadata = 119,  ///< an error when it is thrown because no repair was asked for
    kBadNellymoserFrequency = 120,
    kInvalidTrackExtends = 121,
    kUnsupportedSampleFlags = 122,
    kUnrecognizedBoxVersion = 123,
    kNoSyncSamples = 124,
    kInvalidSampleDuration = 125,
    kSegmentBackwardTimestamp = 126,

    // Failures of writing a recorded stream.
    kIndexWriteFailed = 200,
    kSegmentWriteFailed = 201,
};

/// One row of the catalogue.
struct CatalogueEntry
{
    ParseStatus status;
    const wchar_t* text;  ///< number, tab and sentence; may hold one placeholder of SRString::format
};

/// The text of a status, placeholders unfilled; null when there is no such status.
const wchar_t* catalogueText(ParseStatus status);

/// The whole catalogue, in rising order of status.
const CatalogueEntry* catalogueBegin();
const CatalogueEntry* catalogueEnd();

/// A numbered finding: the full text (number and tab included), the status, and where it was made.
class StreamParseError : public SRException
{
public:
    /// With the catalogue's text.
    explicit StreamParseError(ParseStatus status);
    /// With the catalogue's text already filled in.
    StreamParseError(ParseStatus status, const SRString& message);

    ParseStatus getStatus() const { return m_status; }
    const Place& place() const { return m_place; }
    Place& place() { return m_place; }
    bool hasPlace() const { return m_place.offset >= 0; }
    void setPlace(Place place) { m_place = std::move(place); }

private:
    ParseStatus m_status;
    Place m_place;
};

/// A finding whose catalogue text has placeholders, filled with the values.
template <typename... Args>
StreamParseError makeParseError(ParseStatus status, const Args&... args)
{
    return StreamParseError(status, SRString::format(catalogueText(status), args...));
}

/// The same as data.
Finding makeFinding(const StreamParseError& error, FindingLevel level);

}  // namespace krx::streams
