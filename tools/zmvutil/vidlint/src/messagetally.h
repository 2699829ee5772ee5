// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/messagerecord.h"

#include <algorithm>

/// The messages of one kind: how many, and from when to when (ms).
struct MessageTally
{
    unsigned long long count = 0;
    unsigned first = 0;
    unsigned last = 0;

    void add(unsigned time)
    {
        if (count++ == 0)
            first = time;
        last = std::max(last, time);
    }
};

/// The messages of a stream by their kinds.
struct StreamTally
{
    MessageTally audio;
    MessageTally video;
    MessageTally data;

    /// The tally for a type, encrypted or not; all that is neither audio nor video counts as data.
    MessageTally& of(unsigned type)
    {
        switch (type & kTypeMask) {
            case kMsgAudio:
                return audio;
            case kMsgVideo:
                return video;
            default:
                return data;
        }
    }
    unsigned long long count() const { return audio.count + video.count + data.count; }
    unsigned last() const { return std::max({audio.last, video.last, data.last}); }
};
