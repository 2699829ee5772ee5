// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/videovalidationparameters.h"

namespace krx::mp4 {

/// Settings of the MP4 module; copied into every open file. Each comment names the key that sets the field.
struct Mp4Config
{
    unsigned videoReadAheadSize = 153600;  ///< bytes; Mp4/Playback/VideoAutoBufferReadSize, at least 1024
    unsigned audioReadAheadSize = 51200;   ///< bytes; Mp4/Playback/AudioAutoBufferReadSize, at least 1024
    unsigned otherReadAheadSize = 1024;    ///< bytes; Mp4/Playback/OtherAutoBufferReadSize, at least 1024
    bool EnableAggMsgs = true;             ///< Mp4/Playback/EnableAggMsgs
    unsigned MaxAggMsgSize = 65536;        ///< bytes; Mp4/Playback/MaxAggMsgSize
    unsigned MaxTracks = 64;               ///< Mp4/Playback/MaxTracks
    unsigned MaxSampleSize = 4194304;      ///< bytes; Mp4/Playback/MaxSampleSize, at most 16,777,216
    bool AllowAnyAVCProfile = false;       ///< Mp4/Playback/AllowAnyAVCProfile
    bool AllowAnyAACProfile = false;       ///< Mp4/Playback/AllowAnyAACProfile

    // Limits of the recording path; reading does not apply them.
    unsigned MaxELSTEntries = 100;             ///< Mp4/Recording/MaxELSTEntries
    unsigned MaxDataSampleDescriptions = 10;   ///< Mp4/Recording/MaxDataSampleDescriptions
    unsigned MaxAudioSampleDescriptions = 10;  ///< Mp4/Recording/MaxAudioSampleDescriptions
    unsigned MaxVideoSampleDescriptions = 10;  ///< Mp4/Recording/MaxVideoSampleDescriptions

    /// Set by no key, and not read: MP4File has its own switch, setWarningsAsErrors.
    krx::streams::VideoValidationParameters validation;
};

}  // namespace krx::mp4
