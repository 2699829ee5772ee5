// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/SRFileUtil.h"

#include <memory>
#include <string>

namespace krx::mp4 {

/// One entry of a sample-description box. Fields that the entry's kind does not set stay 0.
struct SampleEntry
{
    struct FontRecord
    {
        unsigned id = 0;
        std::string name;  ///< at most 255 characters
    };

    unsigned type = 0;  ///< four-character code

    // Audio.
    unsigned channelCount = 0;
    unsigned sampleSize = 0;  ///< bits, as read
    double sampleRate = 0;    ///< Hz

    // Video, after the track's transform.
    int width = 0;
    int height = 0;

    // Codec configuration: the 'avcC' payload, or the decoder-specific information of AAC.
    krx::util::FilePos configPosition = 0;
    unsigned configLength = 0;
    std::shared_ptr<unsigned char[]> config;

    // Text style ('tx3g').
    unsigned displayFlags = 0;
    unsigned horizontalJustification = 0;
    unsigned verticalJustification = 0;
    unsigned backgroundColor = 0;  ///< RGBA
    unsigned boxTop = 0;
    unsigned boxLeft = 0;
    unsigned boxBottom = 0;
    unsigned boxRight = 0;
    unsigned startChar = 0;
    unsigned endChar = 0;
    unsigned fontId = 0;
    unsigned faceStyleFlags = 0;
    unsigned fontSize = 0;
    unsigned textColor = 0;  ///< RGBA
    unsigned fontCount = 0;
    std::shared_ptr<FontRecord[]> fonts;
};

}  // namespace krx::mp4
