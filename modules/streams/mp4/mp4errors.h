// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/streamparseerror.h"

// Findings that differ from a StreamParseError only in who catches them.

namespace krx::mp4 {

/// A box that is not known, or not in this version: the walk reports a warning and passes over it.
class UnrecognizedBoxError : public krx::streams::StreamParseError
{
public:
    using StreamParseError::StreamParseError;
};

/// The track cannot be played: the track box reports a warning and the file goes on without the track.
class Mp4TrackError : public krx::streams::StreamParseError
{
public:
    using StreamParseError::StreamParseError;
};

/// No message could be made from the whole file.
class NoTracksError : public krx::streams::StreamParseError
{
public:
    using StreamParseError::StreamParseError;
};

/// One sample is unusable; playback goes on after it.
class BadSampleError : public krx::streams::StreamParseError
{
public:
    using StreamParseError::StreamParseError;
};

/// The file ends before what it promises.
class TruncatedStreamError : public krx::streams::StreamParseError
{
public:
    using StreamParseError::StreamParseError;
};

}  // namespace krx::mp4
